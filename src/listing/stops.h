// The one way out of a run: `stop_run` throws a run_stop that only main and the
// tests catch; files are closed by their owners as the stop passes. The other
// routines print why, in one form each, and end there.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace zeph {

struct reporting;

// Exit codes of the process.
inline constexpr int exit_input_stage = 2;   // stops of the loading stage
inline constexpr int exit_diagnosed = 16;    // an error that the program has diagnosed
inline constexpr int exit_block_factor = 27; // failed factorisation of a diagonal block
inline constexpr int exit_fatal_kind = 127;  // fatal kind of the message routine

// Carries the exit code of a stop to main.
struct run_stop {
  int exit_code;
};

// The door of every stop. Flushes the listing, then throws run_stop.
[[noreturn]] void stop_run(reporting& report, int exit_code);
// A blank line when asked for, "ZEPH terminates.", stop with code 16.
[[noreturn]] void zeph_terminates(reporting& report, bool blank_line = true);

// One form for input faults: a blank line,
// "ERROR - Illegal input in <file>: <item>(<indices>) = <value>, legal: <rule>",
// a blank line, "ZEPH terminates.", code 16. Without indices there are no parentheses.
[[noreturn]] void illegal_input(reporting& report, std::string_view file, std::string_view item,
                                std::initializer_list<std::int64_t> indices, std::string_view value,
                                std::string_view rule);
// The same form for a result file that can't be opened or written: item "write".
// Where the system's number of the fault, errno, is that of a full disk or quota:
// "ERROR - <file>: no space left on the device" in the same frame.
[[noreturn]] void write_fault(reporting& report, std::string_view file, std::string_view what);
// The same form for an input file that the system can't read to its end: item "read".
[[noreturn]] void read_fault(reporting& report, std::string_view file);
// "ERROR - Computation impossible in <routine>: <text>" in the same frame.
[[noreturn]] void computation_impossible(reporting& report, std::string_view routine, std::string_view text);

// Fatal exit of the input stage. With flag not 0 the text file QVA_LOG, when it
// exists, is copied to the listing under the banner first (98 columns a line).
[[noreturn]] void QVA_LOG(reporting& report, std::int32_t flag = 0);

// Writes an integer left-justified into a text of at most `length` characters;
// a longer one is reported with value and length and stops with code 16.
std::string integer_to_text(reporting& report, std::int64_t value, int length);

} // namespace zeph
