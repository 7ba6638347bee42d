#include "chains/chain_lines.h"

#include <fmt/format.h>

namespace zeph::chains {

std::string progress_line(const study& s, int chain, std::int64_t round, double pace) {
  const std::int64_t last = s.chains[static_cast<std::size_t>(chain - 1)].last;
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
  const chain_record& c = s.chains[static_cast<std::size_t>(chain - 1)];
  const std::string seeds = fmt::format("seeds {} {}", c.seeds.A, c.seeds.B);
  if (p.segment == 0)
    return p.faults.empty() ? fmt::format("chain {}  waits  {}", chain, seeds) : p.faults.front();
  const std::string rounds = fmt::format("round {} of {}", p.done, c.last);
  std::string what;
  switch (p.state.phase) {
  case segment_phase::finished:
    what = p.done >= c.last ? "complete" : "has rounds left";
    break;
  case segment_phase::stopped:
    what = p.done >= c.last ? "complete" : "stopped";
    break;
  default:
    what = p.state.text();
  }
  const std::int64_t n = samples_of(runs, chain);
  std::string line = fmt::format("chain {}  seg {}  {}  {}  {} sample{}  {}", chain, p.segment, what, rounds,
                                 n, n == 1 ? "" : "s", seeds);
  if (p.state.phase == segment_phase::finished && p.done >= s.burnin && n == 0 && s.rounds >= s.interval)
    line += "  (no samples)";
  return line;
}

} // namespace zeph::chains
