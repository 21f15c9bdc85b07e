// What no executor of commands in a process of its own can do without: a UNIX stream socket with
// one connection for each request, four bytes for an answer, and one program for each command.
//
// Used by the benchmarks as the floor. Plain system calls only.
#pragma once

namespace bootforge::bench {

enum class Request { kNothing, kRunTrue };

/// Forks a process that listens at `path` and serves one connection after another: it answers each
/// request, for kRunTrue after /bin/true has been spawned and waited for. It ends when it is asked
/// to stop, or with this process. False and errno when it cannot be started.
bool startBareExecutor(const char* path, Request request);

/// Asks it to end, without waiting for that.
void stopBareExecutor(const char* path);

/// One request: connect, send, receive the answer, close. False when anything fails.
bool bareExchange(const char* path, const char* request);

}  // namespace bootforge::bench
