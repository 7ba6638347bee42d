#include "chains/chain_lines.h"
#include "shared/indexing.h"

#include <fmt/format.h>

namespace zeph::chains {

namespace {

// Where the chain continues.
std::string saved_text(const chain_position& p) {
  if (!p.state.saved.known) return {};
  return fmt::format(", saved after round {}", p.state.saved.round + p.state.record.shift);
}

std::string state_word(const chain_position& p, std::int64_t last) {
  const process_record& process = p.state.process;
  switch (p.state.phase) {
  case segment_phase::running:
    return process.job.empty() ? fmt::format("running (process {})", process.pid)
                               : fmt::format("running (job {})", process.job);
  case segment_phase::finished:
    return p.done >= last ? "complete" : "has rounds left";
  case segment_phase::stopped:
    return p.done >= last ? "complete" : "stopped";
  case segment_phase::killed:
    return "killed" + saved_text(p);
  case segment_phase::failed:
    return p.state.text() + saved_text(p);
  default:
    return p.state.text();
  }
}

} // namespace

std::string progress_line(const study& s, int chain, std::int64_t round, double pace) {
  const std::int64_t last = s.chains[from1(chain)].last;
  std::string line = fmt::format("chain {}  round {} of {}", chain, round, last);
  if (round < s.first_sampled() - 1) line += " (burn-in)";
  if (pace <= 0) return line;
  line += "  " + pace_text(pace);
  if (last > round) line += "  " + time_text(static_cast<double>(last - round) / pace) + " left";
  return line;
}

std::int64_t samples_of(const fs::path& runs, int chain) {
  std::int64_t n = 0;
  const int segments = last_segment(runs, chain);
  for (int segment = 1; segment <= segments; ++segment) {
    segment_record r;
    std::string ignored;
    const fs::path directory = segment_directory(runs, chain, segment);
    if (read_segment(directory, r, ignored) && r.counts) n += sample_rounds_in(directory);
  }
  return n;
}

std::string standing_line(const fs::path& runs, const study& s, int chain, const chain_position& p) {
  const chain_record& c = s.chains[from1(chain)];
  const std::string seeds = fmt::format("seeds {} {}", c.seeds.A, c.seeds.B);
  if (p.segment == 0)
    return p.faults.empty() ? fmt::format("chain {}  waits  {}", chain, seeds) : p.faults.front();
  const std::string rounds = fmt::format("round {} of {}", p.done, c.last);
  const std::int64_t n = samples_of(runs, chain);
  return fmt::format("chain {}  seg {}  {}  {}  {} sample{}  {}", chain, p.segment, state_word(p, c.last),
                     rounds, n, n == 1 ? "" : "s", seeds);
}

} // namespace zeph::chains
