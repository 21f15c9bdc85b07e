#include "platform/poll.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/log.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

/// The loop lives as long as its process, so each test has it in a child.
void inChild(const std::function<void()>& body) {
  Finished child = runInChild(body);
  EXPECT_EQ(child.status, 0) << child.out << child.err;
}

constexpr int kClass = 1;
constexpr int kFlags = 21;
constexpr int kRead = 2;

int watch(PollCallback callback, void* clientData, int device) {
  return Poll_Callback(kClass, kFlags, callback, clientData, kRead, device, nullptr);
}

bool unwatch(PollCallback callback, void* clientData) {
  return Poll_CallbackRemove(kClass, kFlags, callback, clientData, kRead);
}

/// A pipe whose callback reads one byte at a time, up to the stop byte 's'.
struct Reader {
  Reader() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    device = ends[0];
    writer = ends[1];
  }

  static void readByte(void* clientData) {
    auto* self = static_cast<Reader*>(clientData);
    char byte = 0;
    EXPECT_EQ(read(self->device, &byte, 1), 1);
    self->seen += byte;
    if (byte == 's') self->stop = true;
  }

  void say(const std::string& text) const {
    EXPECT_EQ(write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  int device = -1;
  int writer = -1;
  std::string seen;
  bool stop = false;
};

TEST(Poll, CallsBackForEachReadableEventUntilTheStopFlagIsSet) {
  inChild([] {
    Reader reader;
    Poll_InitDefault();
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    reader.say("abcs-never read");
    Poll_Loop(kClass, &reader.stop, 0);
    EXPECT_EQ(reader.seen, "abcs");
  });
}

// Otherwise the executor would listen for ever and serve nobody.
TEST(Poll, ADeviceThatCannotBeWatchedEndsTheLoop) {
  Finished child = runInChild([] {
    Reader reader;
    Poll_InitDefault();
    ioctlError = EIO;  // it cannot be made non-blocking
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    ioctlError = 0;
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", nullptr, 0)));
    reader.say("abs");
    Poll_Loop(kClass, &reader.stop, 0);
    writeFile("/seen", reader.seen);
  });
  EXPECT_EQ(child.status, 0) << child.err;
  const std::string seen = readFile("/seen");
  // Newer releases of Boost watch a device as it is, and then nothing has failed.
  if (seen == "abs") {
    EXPECT_EQ(child.out, "");
    return;
  }
  EXPECT_EQ(seen, "");
  EXPECT_THAT(child.out, testing::EndsWith(": the poll loop ends, a descriptor cannot be watched: "
                                           "Input/output error\n"));
}

struct Server {
  int listening = -1;
  int served = 0;
  bool stop = false;

  static void serve(void* clientData) {
    auto* self = static_cast<Server*>(clientData);
    int connection = accept4(self->listening, nullptr, nullptr, SOCK_CLOEXEC);
    EXPECT_GE(connection, 0);
    close(connection);
    self->stop = ++self->served == 3;
  }
};

TEST(Poll, ServesAllConnectionsThatWaitAtOnce) {
  inChild([] {
    Server server;
    server.listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/tmp/socket");
    auto* name = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(server.listening, name, sizeof address), 0);
    ASSERT_EQ(listen(server.listening, 16), 0);
    Poll_InitDefault();
    ASSERT_EQ(watch(Server::serve, &server, server.listening), 0);
    for (int i = 0; i < 3; ++i) {
      int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      ASSERT_EQ(connect(client, name, sizeof address), 0);
    }
    Poll_Loop(kClass, &server.stop, 0);
    EXPECT_EQ(server.served, 3);
  });
}

struct Remover {
  Reader reader;
  int calls = 0;

  static void removeItself(void* clientData) {
    auto* self = static_cast<Remover*>(clientData);
    ++self->calls;
    EXPECT_TRUE(unwatch(removeItself, self));
    EXPECT_FALSE(unwatch(removeItself, self));
    Poll_NotifyChange(kClass);
    self->reader.stop = true;
  }
};

TEST(Poll, LetsACallbackRemoveItselfAndStopTheLoop) {
  inChild([] {
    Remover remover;
    Poll_InitDefault();
    ASSERT_EQ(watch(Remover::removeItself, &remover, remover.reader.device), 0);
    remover.reader.say("never read");
    Poll_Loop(kClass, &remover.reader.stop, 0);
    EXPECT_EQ(remover.calls, 1);
    EXPECT_NE(fcntl(remover.reader.device, F_GETFD), -1) << "the device is the caller's to close";
  });
}

TEST(Poll, CallsNothingBackThatWasRemoved) {
  inChild([] {
    Reader removed;
    Reader other;
    Poll_InitDefault();
    ASSERT_EQ(watch(Reader::readByte, &removed, removed.device), 0);
    ASSERT_EQ(watch(Reader::readByte, &other, other.device), 0);
    removed.say("x");
    EXPECT_TRUE(unwatch(Reader::readByte, &removed));
    close(removed.device);  // at once, before the loop could notice
    other.say("as");
    Poll_Loop(kClass, &other.stop, 0);
    EXPECT_EQ(removed.seen, "");
    EXPECT_EQ(other.seen, "as");
  });
}

