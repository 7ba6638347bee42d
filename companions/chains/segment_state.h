// How far a run of ZEPH in a directory has come, read from its files alone.
#pragma once

#include "chains/processes.h"
#include "chains/state_files.h"
#include "chains/study_records.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::chains {

// The one line of `status`.
struct status_line {
  enum class kind { missing, starting, round, concluded } what = kind::missing;
  std::int64_t round = 0, of = 0;
  std::vector<int> model; // dimensions of the factors and of the residual
  double age = 0;         // seconds since it was written, 0 or more
};

status_line read_status(const fs::path& directory);

enum class segment_phase {
  not_begun, // made, but its process ended before ZEPH wrote anything
  running,
  unknown,  // on another host, or without a record of its process: no exit code, and not known to have ended
  finished, // exit code 0, all rounds
  stopped,  // exit code 0, fewer rounds: STOP
  failed,   // another exit code
  killed    // ended without an exit code, or by a signal
};

struct segment_state {
  segment_record record;
  segment_phase phase = segment_phase::not_begun;
  int exit_code = 0;
  std::int64_t round =
      0;             // last round known, as the segment's own files number it; first - 1 when there is none
  saved_place saved; // the state from which it can be continued
  status_line status;
  process_record process;
  bool has_process = false;
  std::string last_words;   // last line of the listing but for blank ones and "ZEPH terminates."
  std::string text() const; // "running", "ended with exit code 16: .."

  bool live() const { return phase == segment_phase::running || phase == segment_phase::unknown; }
};

// False with `fault` when segment.toml can't be read.
bool look_at_segment(const fs::path& directory, segment_state& s, std::string& fault);

// The last line of a text file that is not blank and does not begin with `besides`, and the whole rows of
// `py`, one a sample round.
std::string last_line_of(const fs::path& path, std::string_view besides = "");
std::int64_t sample_rounds_in(const fs::path& directory);

} // namespace zeph::chains
