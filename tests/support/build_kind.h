// What the build of the tests is.
#pragma once

namespace zeph_test {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

// Replicates of a statistical test, whose limit on |z| holds for any number of them. Sanitizers look at each
// access, not at laws: a tenth will do there.
constexpr int replicates_here(int wanted) { return sanitized ? wanted / 10 : wanted; }

} // namespace zeph_test
