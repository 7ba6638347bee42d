// The one door through which the run's arrays take their storage: it counts the
// calls, lets a test make the n-th one fail, and ends the run where one failed.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

struct reporting;

// Asks the door; counts the call. False when a test wants this call to fail.
bool door_opens(reporting& report);

// Report of a failed allocation, on the listing and on the `.log` file, code 16.
// status: 41 when storage ran out.
inline constexpr int allocation_status = 41;
[[noreturn]] void allocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                                     std::int64_t elements, int status, std::string_view message = "");
// Report of a failed deallocation, code 16.
[[noreturn]] void deallocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                                       int status);

} // namespace zeph
