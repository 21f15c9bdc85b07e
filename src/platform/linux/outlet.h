// The ways of messages to somebody who may not listen: none holds the program up for ever.
#pragma once

#include <syslog.h>

#include <chrono>
#include <string>
#include <string_view>

namespace host_linux {

enum class Delivery {
  kDone,
  kNoRoom,  // the other side takes nothing: it may do so later
  kNobody,  // there is no other side
};

/// What could not be got rid of, because nobody took it.
struct Loss {
  unsigned long messages = 0;  // not told of yet
  bool patient = true;         // false from a message that was lost to one that gets through
};

/// Delivers a text. `send` takes a priority, a text and how long it may wait.
template <typename Send>
Delivery attempt(Loss& loss, std::chrono::milliseconds patience, int priority,
                 std::string_view text, Send send) {
  const Delivery delivery =
      send(priority, text, loss.patient ? patience : std::chrono::milliseconds::zero());
  if (delivery != Delivery::kNobody) loss.patient = delivery == Delivery::kDone;
  return delivery;
}

/// Tells how many messages were lost, when there are any.
template <typename Send>
Delivery tellLoss(Loss& loss, std::chrono::milliseconds patience, Send send) {
  if (loss.messages == 0) return Delivery::kDone;
  const std::string notice = std::to_string(loss.messages) + " messages were lost";
  const Delivery told = attempt(loss, patience, LOG_WARNING, notice, send);
  if (told == Delivery::kDone) loss.messages = 0;
  return told;
}

/// Delivers a message, and before it, when earlier ones were lost, their number: messages come in
/// the order in which they were made. One that finds no room is counted.
template <typename Send>
void deliver(Loss& loss, std::chrono::milliseconds patience, int priority, std::string_view text,
             Send send) {
  Delivery delivery = tellLoss(loss, patience, send);
  if (delivery == Delivery::kDone) delivery = attempt(loss, patience, priority, text, send);
  if (delivery == Delivery::kNoRoom) ++loss.messages;
}

/// Writes to a terminal. A terminal that takes nothing for `patience`, because it is stopped or
/// nobody reads it, is left: kNoRoom. `*begun` tells then whether a part was written.
Delivery writeToTerminal(int terminal, std::string_view text, std::chrono::milliseconds patience,
                         bool* begun);

/// How long a message to the syslog daemon waits for room.
constexpr std::chrono::milliseconds kSyslogPatience(100);

/// "<30>Mar  5 07:04:09 bootforge[412]: text", in local time, as syslog(3) has it. The facility is
/// daemon where `priority` has none.
std::string syslogMessage(int priority, std::string_view identity, std::string_view text);

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
