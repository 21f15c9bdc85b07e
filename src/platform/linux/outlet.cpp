#include "platform/linux/outlet.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/text.h"

namespace host_linux {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// What syslog daemons take of a message at least; they cut the rest.
constexpr std::size_t kMostOfAMessage = 8192;

/// False when the descriptor takes nothing until the deadline.
bool awaitRoom(int fd, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd writable{fd, POLLOUT, 0};
    const int ready = ::poll(&writable, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

/// An open file of our own on the terminal: that it is not waited for is a property of the open
/// file, and whoever else has the standard stream must not find it changed.
Descriptor reopened(int terminal) {
  const auto open = [](const char* path) {
    return uninterrupted(
        [path] { return ::open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
  };
  Descriptor own(open(("/proc/self/fd/" + std::to_string(terminal)).c_str()));
  // Early in a boot there may be no /proc.
  char name[64];
  if (!own && ::ttyname_r(terminal, name, sizeof name) == 0) own = Descriptor(open(name));
  return own;
}

}  // namespace

Delivery writeToTerminal(int terminal, std::string_view text, milliseconds patience, bool* begun) {
  const Descriptor own = reopened(terminal);
  // Without one, a terminal that has room is taken to have it for all of the text.
  const int fd = own ? own.get() : terminal;
  *begun = false;
  Clock::time_point deadline = Clock::now() + patience;
  while (!text.empty()) {
    if (!own && !awaitRoom(fd, std::max(deadline, Clock::now() + milliseconds(1)))) {
      return Delivery::kNoRoom;
    }
    const ssize_t written = uninterrupted([&] { return ::write(fd, text.data(), text.size()); });
    if (written > 0) {
      *begun = true;
      text.remove_prefix(static_cast<std::size_t>(written));
      deadline = Clock::now() + patience;
    } else if (written < 0 && errno != EAGAIN) {
      return Delivery::kNobody;
    } else if (!awaitRoom(fd, deadline)) {
      return Delivery::kNoRoom;
    }
  }
  return Delivery::kDone;
}

std::string syslogMessage(int priority, std::string_view identity, std::string_view text) {
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if ((priority & LOG_FACMASK) == 0) priority |= LOG_DAEMON;
  const time_t now = ::time(nullptr);
  tm date{};
  ::localtime_r(&now, &date);
  char head[64];
  const int length =
      std::snprintf(head, sizeof head, "<%d>%s %2d %02d:%02d:%02d ", priority, kMonths[date.tm_mon],
                    date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec);
  std::string message(head, static_cast<std::size_t>(length));
  return message.append(identity).append(": ").append(text);
}

Delivery SyslogSocket::connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  for (const bool stream : {stream_, !stream_}) {
    const int type = stream ? SOCK_STREAM : SOCK_DGRAM;
    fd_ = ::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) return Delivery::kNobody;
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      stream_ = stream;
      return Delivery::kDone;
    }
    const int error = errno;
    close();
    if (error == EAGAIN) return Delivery::kNoRoom;
    if (error != EPROTOTYPE) break;
  }
  return Delivery::kNobody;
}

Delivery SyslogSocket::send(std::string_view message, milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  bool fresh = fd_ < 0;
  if (fresh) {
    if (const Delivery connected = connect(); connected != Delivery::kDone) return connected;
  }
  std::string text = framed(message);
  while (!text.empty()) {
    const ssize_t sent = uninterrupted(
        [&] { return ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL); });
    if (sent >= 0) {
      text.erase(0, static_cast<std::size_t>(sent));
    } else if (errno == EAGAIN) {
      if (awaitRoom(fd_, deadline)) continue;
      // The next message asks anew who listens: this daemon may have been replaced meanwhile.
      close();
      return Delivery::kNoRoom;
    } else if (errno == EMSGSIZE && text.size() > kMostOfAMessage) {
      text = cutTo(text, kMostOfAMessage);
    } else {
      close();
      // A connection of old leads nowhere once the daemon was started anew.
      if (fresh) return Delivery::kNobody;
      fresh = true;
      if (const Delivery connected = connect(); connected != Delivery::kDone) return connected;
      text = framed(message);
    }
  }
  return Delivery::kDone;
}

std::string SyslogSocket::framed(std::string_view message) const {
  std::string text(message);
  if (stream_) text += '\0';
  return text;
}

void SyslogSocket::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

}  // namespace host_linux
