// Rows of the listing and the banner of its pages. Nothing here ends the run.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace zeph {

struct reporting;

// One line on the listing; the listing is flushed, so that a run can be watched. If the
// listing can no longer be written, output continues on standard error.
void say(reporting& report, std::string_view line = "");
// 1X, T1, A60, I11: label right-justified to column 60, then the value.
void say_count(reporting& report, std::string_view label, std::int64_t value);
// 1X, T1, A60: a label of 51 characters in the same columns, without a value.
void say_label(reporting& report, std::string_view label);
// 1X, T1, A60, F18.8
void say_real(reporting& report, std::string_view label, double value);

// The lines in order.
void say_lines(reporting& report, std::initializer_list<std::string_view> lines);

// One line: the name from column 2, the package's title from column 30, the
// stamp from column 77; then a blank line. A page eject "1" is in column 1
// unless the line counter is 0; the counter is 2 afterwards.
void banner(reporting& report);

} // namespace zeph
