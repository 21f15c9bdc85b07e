// The control socket between the orchestrator and its CLI executor: where it is, and what goes over
// it.
//
// One connection carries one request and at most one reply; the server closes it.
//
// A request is the text of a command line without a terminator, in one send(2), or the word "stop".
// The server reads it with one recv(2) of at most kRequestLimit bytes; what is longer is cut there.
// Everything that begins with "stop", in any case, is a request to stop. A request that does not
// come within kRequestSeconds is an error of recv(2).
//
// Both ends look at who is at the other one, and have nothing to do with another user's process.
//
// The reply to a command is a CommandStatus in the host's byte order. A request to stop has no
// reply but the end of the stream.
#pragma once

#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/unique_fd.h"

namespace bootforge {

inline constexpr const char* kControlSocketPath = "/var/run/nimbus/bootforgeExecutor.sock";
/// Locked, flock(2), from the look for an executor until the new one listens.
inline constexpr const char* kStartLockPath = "/var/run/nimbus/bootforgeExecutor.lock";
inline constexpr std::size_t kRequestLimit = 1023;
/// How long the server waits for a request.
inline constexpr int kRequestSeconds = 10;
inline constexpr std::string_view kStopRequest = "stop";

/// 0 = the command ran without error, 1 = it could not be parsed or failed in any way.
using CommandStatus = std::int32_t;

/// Whether a zero-terminated request asks the executor to stop.
bool isStopRequest(const char* request);

/// A new stream socket, close-on-exec and with the given further type flags of socket(2). No
/// descriptor and errno set on failure.
UniqueFd makeControlSocket(int flags = 0);

/// connect(2) and bind(2) with the address of the control socket, of the full structure's length.
int connectControlSocket(const UniqueFd& socket);
int bindControlSocket(const UniqueFd& socket);

/// Whether the process at the other end of a connection has our user id, SO_PEERCRED of socket(7).
/// Otherwise errno is set: EPERM for another user.
bool isPeerOurs(const UniqueFd& connection);

}  // namespace bootforge
