#include "chains/segment_state.h"

#include "input/analysis.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <fstream>
#include <sstream>

namespace zeph::chains {
namespace {

constexpr int first_signal_code = 128; // a shell reports a signal s as exit code 128 + s

double age_of(const fs::path& path) {
  std::error_code fault;
  const fs::file_time_type written = fs::last_write_time(path, fault);
  if (fault) return 0;
  const std::chrono::duration<double> age = fs::file_time_type::clock::now() - written;
  return std::max(0.0, age.count()); // clocks of a cluster may differ
}

bool read_exit(const fs::path& directory, int& code) {
  std::ifstream in(directory / exit_name);
  return static_cast<bool>(in >> code);
}

// The first number of the last whole row of `py`; 0 without one.
std::int64_t last_row_of_py(const fs::path& directory) {
  std::istringstream row(last_line_of(directory / "py"));
  std::int64_t round = 0;
  row >> round;
  return round;
}

// STOP has ended the last run in the directory; a run that continues a chain begins with a line that says so.
bool last_run_was_stopped(const fs::path& directory) {
  const std::string listing = text_of(directory / listing_name);
  const std::size_t begin = listing.rfind("The chain continues from r_state");
  return listing.find("Stop signal received.", begin == std::string::npos ? 0 : begin) != std::string::npos;
}

// The end by the saved state: a chain for each model is at its end after the last of them.
void settle_by_state(const fs::path& directory, segment_state& s) {
  s.round = s.saved.round;
  const bool stopped = s.round < s.record.last() ||
                       (analysis_of(s.saved.analysis) == analysis::models && last_run_was_stopped(directory));
  s.phase = stopped ? segment_phase::stopped : segment_phase::finished;
}

// The last round of a run that ended with code 0, and whether all rounds were run.
void settle_end(const fs::path& directory, segment_state& s) {
  if (s.saved.known) return settle_by_state(directory, s);
  std::int64_t saved = 0;
  if (saved_round(directory, saved)) {
    s.phase = saved >= s.record.last() ? segment_phase::finished : segment_phase::stopped;
    s.round = s.phase == segment_phase::finished ? saved : saved + 1;
    return;
  }
  // without a saved state (fixed matrices): the rows of py, and the words of the listing
  const bool stopped = last_run_was_stopped(directory);
  s.phase = stopped ? segment_phase::stopped : segment_phase::finished;
  s.round = stopped ? std::max(s.record.first - 1, last_row_of_py(directory)) : s.record.last();
}

segment_phase phase_without_exit(const fs::path& directory, segment_state& s) {
  std::error_code ignored;
  const bool begun = s.saved.there || fs::exists(directory / listing_name, ignored);
  if (!s.has_process) return begun ? segment_phase::unknown : segment_phase::not_begun;
  const process_life life = life_of(s.process);
  if (life == process_life::alive) return segment_phase::running;
  if (life == process_life::elsewhere) return segment_phase::unknown;
  if (const pid_t pid = begun ? process_in(directory, program_name) : 0; pid != 0) {
    s.process = record_of_process(pid, ""); // it has outlived the shell around it
    return segment_phase::running;
  }
  return begun ? segment_phase::killed : segment_phase::not_begun;
}

std::string age_text(double seconds) {
  if (seconds < 120) return fmt::format("{:.0f} s", seconds);
  return seconds < 7200 ? fmt::format("{:.0f} min", seconds / 60) : fmt::format("{:.0f} h", seconds / 3600);
}

} // namespace

status_line read_status(const fs::path& directory) {
  status_line s;
  const fs::path path = directory / "status";
  const std::string text = text_of(path);
  std::istringstream words(text);
  if (text.starts_with("Program ZEPH has concluded")) {
    s.what = status_line::kind::concluded;
  } else if (text.starts_with("Program")) {
    s.what = status_line::kind::starting;
  } else if (text.starts_with("Current round is") && text.ends_with('\n')) {
    std::string word;
    words >> word >> word >> word >> s.round >> word >> word >> s.of >> word >> word;
    for (int d = 0; words >> d;) s.model.push_back(d);
    s.what = status_line::kind::round;
  }
  if (s.what != status_line::kind::missing) s.age = age_of(path);
  return s;
}

std::string last_line_of(const fs::path& path, std::string_view besides) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return {};
  constexpr std::streamoff tail = 8192;
  const std::streamoff size = in.tellg();
  in.seekg(std::max<std::streamoff>(0, size - tail));
  std::string last, line;
  while (std::getline(in, line))
    if (const std::size_t first = line.find_first_not_of(" \r"); first != std::string::npos)
      if (!in.eof() && (besides.empty() || !line.substr(first).starts_with(besides)))
        last = line; // whole lines only
  const std::size_t first = last.find_first_not_of(' ');
  return first == std::string::npos ? std::string() : last.substr(first);
}

std::int64_t sample_rounds_in(const fs::path& directory) {
  const std::string rows = text_of(directory / "py");
  return std::count(rows.begin(), rows.end(), '\n');
}

bool look_at_segment(const fs::path& directory, segment_state& s, std::string& fault) {
  s = {};
  if (!read_segment(directory, s.record, fault)) return false;
  s.saved = find_saved_state(directory);
  s.round = std::max(s.record.first - 1, s.saved.round);
  const bool ended = read_exit(directory, s.exit_code); // before `status`: what is read then is the last
  s.status = read_status(directory);
  s.has_process = read_process(directory, s.process);
  if (s.status.what == status_line::kind::round) s.round = s.status.round;
  if (!ended) {
    s.phase = phase_without_exit(directory, s);
    // it may have ended between the two looks
    if (s.phase == segment_phase::killed && read_exit(directory, s.exit_code))
      return look_at_segment(directory, s, fault);
  } else if (s.exit_code == 0) {
    settle_end(directory, s);
  } else {
    s.phase = s.exit_code > first_signal_code ? segment_phase::killed : segment_phase::failed;
  }
  s.last_words = last_line_of(directory / listing_name, "ZEPH terminates.");
  return true;
}

std::string segment_state::text() const {
  switch (phase) {
  case segment_phase::not_begun:
    return "was made, but never began";
  case segment_phase::running:
    return process.job.empty() ? fmt::format("is running (process {})", process.pid)
                               : fmt::format("is running (job {} on {})", process.job, process.host);
  case segment_phase::unknown:
    return has_process ? fmt::format("runs on {} as far as is known (last sign of life {} ago)", process.host,
                                     age_text(status.age))
                       : fmt::format("may be running (last sign of life {} ago)", age_text(status.age));
  case segment_phase::finished:
    return fmt::format("is finished, round {}", round);
  case segment_phase::stopped:
    return fmt::format("was stopped in round {} of {}", round, record.last());
  case segment_phase::failed:
    return fmt::format("ended with exit code {}: {}", exit_code, last_words);
  case segment_phase::killed:
    return fmt::format("was killed in round {} of {}", round, record.last());
  }
  return {};
}

} // namespace zeph::chains
