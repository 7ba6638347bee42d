// Where a run reports: its listing, its work directory, the counters that the
// units of this floor and the storage door keep. The routines are in
//   listing_rows.h  rows, pages, the banner
//   stops.h         the one way out
//   run_log.h       the `.log` file and the `status` file
//   work_files.h    names and presence of files
// Headers declare `struct reporting`; only who makes one or reads a member includes this.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace zeph {

// The one door through which arrays of the run take their storage (numerics/storage_door.h).
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

// The program's name without its closing blanks.
std::string short_program_name(const reporting& report);

} // namespace zeph