TEST(Poll, WatchesAgainWhatWasRemoved) {
  inChild([] {
    Reader reader;
    Poll_InitDefault();
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    ASSERT_TRUE(unwatch(Reader::readByte, &reader));
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    reader.say("s");
    Poll_Loop(kClass, &reader.stop, 0);
    EXPECT_EQ(reader.seen, "s");
  });
}

TEST(Poll, RemovesOnlyWhatWasRegisteredWithTheSameValues) {
  inChild([] {
    Reader reader;
    Poll_InitDefault();
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    EXPECT_FALSE(Poll_CallbackRemove(2, kFlags, Reader::readByte, &reader, kRead));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, 1, Reader::readByte, &reader, kRead));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags, Server::serve, &reader, kRead));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags, Reader::readByte, nullptr, kRead));
    EXPECT_FALSE(Poll_CallbackRemove(kClass, kFlags, Reader::readByte, &reader, 1));
    EXPECT_TRUE(unwatch(Reader::readByte, &reader));
  });
}

TEST(Poll, ReturnsAtOnceWhenTheStopFlagIsSetAlready) {
  inChild([] {
    bool stop = true;
    Poll_InitDefault();
    Poll_Loop(kClass, &stop, 0);
  });
}

TEST(Poll, SeesAStopFlagThatAnotherThreadSetsWhenItIsNotified) {
  inChild([] {
    bool stop = false;
    Poll_InitDefault();
    std::thread loop([&stop] { Poll_Loop(kClass, &stop, 0); });
    std::atomic_ref(stop).store(true);
    Poll_NotifyChange(kClass);
    loop.join();
  });
}

TEST(Poll, SaysWhenADeviceCannotBeWatched) {
  inChild([] {
    Reader reader;
    EXPECT_EQ(watch(Reader::readByte, &reader, reader.device), ENODEV) << "there is no loop yet";
    EXPECT_FALSE(unwatch(Reader::readByte, &reader));
    Poll_NotifyChange(kClass);
    Poll_InitDefault();
    Poll_InitDefault();
    EXPECT_EQ(watch(nullptr, &reader, reader.device), EINVAL);
    EXPECT_EQ(watch(Reader::readByte, &reader, -1), EBADF);
    writeFile("/tmp/file", "");
    int file = open("/tmp/file", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(watch(Reader::readByte, &reader, file), EPERM);
    EXPECT_NE(fcntl(file, F_GETFD), -1) << "the device is the caller's to close";
    EXPECT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    EXPECT_EQ(watch(Reader::readByte, &reader, reader.device), EEXIST);
  });
}

TEST(Poll, SaysWhenThereAreNoDescriptorsLeft) {
  inChild([] {
    Reader reader;
    Poll_InitDefault();
    // First the look at the device cannot be had, then the loop's own descriptor.
    for (int creations : {0, 1}) {
      epollCreations = creations;
      EXPECT_EQ(watch(Reader::readByte, &reader, reader.device), EMFILE) << creations;
    }
    epollCreations = -1;
    EXPECT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    reader.say("s");
    Poll_Loop(kClass, &reader.stop, 0);
    EXPECT_EQ(reader.seen, "s");
  });
}

TEST(Poll, WorksInAProcessForkedFromOneWithThreads) {
  inChild([] {
    std::atomic<bool> end = false;
    std::thread other([&end] {
      while (!end) std::this_thread::yield();
    });
    pid_t forked = fork();
    if (forked == 0) {
      alarm(30);
      Reader reader;
      Poll_InitDefault();
      bool right = watch(Reader::readByte, &reader, reader.device) == 0;
      reader.say("s");
      Poll_Loop(kClass, &reader.stop, 0);
      _exit(right && reader.seen == "s" ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(forked, &status, 0), forked);
    EXPECT_EQ(status, 0);
    end = true;
    other.join();
  });
}

TEST(Poll, KeepsItsDescriptorsFromProgramsThatAreStarted) {
  inChild([] {
    std::vector<bool> openBefore;
    for (int fd = 0; fd < 256; ++fd) openBefore.push_back(fcntl(fd, F_GETFD) != -1);
    Reader reader;
    Poll_InitDefault();
    ASSERT_EQ(watch(Reader::readByte, &reader, reader.device), 0);
    int opened = 0;
    for (int fd = 0; fd < 256; ++fd) {
      int flags = fcntl(fd, F_GETFD);
      if (flags == -1 || openBefore[static_cast<std::size_t>(fd)]) continue;
      ++opened;
      EXPECT_TRUE(flags & FD_CLOEXEC) << fd;
    }
    EXPECT_GT(opened, 2) << "more than the device and its writer";
  });
}

}  // namespace
}  // namespace bootforge::test
