// Which sanitizer the tests were compiled with. g++ defines macros for it, clang 14 answers
// __has_feature.
#pragma once

namespace bootforge::test {

#if defined(__has_feature)
#define BOOTFORGE_HAS_FEATURE(name) __has_feature(name)
#else
#define BOOTFORGE_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || BOOTFORGE_HAS_FEATURE(address_sanitizer)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif

#if defined(__SANITIZE_THREAD__) || BOOTFORGE_HAS_FEATURE(thread_sanitizer)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif

#undef BOOTFORGE_HAS_FEATURE

}  // namespace bootforge::test
