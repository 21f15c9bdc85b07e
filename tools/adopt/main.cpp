// bootforge-adopt: lets the host's init start bootforge, and takes that back.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/adopt/adoption.h"
#include "tools/adopt/draft_tree.h"
#include "tools/adopt/host_tree.h"
#include "util/system_error.h"
#include "util/utf8.h"
#include "util/version.h"

namespace bootforge::adopt {
namespace {

enum ExitStatus { kGood = 0, kRefused = 1, kFailed = 2 };

struct Arguments {
  std::string root = "/";
  bool isDryRun = false;
  bool isForced = false;
};

/// A descriptor that is opened later must not become a standard stream.
void openMissingStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1) ::open("/dev/null", O_RDWR);
  }
}

void tell(const std::string& text) {
  std::fprintf(stderr, "bootforge-adopt: %s\n", printable(text).c_str());
}

int show(const Outcome& outcome) {
  for (const std::string& line : outcome.lines) std::printf("%s\n", printable(line).c_str());
  for (const std::string& note : outcome.notes) tell(note);
  return outcome.isGood ? kGood : kRefused;
}

/// Does with a tree what the verb says.
template <typename Verb>
int carryOut(const Arguments& arguments, Verb verb) {
  HostTree host(arguments.root);
  if (arguments.isDryRun) {
    DraftTree draft(host);
    Adoption adoption(host.root(), draft);
    const Outcome outcome = verb(adoption);
    std::fputs(draft.asPatch().c_str(), stdout);
    for (const std::string& note : outcome.notes) tell(note);
    return kGood;
  }
  host.lock("/etc");
  Adoption adoption(host.root(), host);
  return show(verb(adoption));
}

void addRoot(CLI::App& verb, Arguments& arguments) {
  verb.add_option("--root", arguments.root, "The host's root, / when not given")->type_name("DIR");
}

void addDryRun(CLI::App& verb, Arguments& arguments) {
  verb.add_flag("--dry-run", arguments.isDryRun,
                "Change nothing; show as a patch what would be changed");
}

/// Shows the word in the place of a subcommand; the parser only says that there is none.
std::string usageError(const CLI::App* app, const CLI::Error& error) {
  std::string text = error.what();
  const std::vector<std::string> others = app->remaining();
  if (app->get_subcommands().empty() && !others.empty() && !others.front().starts_with('-')) {
    text = "there is no subcommand \"" + others.front() + '"';
  }
  return "bootforge-adopt: " + printable(text) + "\nSee bootforge-adopt --help.\n";
}

int run(int argc, char** argv) {
  CLI::App app("Lets the host's init start bootforge, and takes that back.", "bootforge-adopt");
  app.require_subcommand(1);
  app.failure_message(usageError);
  app.set_version_flag("--version", std::string("bootforge-adopt ") + version());
  Arguments arguments;
  int status = kGood;

  CLI::App* const enable = app.add_subcommand("enable", "Let the next boot run bootforge");
  addRoot(*enable, arguments);
  addDryRun(*enable, arguments);
  enable->callback(
      [&] { status = carryOut(arguments, [](Adoption& adoption) { return adoption.enable(); }); });
  CLI::App* const disable = app.add_subcommand("disable", "Put everything back as it was");
  addRoot(*disable, arguments);
  addDryRun(*disable, arguments);
  disable->add_flag("--force", arguments.isForced,
                    "Also put back what was edited since; that is kept under another name");
  disable->callback([&] {
    status = carryOut(arguments,
                      [&](Adoption& adoption) { return adoption.disable(arguments.isForced); });
  });
  CLI::App* const tellStatus =
      app.add_subcommand("status", "Tell what is in place and what is not");
  addRoot(*tellStatus, arguments);
  tellStatus->callback([&] {
    HostTree host(arguments.root);
    status = show(Adoption(host.root(), host).status());
  });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kGood : kFailed;
  } catch (const Refusal& refusal) {
    tell(refusal.what());
    return kRefused;
  } catch (const std::exception& error) {
    tell(error.what());
    return kFailed;
  }
  return status;
}

/// Somebody reads the answer, or is told that it got lost.
int runAndFlush(int argc, char** argv) {
  const int status = run(argc, argv);
  if (std::fflush(stdout) == 0) return status;
  tell("standard output: " + systemErrorText(errno));
  return kFailed;
}

}  // namespace
}  // namespace bootforge::adopt

int main(int argc, char** argv) {
  bootforge::adopt::openMissingStreams();
  // Folders that are made have the modes that they are given.
  ::umask(S_IWGRP | S_IWOTH);
  return bootforge::adopt::runAndFlush(argc, argv);
}
