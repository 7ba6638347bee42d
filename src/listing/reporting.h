// What a run says and how it ends: the listing, the banner, the failure
// exits, the `.log` file, the `status` file, the check of the input files.
//
// Any floor may include this header. It owns the one way out: `stop_run`
// throws a run_stop that only main and the tests catch; files are closed by
// their owners as the stop passes.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>

namespace zeph {

// Exit codes of the process.
inline constexpr int exit_input_stage = 2;   // stops of the loading stage
inline constexpr int exit_diagnosed = 16;    // an error that the program has diagnosed
inline constexpr int exit_block_factor = 27; // failed factorisation of a diagonal block
inline constexpr int exit_fatal_kind = 127;  // fatal kind of the message routine

// Carries the exit code of a stop to main.
struct run_stop {
  int exit_code;
};

// The one door through which arrays of the run take their storage.
struct allocation_door {
  std::int64_t calls = 0;   // allocations asked for so far
  std::int64_t fail_at = 0; // the call with this number fails (tests); 0: none
};

struct reporting {
  explicit reporting(std::ostream& listing_stream, std::string work_directory = "");

  std::ostream* listing;                   // standard output of the run
  std::string directory;                   // "" or the work directory with a closing '/'
  std::string program_name = "ZEPH    ";   // 8 characters, blank padded
  std::array<std::int32_t, 6> run_stamp{}; // creation stamp of the model: d, m, y, h, min, s
  std::int32_t nlines = 0;                 // line counter of the listing (pages of 68 to 78 lines)
  std::string status_file;                 // full name of the file `status`, from its first line on
  allocation_door door;
};

// Full name of a file of the work directory.
std::string path_of(const reporting& report, std::string_view file);
bool file_exists(const reporting& report, std::string_view file);

// One line on the listing; the listing is flushed, so that a run can be watched. A
// listing that can't be written any more goes on on standard error.
void say(reporting& report, std::string_view line = "");
// 1X, T1, A60, I11: label right-justified to column 60, then the value.
void say_count(reporting& report, std::string_view label, std::int64_t value);
// 1X, T1, A60: a label of 51 characters in the same columns, without a value.
void say_label(reporting& report, std::string_view label);
// 1X, T1, A60, F18.8
void say_real(reporting& report, std::string_view label, double value);

// One line: the name from column 2, the package's title from column 30, the
// stamp from column 77; then a blank line. A page eject "1" stands in column 1
// unless the line counter is 0; the counter is 2 afterwards.
void banner(reporting& report);

// The door of every stop. Flushes the listing, then throws run_stop.
[[noreturn]] void stop_run(reporting& report, int exit_code);
// A blank line when asked for, "ZEPH terminates.", stop with code 16.
[[noreturn]] void zeph_terminates(reporting& report, bool blank_line = true);

// One form for input faults: a blank line,
// "ERROR - Illegal input in <file>: <item>(<indices>) = <value>, legal: <rule>",
// a blank line, "ZEPH terminates.", code 16. Without indices no parentheses stand.
[[noreturn]] void illegal_input(reporting& report, std::string_view file, std::string_view item,
                                std::initializer_list<std::int64_t> indices, std::string_view value,
                                std::string_view rule);
// The same form for a result file that can't be opened or written: item "write".
[[noreturn]] void write_fault(reporting& report, std::string_view file, std::string_view what);
// The same form for an input file that the system can't read to its end: item "read".
[[noreturn]] void read_fault(reporting& report, std::string_view file);
// "ERROR - Computation impossible in <routine>: <text>" in the same frame.
[[noreturn]] void computation_impossible(reporting& report, std::string_view routine, std::string_view text);

// Fatal exit of the input stage. With flag not 0 the text file QVA_LOG, when it
// exists, is copied to the listing under the banner first (98 columns a line).
[[noreturn]] void QVA_LOG(reporting& report, std::int32_t flag = 0);

// Report of a failed allocation, on the listing and on the `.log` file, code 16.
// status: 41 for storage that could not be had.
inline constexpr int allocation_status = 41;
[[noreturn]] void allocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                                     std::int64_t elements, int status, std::string_view message = "");
// Report of a failed deallocation, code 16.
[[noreturn]] void deallocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                                       int status);

// The message routine of the `.log` file. code absent: `has_code` false, only
// "<name>: Starting" goes to the log. 0: end of the program. 100000000: fatal
// kind, code 127. 1..99999999 and -9: error with code 16.
void log_message(reporting& report, std::string_view message, std::string_view second, std::string_view third,
                 bool has_code = false, std::int32_t code = 0);

// Writes an integer left-justified into a text of at most `length` characters;
// a longer one is reported with value and length and stops with code 16.
std::string integer_to_text(reporting& report, std::int64_t value, int length);

// The four input files RCDATA_I, RCDATA_R, MODINF, CODE_TABLE: each missing one
// gets a line on the listing. Returns 0 only when all exist, else 1.
int check_input_files(reporting& report);

// Rewrites the file `status` with this one line.
void write_status(reporting& report, std::string_view line);

} // namespace zeph
