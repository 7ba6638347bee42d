// The two files that report on a run beside its listing: `<program>.log`, to which
// starts, ends and errors are appended, and `status`, one line that is replaced.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

struct reporting;

// Appends lines to the `.log` file. A log that can't be written is ignored,
// since the listing has the same words.
void append_log(const reporting& report, const std::vector<std::string>& lines);

// The message routine of the `.log` file. code absent: `has_code` false, only
// "<name>: Starting" goes to the log. 0: end of the program. 100000000: fatal
// kind, code 127. 1..99999999 and -9: error with code 16.
void log_message(reporting& report, std::string_view message, std::string_view second, std::string_view third,
                 bool has_code = false, std::int32_t code = 0);

// Rewrites the file `status` with this one line; where that can't be done: write_fault.
void write_status(reporting& report, std::string_view line);

} // namespace zeph
