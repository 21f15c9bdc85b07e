"""A copy of the checkout with a build of its own, in which mutants are tried."""

import contextlib
import filecmp
import os
import re
import shutil
import signal
import subprocess
import sys

import mutants
from mutants import PROJECT, text_of

NOT_COPIED = {"build", ".git"}
PATIENCE = 40  # seconds without another test begun or ended: a test hangs
BUILD_PATIENCE = 600
HUNG = "hung"
SWITCHES = f"{PROJECT}/scripts/lib/mutants.h"
MOST, TESTS = 1024, 2048  # as there
MAIN = "tests/support/main.cpp"
LISTENER = f"""
#include "{SWITCHES}"
namespace {{
/// Tells the switches which test runs.
class CountTests : public testing::EmptyTestEventListener {{
  void OnTestStart(const testing::TestInfo&) override {{ mutants::state.test = ++begun_; }}
  std::size_t begun_ = 0;
}};
}}  // namespace
"""
# Of a mutant, and not of its switch.
NO_MUTANT = re.compile("invalid operands to binary expression|no viable overloaded")


class Tree:
    def __init__(self, place):
        self.place = place
        self.build_folder = f"{place}/build/clang"
        self.sources = {}
        os.makedirs(place, exist_ok=True)
        for name in sorted(set(os.listdir(PROJECT)) - NOT_COPIED):
            self.bring(name)
        # The library's own assertions see an index behind the end.
        self.check(["cmake", "--preset", "clang", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld",
                    "-DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS"])

    def bring(self, name):
        """Makes the copy of a file or folder the same, and what differed new: whatever an earlier
        run has left there is built anew."""
        source, target = f"{PROJECT}/{name}", f"{self.place}/{name}"
        if os.path.isdir(source):
            os.makedirs(target, exist_ok=True)
            for gone in set(os.listdir(target)) - set(os.listdir(source)):
                subprocess.run(["rm", "-r", f"{target}/{gone}"], check=True)
            for entry in os.listdir(source):
                self.bring(f"{name}/{entry}")
        elif os.path.islink(source):
            if not os.path.lexists(target):
                os.symlink(os.readlink(source), target)
        elif os.path.isfile(source) and not (os.path.isfile(target) and
                                             filecmp.cmp(source, target, shallow=False)):
            shutil.copyfile(source, target)
            shutil.copymode(source, target)

    def output(self, worker=0):
        return f"{self.place}/output-{worker}"

    def text(self, worker=0):
        with open(self.output(worker), encoding="utf-8", errors="replace") as file:
            return file.read()

    def call(self, words, patience=None, worker=0, **environment):
        """Exit status; HUNG when nothing more was written for a while."""
        environment = {**os.environ, "CCACHE_BASEDIR": self.place, "CCACHE_NOHASHDIR": "1",
                       "MUTANT_WORKER": str(worker), **environment}
        with open(self.output(worker), "wb") as output:
            process = subprocess.Popen(["nice", "-n", "19", *words], cwd=self.place,
                                       env=environment, stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, start_new_session=True)
        written = -1
        while written != os.stat(self.output(worker)).st_size:
            written = os.stat(self.output(worker)).st_size
            try:
                return process.wait(patience or PATIENCE)
            except subprocess.TimeoutExpired:
                pass
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return HUNG

    def check(self, words):
        if self.call(words, BUILD_PATIENCE) != 0:
            sys.exit(f"{' '.join(words)}\n{self.text()[-5000:]}")

    def build(self, targets):
        """Builds what is not changed."""
        self.check(["ninja", "-C", self.build_folder, *targets])

    def make(self, *targets):
        """Builds what is changed; whether that went well. What is compiled once only would but fill
        the cache. A mutant may well make a variable useless: warnings are no errors here."""
        return self.call(["ninja", "-k", "0", "-C", self.build_folder, *targets], BUILD_PATIENCE,
                         CCACHE_DISABLE="1", CCC_OVERRIDE_OPTIONS="# +-w +-ferror-limit=0") == 0

    @contextlib.contextmanager
    def changed(self, mutant):
        path = f"{self.place}/{mutant.path}"
        source = text_of(path)
        self.write(path, source[:mutant.start] + mutant.text + source[mutant.end:])
        try:
            yield
        finally:
            self.write(path, source)

    @staticmethod
    def write(path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    # Many mutants in one program.

    def put_switches(self, chosen, verdicts, targets):
        """Builds as many of the mutants as can stand side by side; gives their numbers by name, and
        notes those that cannot be built at all."""
        self.build(targets)
        self.sources = {mutant.path: text_of(f"{self.place}/{mutant.path}") for _, mutant in chosen}
        standing = {}  # path: [(start, end, text, name, mutant)]
        numbers = {}
        for name, mutant in chosen:
            if not mutant.path.endswith(".cpp") or len(numbers) + 1 >= MOST:
                continue
            source = self.sources[mutant.path]
            start, end, text = mutants.switched(source, mutant, len(numbers) + 1)
            here = standing.setdefault(mutant.path, [])
            if any(start < other[1] and other[0] < end for other in here):
                continue
            here.append((start, end, text, name, mutant))
            numbers[name] = len(numbers) + 1
        main = text_of(f"{PROJECT}/{MAIN}")
        main = main.replace("int main", f"{LISTENER}\nint main").replace(
            "  return RUN", "  testing::UnitTest::GetInstance()->listeners().Append(new CountTests);"
            "\n  return RUN")
        self.write(f"{self.place}/{MAIN}", main)
        written = set(standing)
        while True:
            for path in written:
                self.write_switched(path, standing[path])
            if self.make(*targets):
                return numbers
            written = self.drop_faults(standing, numbers, verdicts)
            if not written:
                sys.exit(f"{self.text()[-5000:]}\nnothing can be learnt: this is no mutant's fault")

    def write_switched(self, path, here):
        source = self.sources[path]
        for start, end, text, *_ in sorted(here, reverse=True):
            source = source[:start] + text + source[end:]
        self.write(f"{self.place}/{path}", f'#include "{SWITCHES}"\n#line 1\n{source}')

    def drop_faults(self, standing, numbers, verdicts):
        """Takes out the mutants that the compiler has named; gives their files."""
        # One mutant may have several errors: none of them is another's.
        named_among = {path: list(here) for path, here in standing.items()}
        touched = set()
        for file, at, kind, text in set(re.findall(r"^(\S+?):(\d+):\d+: (error|note): (.*)$",
                                                   self.text(), re.M)):
            path = os.path.relpath(os.path.join(self.build_folder, file), self.place)
            here = named_among.get(path, [])
            source = self.sources[path] if here else ""

            def distance(each, source=source, line=int(at)):
                first, last = (source.count("\n", 0, place) + 1 for place in each[:2])
                return max(first - line, line - last, 0)

            named = [each for each in here if distance(each) == 0]
            if not named and here and kind == "error":
                named = [min(here, key=distance)]  # it is told where its statement begins
            for each in named:
                touched.add(path)
                if each in standing[path]:
                    standing[path].remove(each)
                    del numbers[each[3]]
                if kind == "error" and NO_MUTANT.search(text):
                    verdicts[each[3]] = "not built"
        return touched

    def reached_file(self):
        path = f"{self.place}/reached"
        with open(path, "wb") as file:
            file.truncate(MOST * TESTS)
        return path

    @staticmethod
    def rows_of(path):
        with open(path, "rb") as file:
            content = file.read()
        rows = {number: content[number * TESTS:(number + 1) * TESTS] for number in range(MOST)}
        return {number: [test for test, mark in enumerate(row) if mark]
                for number, row in rows.items() if any(row)}

    def record_tests(self, program):
        """The tests of a program that come by each mutant, by its number."""
        path = self.reached_file()
        status = self.call([self.program(program)], MUTANTS_REACHED=path)
        names = re.findall(r"\[ RUN      \] (\S+)", self.text())
        for name in re.findall(r"^\[  FAILED  \] ([^\s,]+)", self.text(), re.M):
            if self.call([self.program(program), f"--gtest_filter={name}"]) != 0:
                sys.exit(f"{name} does not pass without a change: nothing can be learnt")
        if status == HUNG or not names:
            sys.exit(f"{program} hangs without a change: nothing can be learnt")
        # What a program comes by before its first test may matter to each of them.
        return {number: names if 0 in tests else [names[test - 1] for test in tests]
                for number, tests in self.rows_of(path).items()}

    def record_ctest(self, test):
        """The mutants that a test of ctest comes by."""
        path = self.reached_file()
        if self.ctest(test, 0, MUTANTS_REACHED=path):
            sys.exit(f"{test} does not pass without a change: nothing can be learnt")
        return set(self.rows_of(path))

    # Tests.

    def program(self, name):
        return subprocess.run(["find", self.build_folder, "-name", name, "-type", "f",
                               "-executable"],
                              stdout=subprocess.PIPE, text=True, check=True).stdout.split()[0]

    def run_tests(self, program, chosen, worker, environment):
        """The exit status or HUNG, and the first test that failed or the one begun last."""
        status = self.call([self.program(program), "--gtest_fail_fast", f"--gtest_filter={chosen}"],
                           worker=worker, **environment)
        self.end_what_is_left(worker)
        text = self.text(worker)
        failed = re.findall(r"^\[  FAILED  \] ([^\s,]+)", text, re.M)
        begun = re.findall(r"\[ RUN      \] (\S+)", text)
        return status, (failed[:1] or begun[-1:] or [program])[0]

    def test(self, program, tests, worker, **environment):
        """The first of the tests that fails twice, HUNG when one hangs and no other fails, or
        nothing."""
        left_out, hung = [], False
        for _ in range(4):
            chosen = ":".join(tests) + ("-" + ":".join(left_out) if left_out else "")
            status, name = self.run_tests(program, chosen, worker, environment)
            if status == 0:
                break
            if status == HUNG:
                hung = True
            elif self.run_tests(program, name, worker, environment)[0] not in (0, HUNG):
                return name
            left_out.append(name)
        return HUNG if hung else ""

    def ctest(self, test, worker, **environment):
        """As test(), for one of ctest's."""
        for _ in range(2):
            status = self.call(["ctest", "--test-dir", "build/clang", "-R", f"^{test}$"],
                               4 * PATIENCE, worker, **environment)
            self.end_what_is_left(worker)
            if status in (0, HUNG):
                return "" if status == 0 else HUNG
        return test

    def end_what_is_left(self, worker):
        """A mutant may leave processes, the executor first of all: whatever runs a program of this
        copy in the session of a call that has ended."""
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                if not os.readlink(f"/proc/{name}/exe").startswith(f"{self.build_folder}/"):
                    continue
                with open(f"/proc/{name}/environ", "rb") as environment:
                    if f"MUTANT_WORKER={worker}".encode() in environment.read().split(b"\0"):
                        os.kill(int(name), signal.SIGKILL)
            except OSError:
                continue  # it has ended, or is not ours to look at
