#include "watch/watched_chain.h"

#include "chains/chain_plan.h"
#include "chains/work_model.h"
#include "input/analysis.h"
#include "input/trait_kinds.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace zeph::watch {
namespace {

using namespace zeph::chains;

// True for the kinds whose share in mix_pi is in their own place.
bool has_own_share(std::string_view word) {
  return std::ranges::any_of(kind_rows, [word](const trait_kind_row& row) {
    return row.word == word && row.pass == value_pass::sequences;
  });
}

// What the proportion of each trait is called, from names.json: by the indicator of a mixed trait, by the
// trait itself for sequences and cured fractions; empty for the others.
std::vector<std::string> mixed_traits(const fs::path& directory) {
  const nlohmann::json all = nlohmann::json::parse(text_of(directory / "names.json"), nullptr, false);
  std::vector<std::string> out;
  if (!all.is_object() || !all.contains("traits") || !all["traits"].is_array()) return out;
  bool any = false;
  for (const auto& trait : all["traits"]) {
    if (!trait.is_object()) return {};
    const std::string kind = trait.value("kind", ""), indicator = trait.value("indicator", "");
    const bool own = has_own_share(kind);
    out.push_back(!indicator.empty() ? indicator : own ? trait.value("name", "") : "");
    any = any || !out.back().empty();
  }
  return any ? out : std::vector<std::string>();
}

// The values of the last whole row of mix_pi, a trait each.
std::vector<double> mixture_in(const fs::path& directory) {
  std::istringstream row(last_line_of(directory / "mix_pi"));
  std::vector<double> values;
  std::int64_t round = 0;
  if (!(row >> round)) return values;
  for (double x = 0; row >> x;) values.push_back(x);
  return values;
}

// Rounds as `status` reports them, kept when it is missing for a moment.
void take_round(watched_chain& c, const status_line& status, std::int64_t shift, double now) {
  if (status.what != status_line::kind::round) return;
  const std::int64_t round = status.round + shift;
  if (round != c.seen_round) {
    c.seen_time =
        c.seen_round < 0 ? now - status.age : now; // seen change: clocks of other machines don't matter
    c.seen_round = round;
  }
  c.look.round = round;
  if (c.models) c.look.model = status.model;
  note_round(c.pace, now, round);
}

// A run whose state is known from `status` alone.
void look_at_directory(watched_chain& c, double now) {
  const status_line status = read_status(c.directory);
  take_round(c, status, 0, now);
  if (status.what == status_line::kind::missing) return; // as it was
  std::error_code ignored;
  const bool stopping = fs::exists(c.directory / stop_name, ignored);
  c.look.now = status.what == status_line::kind::concluded ? life::ended : life::running;
  if (status.what == status_line::kind::concluded) c.look.state = stopping ? "stopped" : "complete";
  if (status.what == status_line::kind::starting) {
    c.look.state = "starting";
    c.seen_time = now - status.age;
  }
  if (status.what != status_line::kind::round) return;
  c.look.of = status.of >= status.round ? status.of : 0; // a continued chain counts its own rounds only
  c.look.state = stopping ? "stopping" : "running";
}

// `begins`: it did not run when it was looked at before.
std::string state_while_running(const watched_chain& c, const study& s, const segment_state& segment,
                                bool begins) {
  std::error_code ignored;
  if (fs::exists(c.directory / stop_name, ignored)) return "stopping";
  if (segment.status.what != status_line::kind::round) return begins ? "starting" : c.look.state;
  return c.look.round <= s.burnin ? "burn-in" : "sampling";
}

void settle(watched_chain& c, const chain_position& p) {
  c.look.now = life::ended;
  c.look.round = p.done;
  switch (p.state.phase) {
  case segment_phase::finished:
    c.look.state = p.done >= c.look.of ? "complete" : "waits";
    break;
  case segment_phase::stopped:
    c.look.state = p.done >= c.look.of ? "complete" : "stopped";
    break;
  case segment_phase::failed:
    c.look.state = "failed";
    break;
  default:
    c.look.state = "killed";
  }
  c.look.trouble = p.state.phase == segment_phase::failed ? p.state.text() : "";
}

void look_at_study(watched_chain& c, double now) {
  study s;
  std::string ignored;
  if (!read_study(c.runs, s, ignored) || c.chain > static_cast<int>(s.chains.size())) return;
  c.look.of = s.chains[from1(c.chain)].last;
  const chain_position p = position_of(c.runs, s, c.chain);
  if (p.segment == 0 || !p.faults.empty()) return;
  c.directory = segment_directory(c.runs, c.chain, p.segment);
  take_round(c, p.state.status, p.state.record.shift, now);
  if (!p.running()) return settle(c, p);
  const bool begins = c.look.now != life::running;
  c.look.now = life::running;
  c.look.trouble.clear();
  c.look.state = state_while_running(c, s, p.state, begins);
}

bool looks_like_a_run(const fs::path& directory) {
  std::error_code ignored;
  return fs::exists(directory / "status", ignored) || fs::exists(directory / "MODINF", ignored);
}

} // namespace

bool chains_in(const fs::path& directory, std::vector<watched_chain>& all, std::string& fault) {
  watched_chain c;
  if (is_study(directory)) {
    study s;
    if (!read_study(directory, s, fault)) return false;
    c.runs = directory;
    c.queued = s.starts.back().where == "slurm";
    c.models = has_several_models(analysis_of(s.analysis));
    c.mixed = mixed_traits((directory / s.work).lexically_normal());
    for (const chain_record& chain : s.chains) {
      c.chain = chain.number;
      c.name = fmt::format("chain {}", chain.number);
      all.push_back(c);
    }
    return true;
  }
  if (!looks_like_a_run(directory)) {
    fault = fmt::format("{} holds neither chains nor a run of ZEPH", directory.string());
    return false;
  }
  work_model m;
  c.directory = directory;
  c.name = directory.string();
  c.models =
      read_work_model(directory, m, fault) && has_several_models(analysis_of(m.directives.analysis_type));
  c.mixed = mixed_traits(directory);
  all.push_back(std::move(c));
  return true;
}

void look_again(watched_chain& c, double now) {
  if (c.chain > 0)
    look_at_study(c, now);
  else
    look_at_directory(c, now);
  if (!c.directory.empty())
    if (std::vector<double> mixture = mixture_in(c.directory); !mixture.empty())
      c.look.mixture = std::move(mixture);
  c.look.age = c.seen_round < 0 && c.seen_time == 0 ? 0 : now - c.seen_time;
}

} // namespace zeph::watch
