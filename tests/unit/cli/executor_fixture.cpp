#include "tests/unit/cli/executor_fixture.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>

#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/script.h"
#include "util/exception.h"
#include "util/system_error.h"

// A worker restarts the executor while other threads run; ThreadSanitizer would end its process.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace bootforge {
namespace {

sockaddr_un socketAddress() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kSocketPath);
  return address;
}

bool isServing() {
  const UniqueFd connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = socketAddress();
  return ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
             0 ||
         errno == EAGAIN;
}

void setDefaultStackSize(std::size_t size) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

constexpr std::chrono::seconds kPatience{20};
constexpr std::chrono::milliseconds kGlance{10};

constexpr std::size_t kUsualStack = std::size_t{8} << 20;

}  // namespace

std::string exceptionOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& failure) {
    return failure.what();
  }
  ADD_FAILURE() << "no Exception was thrown";
  return "";
}

Process::Process(pid_t number)
    : number_(number), handle_(static_cast<int>(::syscall(SYS_pidfd_open, number, 0))) {}

bool Process::waitForEnd() const {
  if (!handle_) return true;
  pollfd wait{handle_.get(), POLLIN, 0};
  return retryInterrupted([&] { return ::poll(&wait, 1, 20000); }) == 1;
}

void Process::kill() const {
  if (!handle_) return;
  doubles::betweenRecords([this] {
    ::syscall(SYS_pidfd_send_signal, handle_.get(), SIGKILL, nullptr, 0);
    EXPECT_TRUE(waitForEnd()) << number_;
  });
}

std::vector<doubles::Record> logRecords() { return doubles::records({doubles::Kind::kLog}); }

void ExecutorTest::SetUp() {
  HypcliExecutor::instance();
  executors_.clear();
  doubles::reset();
  doubles::resetFaults();
}

void ExecutorTest::TearDown() {
  doubles::resetFaults();
  // What start() forked and could not collect still has the socket open until it ends.
  while (::waitpid(-1, nullptr, 0) > 0) {
  }
  std::size_t ended = 0;
  do {
    // One that serves already may not have said so yet. And the process that went into the
    // background has its socket open until it ends, which nobody sees when its starter is gone.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (isServing() && !doubles::waitForRecord(kPolling, static_cast<int>(ended) + 1, kGlance)) {
      if (std::chrono::steady_clock::now() > deadline) FAIL() << "an unknown process serves";
    }
    while (ended < executors().size()) executors()[ended++].kill();
  } while (isServing() && !HasFailure());
}

const Process& ExecutorTest::startExecutor() {
  const std::size_t before = executors().size();
  HypcliExecutor::instance().start();
  EXPECT_TRUE(doubles::waitForRecord(kPolling, static_cast<int>(before) + 1));
  return executors().at(before);
}

const std::deque<Process>& ExecutorTest::executors() {
  std::size_t seen = 0;
  for (const doubles::Record& record : doubles::records()) {
    if (record == kPolling && seen++ == executors_.size()) executors_.emplace_back(record.process);
  }
  return executors_;
}

FakeExecutor::FakeExecutor(std::vector<std::function<void(const UniqueFd&)>> scripts)
    : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address = socketAddress();
  EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
  EXPECT_EQ(::listen(listener_.get(), 16), 0);
  thread_ = std::thread([this, scripts = std::move(scripts)] {
    for (const auto& serve : scripts) {
      const UniqueFd connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!connection) return;
      serve(connection);
    }
  });
}

FakeExecutor::~FakeExecutor() {
  // Wakes the thread when it still waits for a connection.
  ::shutdown(listener_.get(), SHUT_RDWR);
  finish();
}

void FakeExecutor::finish() {
  if (thread_.joinable()) thread_.join();
}

Workers::~Workers() { join(); }

void Workers::add(int count, const std::function<void()>& work) {
  for (int i = 0; i < count; ++i) {
    threads_.emplace_back([work] {
      try {
        work();
      } catch (const std::exception& failure) {
        ADD_FAILURE() << failure.what();
      }
    });
  }
  // A child that one of them forks would make its thread on the cached stack of another, and to
  // ThreadSanitizer, which still counts the parent's threads there, that is one thread twice.
  setDefaultStackSize(2 * kUsualStack);
}

void Workers::join() {
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  setDefaultStackSize(kUsualStack);
}

RawClient::RawClient() : connection_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  // So that no test waits for ever; by number, for the call by its name is the tests' to change.
  const timeval patience{kPatience.count(), 0};
  ::syscall(SYS_setsockopt, connection_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const sockaddr_un address = socketAddress();
  EXPECT_EQ(
      ::connect(connection_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

void RawClient::send(const std::string& bytes) {
  EXPECT_EQ(::send(connection_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

void RawClient::trySend(const std::string& bytes) const {
  const ssize_t count = ::send(connection_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  EXPECT_TRUE(count == static_cast<ssize_t>(bytes.size()) || (count == -1 && errno == EPIPE));
}

int RawClient::status() {
  std::int32_t value = -1;
  EXPECT_EQ(::recv(connection_.get(), &value, sizeof value, MSG_WAITALL),
            static_cast<ssize_t>(sizeof value));
  return value;
}

bool RawClient::ended() {
  char byte;
  // A server that closes with unread bytes before it resets the connection.
  const ssize_t count = ::recv(connection_.get(), &byte, 1, 0);
  return count == 0 || (count == -1 && errno == ECONNRESET);
}

int statusOf(const std::string& request) {
  RawClient client;
  client.send(request);
  return client.status();
}

std::string receive(const UniqueFd& connection) {
  char buffer[8192];
  const ssize_t count = ::recv(connection.get(), buffer, sizeof buffer, 0);
  EXPECT_GE(count, 0) << systemErrorText(errno);
  return count < 0 ? "" : std::string(buffer, static_cast<std::size_t>(count));
}

}  // namespace bootforge
