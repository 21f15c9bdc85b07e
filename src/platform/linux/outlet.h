// The two ways of the log to somebody who may not listen: neither holds the program up for ever.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace host_linux {

enum class Delivery {
  kDone,
  kNoRoom,  // the other side takes nothing: it may do so later
  kNobody,  // there is no other side
};

/// Writes to a terminal. A terminal that takes nothing for `patience`, because it is stopped or
/// nobody reads it, is left: kNoRoom. `*begun` tells then whether a part was written.
Delivery writeToTerminal(int terminal, std::string_view text, std::chrono::milliseconds patience,
                         bool* begun);

/// The connection to the syslog daemon, at /dev/log. As syslog(3) has it, but for the waiting,
/// which that does without an end. Constant-initialised and never destroyed: messages may come at
/// any time. Not thread-safe.
class SyslogSocket {
 public:
  /// Sends one message, with its priority, time and identity, connecting where that is missing.
  /// Room is waited for as long as `patience`. A message that no datagram can hold is cut.
  Delivery send(std::string_view message, std::chrono::milliseconds patience);

  /// Lets go of the connection; the next message makes another.
  void close();

 private:
  Delivery connect();
  std::string framed(std::string_view message) const;

  int fd_ = -1;
  bool stream_ = false;  // some daemons take a stream, in which a zero byte ends each message
};

}  // namespace host_linux
