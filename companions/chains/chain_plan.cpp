#include "chains/chain_plan.h"

#include "chains/state_files.h"
#include "input/analysis.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::chains {
namespace {

std::string of_chain(int chain, int segment) { return fmt::format("chain {}, segment {}", chain, segment); }

} // namespace

std::string run_fault(std::int32_t number) {
  if (samples_solutions(analysis_of(number))) return {};
  return fmt::format("analysis type {} is the solver: it gives the same solutions every time, run ZEPH once",
                     number);
}

std::string continue_fault(const study& s, const work_model& m) {
  if (m.exact)
    return "a chain with the word exact in sampler can't be continued from the files of its segments";
  if (m.draws_thresholds()) return "a chain with an ordered trait can't be continued";
  if (!samples_matrices(analysis_of(s.analysis)))
    return fmt::format("a chain of analysis type {} saves no state and can't be continued", s.analysis);
  if (has_several_models(analysis_of(s.analysis)))
    return fmt::format("a chain of analysis type {} does not save its model and can't be continued",
                       s.analysis);
  return {};
}

bool resumes(const chain_position& p) {
  if (p.segment == 0 || !p.state.saved.there || p.state.live()) return false;
  return p.state.record.counts || p.state.phase != segment_phase::finished;
}

bool is_complete(const chain_position& p, std::int64_t last) {
  if (p.segment == 0 || p.done < last) return false;
  if (p.state.phase == segment_phase::finished) return true;
  return p.state.phase == segment_phase::stopped && !p.state.saved.there; // of its last round
}

chain_position position_of(const fs::path& runs, const study&, int chain) {
  chain_position p;
  p.segment = last_segment(runs, chain);
  for (; p.segment > 0; --p.segment) {
    std::string fault;
    if (!look_at_segment(segment_directory(runs, chain, p.segment), p.state, fault)) {
      p.faults.push_back(fmt::format("{}: {}", of_chain(chain, p.segment), fault));
      return p;
    }
    if (p.state.phase != segment_phase::not_begun) break;
  }
  if (p.segment > 0) p.done = p.state.round + p.state.record.shift;
  return p;
}

void check_continuation(const fs::path& runs, const study& s, const work_model& m, int chain,
                        chain_position& p) {
  if (p.segment == 0 || !p.faults.empty()) return;
  const std::string name = of_chain(chain, p.segment);
  const bool ended_well = p.state.phase == segment_phase::finished || p.state.phase == segment_phase::stopped;
  if (!ended_well && !resumes(p)) {
    const bool lost = m.saves_state && p.state.phase == segment_phase::killed;
    p.faults.push_back(
        fmt::format("{} {}{}", name, p.state.text(), lost ? ", before it saved its first state" : ""));
    return;
  }
  const chain_record& c = s.chains[from1(chain)];
  if (p.state.record.seeds != c.seeds)
    p.faults.push_back(fmt::format("{} has the seeds {} {}, {} has {} {}", name, p.state.record.seeds.A,
                                   p.state.record.seeds.B, chains_name, c.seeds.A, c.seeds.B));
  if (resumes(p) || p.done >= c.last) return;
  for (const std::string& line : state_faults(segment_directory(runs, chain, p.segment), m, c.seeds))
    p.faults.push_back(fmt::format("{}: {}", name, line));
}

segment_record next_segment(const study& s, int chain, const chain_position& p) {
  const chain_record& c = s.chains[from1(chain)];
  segment_record r;
  r.chain = chain;
  r.segment = p.segment + 1;
  r.seeds = c.seeds;
  r.interval = s.interval;
  if (p.segment == 0) {
    r.burnin = s.burnin;
    r.rounds = static_cast<std::int32_t>(c.last - s.burnin);
    return r;
  }
  // a stop saves the number of the round before: the next segment uses its own number again
  r.first = p.state.phase == segment_phase::stopped ? p.state.round : p.state.round + 1;
  r.shift = p.done + 1 - r.first;
  r.counts = p.done >= s.burnin;
  r.rounds = static_cast<std::int32_t>((r.counts ? c.last : std::int64_t{s.burnin}) - p.done);
  return r;
}

segment_record resumed_segment(const study& s, int chain, const chain_position& p) {
  segment_record r = p.state.record;
  const std::int64_t last = r.counts ? s.chains[from1(chain)].last : std::int64_t{s.burnin};
  r.rounds = static_cast<std::int32_t>(last - r.shift - (r.first - 1) - r.burnin);
  r.resumes.push_back({time_now(), std::max(p.state.saved.round, r.first - 1), r.rounds});
  return r;
}

} // namespace zeph::chains
