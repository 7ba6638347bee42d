// The only reasons for which a test may be skipped. scripts/run_tests reads the code in brackets and fails at
// a skip with another reason or with none; a package that is not installed is never a reason.
#pragma once

namespace zeph_test {

inline constexpr const char* no_shared = "[no-shared] ../shared is absent";
inline constexpr const char* no_right = "[no-right] no right to mount or to change the user";
inline constexpr const char* sanitizer_build =
    "[sanitizer] the sanitizer owns the allocator and calls of the system";
inline constexpr const char* no_dev_full = "[no-dev-full] there is no /dev/full";

} // namespace zeph_test
