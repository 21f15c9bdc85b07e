// Names for clang's thread-safety analysis; other compilers see nothing.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#pragma once

#if defined(__clang__)
#define BOOTFORGE_ANNOTATION(x) __attribute__((x))
#else
#define BOOTFORGE_ANNOTATION(x)
#endif

#define CAPABILITY(x) BOOTFORGE_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY BOOTFORGE_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) BOOTFORGE_ANNOTATION(guarded_by(x))
#define REQUIRES(...) BOOTFORGE_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) BOOTFORGE_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) BOOTFORGE_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) BOOTFORGE_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS BOOTFORGE_ANNOTATION(no_thread_safety_analysis)
