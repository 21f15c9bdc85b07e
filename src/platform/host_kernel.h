// System calls of the host's kernel.
#pragma once

#include <sys/types.h>

#include <cstdint>

extern "C" {

/// Call 1221: stores the number of processors that this process may run on. Returns 0, or an error
/// number and leaves the count alone.
int HvkSyscall_ProcessorCount(std::uint32_t* count);

/// The parameter block of call 1025.
struct HvkForkExecParameters {
  std::uint32_t descriptorCount;
  uid_t user;
  gid_t group;
  std::uint8_t flags;  // 0
  pid_t* child;        // where the child's process id goes
};

/// Call 1025: starts a program with a working directory. The child has the directory that
/// `workingDirectory` is open on, `descriptors` as its descriptors 0, 1, ... and no others, the
/// real user and group ids of the block and default signal dispositions. Costs what posix_spawn(3)
/// costs, however large this process is. Returns 0, or another number when nothing was started;
/// `error` then holds the negated error number, and 0 otherwise. Any thread.
int HvkSyscall_ForkExec(const char* path, char* const arguments[], char* const environment[],
                        int workingDirectory, const int descriptors[],
                        const HvkForkExecParameters* parameters, int* error);

}  // extern "C"
