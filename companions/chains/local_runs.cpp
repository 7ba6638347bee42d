#include "chains/local_runs.h"

#include "chains/chain_lines.h"
#include "chains/new_segment.h"
#include "chains/resumed_segment.h"
#include "chains/signal_wait.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeph::chains {
namespace {

constexpr int look_interval_ms = 200;
constexpr double screen_interval = 1, line_interval = 60; // seconds

struct running_chain {
  int chain = 0;
  pid_t pid = -1;
  segment_record record;
  fs::path directory;
  round_pace pace;
};

struct local_run {
  const fs::path& runs;
  const study& s;
  screen_lines& screen;
  std::vector<int> waiting; // chains, in order
  std::vector<running_chain> running;
  local_outcome outcome;
  bool stopping = false;
  double shown = 0;
};

std::int64_t round_of(running_chain& r) {
  const status_line status = read_status(r.directory);
  if (status.what == status_line::kind::round) note_round(r.pace, steady_seconds(), status.round);
  const std::int64_t before = r.record.resumes.empty() ? r.record.first - 1 : r.record.resumes.back().after;
  const std::int64_t round = r.pace.looks.empty() ? before : r.pace.looks.back().round;
  return round + r.record.shift;
}

void end_chain(local_run& l, int& count, const std::string& line) {
  ++count;
  show_line(l.screen, line);
}

// Starts the next segment of a chain, or continues the last one, or says why not.
void start_segment(local_run& l, int chain) {
  running_chain r;
  r.chain = chain;
  const chain_position p = position_of(l.runs, l.s, chain);
  if (p.segment > 0 && p.state.live()) // another call has been here since the plan was made
    return end_chain(
        l, l.outcome.failed,
        fmt::format("chain {}  failed: {}", chain, fmt::format("segment {} {}", p.segment, p.state.text())));
  const bool again = resumes(p);
  r.record = again ? resumed_segment(l.s, chain, p) : next_segment(l.s, chain, p);
  r.directory = segment_directory(l.runs, chain, r.record.segment);
  std::string fault;
  if (again ? resume_segment(l.runs, l.s, r.record, getpid(), fault)
            : make_segment(l.runs, l.s, r.record, getpid(), fault))
    r.pid = start_program(r.directory, l.s.program, fault);
  if (r.pid < 0) return end_chain(l, l.outcome.failed, fmt::format("chain {}  failed: {}", chain, fault));
  const std::string from =
      again ? fmt::format("continues after round {}", r.record.resumes.back().after + r.record.shift)
            : fmt::format("starts at round {}", r.record.first + r.record.shift);
  if (!l.screen.terminal)
    show_line(l.screen, fmt::format("chain {}  seg {} {}, seeds {} {}", chain, r.record.segment, from,
                                    r.record.seeds.A, r.record.seeds.B));
  l.running.push_back(std::move(r));
}

void fill_jobs(local_run& l, int jobs) {
  std::error_code ignored;
  if (fs::exists(l.runs / stop_name, ignored)) l.stopping = true;
  while (!l.stopping && !l.waiting.empty() && static_cast<int>(l.running.size()) < jobs) {
    const int chain = l.waiting.front();
    l.waiting.erase(l.waiting.begin());
    start_segment(l, chain);
  }
}

std::string kept_text(const local_run& l, int chain) {
  const std::int64_t n = samples_of(l.runs, chain);
  return n == 1 ? "1 sample kept" : fmt::format("{} samples kept", n);
}

// What a segment that has ended means for its chain.
void settle_segment(local_run& l, const running_chain& r) {
  const chain_position p = position_of(l.runs, l.s, r.chain);
  const std::int64_t last = l.s.chains[from1(r.chain)].last;
  const auto line = [&](const std::string& what) { return fmt::format("chain {}  {}", r.chain, what); };
  if (!p.faults.empty()) return end_chain(l, l.outcome.failed, line("failed: " + p.faults.front()));
  const segment_phase phase = p.state.phase;
  if (phase != segment_phase::finished && phase != segment_phase::stopped)
    return end_chain(l, l.outcome.failed,
                     line(fmt::format("seg {} {}; {}", p.segment, p.state.text(), kept_text(l, r.chain))));
  if (is_complete(p, last))
    return end_chain(l, l.outcome.complete,
                     line(fmt::format("complete, round {}, {}", p.done, kept_text(l, r.chain))));
  if (phase == segment_phase::stopped || l.stopping)
    return end_chain(l, l.outcome.stopped,
                     line(fmt::format("stopped in round {} of {}, {}", p.done, last, kept_text(l, r.chain))));
  l.waiting.insert(l.waiting.begin(), r.chain); // the rest of a burn-in is done
}

// Collects the processes that have ended.
void collect_ended(local_run& l) {
  for (std::size_t i = 0; i < l.running.size();) {
    int code = 0;
    if (waitpid(l.running[i].pid, &code, WNOHANG) == 0) {
      ++i;
      continue;
    }
    const running_chain r = std::move(l.running[i]);
    l.running.erase(l.running.begin() + static_cast<std::ptrdiff_t>(i));
    std::error_code ignored;
    const fs::path exit = r.directory / exit_name;
    const int ended = WIFSIGNALED(code) ? 128 + WTERMSIG(code) : WEXITSTATUS(code);
    if (fs::exists(exit, ignored) || replace_file(exit, fmt::format("{}\n", ended)))
      settle_segment(l, r);
    else // the shell around ZEPH was killed too, and the disk is full
      end_chain(l, l.outcome.failed, fmt::format("chain {}  failed: can't write {}", r.chain, exit.string()));
  }
}

void show_progress(local_run& l) {
  const double now = steady_seconds();
  if (now - l.shown < (l.screen.terminal ? screen_interval : line_interval)) return;
  l.shown = now;
  std::vector<std::string> lines;
  for (running_chain& r : l.running) {
    const std::int64_t round = round_of(r);
    lines.push_back(progress_line(l.s, r.chain, round, rounds_per_second(r.pace)));
  }
  if (!l.screen.terminal) {
    for (const std::string& line : lines) show_line(l.screen, line);
    return;
  }
  for (const int chain : l.waiting) lines.push_back(fmt::format("chain {}  waits", chain));
  show_in_place(l.screen, lines);
}

void stop_all(local_run& l) {
  if (l.stopping && l.outcome.interrupted) {
    l.outcome.left = true;
    return;
  }
  l.stopping = l.outcome.interrupted = true;
  for (const running_chain& r : l.running) ask_to_stop(r.directory);
  if (!l.running.empty())
    show_line(l.screen,
              "Stopping: each chain ends at its next sample round. A second interrupt leaves them running.");
}

// Waits a moment, or until a process ends; true when a signal asks to stop.
bool wait_for_signal(const signal_wait& signals) {
  pollfd p{signals.fd, POLLIN, 0};
  if (poll(&p, 1, look_interval_ms) <= 0) return false;
  const int signal = take_signal(signals);
  return signal != 0 && signal != SIGCHLD;
}

} // namespace

bool ask_to_stop(const fs::path& directory) {
  return static_cast<bool>(std::ofstream(directory / stop_name, std::ios::app));
}

local_outcome run_here(const fs::path& runs, const study& s, int jobs, screen_lines& screen) {
  local_run l{runs, s, screen, {}, {}, {}, false, steady_seconds()};
  for (const chain_record& c : s.chains) {
    const chain_position p = position_of(runs, s, c.number);
    if (is_complete(p, c.last))
      ++l.outcome.complete;
    else
      l.waiting.push_back(c.number);
  }
  signal_wait signals = keep_signals(true);
  for (;;) {
    fill_jobs(l, jobs);
    if (l.running.empty()) break;
    if (wait_for_signal(signals)) stop_all(l);
    if (l.outcome.left) break;
    collect_ended(l);
    show_progress(l);
  }
  release_signals(signals);
  show_in_place(screen, {});
  l.outcome.stopped += static_cast<int>(l.waiting.size() + l.running.size());
  return l.outcome;
}

} // namespace zeph::chains
