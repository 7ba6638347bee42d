#include "chains/begin_study.h"

#include "chains/chain_plan.h"
#include "chains/processes.h"

#include <algorithm>
#include <fmt/format.h>
#include <sched.h>

#ifndef ZEPH_VERSION
#define ZEPH_VERSION "0.1.0"
#endif

namespace zeph::chains {
namespace {

void check_directives(const directive_text& d, const std::string& path, std::vector<std::string>& faults) {
  const auto fault = [&](const std::string& text) { faults.push_back(fmt::format("{}: {}", path, text)); };
  if (const std::string line = run_fault(d.analysis_type); !line.empty()) fault(line);
  if (d.seeds.A < 0 || d.seeds.A > largest_a)
    fault(fmt::format("seed A = {}, legal: 0..{}", d.seeds.A, largest_a));
  if (d.seeds.B < 0 || d.seeds.B > largest_b)
    fault(fmt::format("seed B = {}, legal: 0..{}", d.seeds.B, largest_b));
  if (d.nburn < 0) fault(fmt::format("burn-in = {}, legal: 0 or more", d.nburn));
  if (d.nround < 1) fault(fmt::format("rounds = {}, legal: 1 or more", d.nround));
  if (d.isamp < 1) fault(fmt::format("interval = {}, legal: 1 or more", d.isamp));
  const std::int64_t last = std::int64_t{d.nburn} + d.nround;
  if (last > last_round_number)
    fault(fmt::format("{} rounds, legal: burn-in and sampling rounds up to {}", last, last_round_number));
}

void find_program(study& s, std::vector<std::string>& faults) {
  const fs::path program = find_beside(program_name);
  file_print print;
  if (program.empty())
    faults.emplace_back("the program ZEPH is neither beside zeph-chains nor on PATH");
  else if (!print_of_file(program, print))
    faults.push_back(fmt::format("can't read {}", program.string()));
  s.program = program.string();
  s.program_sha256 = print.sha256;
}

void note_leftovers(const fs::path& work, std::vector<std::string>& notes) {
  std::error_code ignored;
  if (fs::exists(work / "oldsol", ignored) || fs::exists(work / "r_parm", ignored))
    notes.push_back(
        fmt::format("oldsol and r_parm of {} are not used: the chains start from scratch", work.string()));
}

// Seeds of every chain; a 0 in the work directory is replaced by a number taken from the hashes of the
// inputs.
void give_seeds(const run_options& o, const work_model& m, study& s, std::vector<std::string>& notes) {
  s.seeds_given = m.directives.seeds;
  std::string hashes;
  for (const input_record& i : s.inputs) hashes += i.sha256;
  const seed_pair pair = without_zeros(s.seeds_given, hashes);
  if (pair != s.seeds_given)
    notes.push_back(fmt::format("the work directory takes its seeds from the clock ({} {}); {} {} are used "
                                "instead, and kept in {}",
                                s.seeds_given.A, s.seeds_given.B, pair.A, pair.B, chains_name));
  for (int k = 1; k <= o.chains; ++k)
    s.chains.push_back({k, seeds_of_chain(pair, k), std::int64_t{s.burnin} + s.rounds});
}

} // namespace

fs::path runs_of(const run_options& o) {
  if (!o.into.empty()) return o.into;
  std::error_code fault;
  const fs::path work = fs::canonical(o.work, fault);
  return (fault ? o.work : work).string() + ".runs";
}

int jobs_of(int asked, std::size_t chains) {
  cpu_set_t set;
  const int processors = sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
  return std::clamp(asked > 0 ? asked : processors, 1, static_cast<int>(chains));
}

start_record start_now(const std::string& command, bool slurm, int jobs, const std::string& options) {
  return {command, time_now(), slurm ? "slurm" : "here", slurm ? 0 : jobs, slurm ? options : "", "", {}};
}

bool plan_study(const run_options& o, study& s, std::vector<std::string>& notes,
                std::vector<std::string>& faults) {
  s = {};
  work_model m;
  std::string fault;
  if (!read_work_model(o.work, m, fault)) {
    faults.push_back(fault);
    return false;
  }
  check_directives(m.directives, (o.work / m.directive_name).string(), faults);
  find_program(s, faults);
  if (!faults.empty()) return false;

  std::vector<std::string> names = input_names(o.work, m);
  names.push_back(m.directive_name);
  std::ranges::sort(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  if (!print_inputs(o.work, names, s.inputs, fault)) {
    faults.push_back(fault);
    return false;
  }
  s.version = ZEPH_VERSION;
  s.directive = m.directive_name;
  s.analysis = m.directives.analysis_type;
  s.burnin = m.directives.nburn;
  s.rounds = m.directives.nround;
  s.interval = m.directives.isamp;
  note_leftovers(o.work, notes);
  give_seeds(o, m, s, notes);
  return true;
}

} // namespace zeph::chains
