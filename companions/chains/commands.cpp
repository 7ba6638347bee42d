#include "chains/commands.h"

#include "chains/begin_study.h"
#include "chains/chain_lines.h"
#include "chains/local_runs.h"
#include "chains/new_segment.h"
#include "chains/resumed_segment.h"
#include "chains/slurm_batch.h"
#include "input/analysis.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::chains {
namespace {

int refuse(const std::vector<std::string>& faults, const std::string& closing) {
  for (const std::string& line : faults) fmt::print(stderr, "zeph-chains: {}\n", line);
  if (!closing.empty()) fmt::print(stderr, "{}\n", closing);
  return exit_fault;
}

int refuse(const std::string& fault) { return refuse(std::vector<std::string>{fault}, ""); }

std::string of_chains(int n) { return fmt::format("{} chain{}", n, n == 1 ? "" : "s"); }

// ---- start of processes or jobs ----

int tell_outcome(const fs::path& runs, const local_outcome& o) {
  if (o.left) {
    fmt::print("The chains end by themselves at their next sample round: zeph-chains status {}\n",
               runs.string());
    return exit_stopped;
  }
  if (o.failed > 0) {
    fmt::print(stderr, "zeph-chains: {} failed; the output of each is in its directory\n",
               of_chains(o.failed));
    return exit_fault;
  }
  if (o.stopped > 0) {
    fmt::print("{} stopped before the last round. To continue: zeph-chains continue {}\n",
               of_chains(o.stopped), runs.string());
    return exit_stopped;
  }
  fmt::print("{} complete. Next: zeph-report {}\n", of_chains(o.complete), runs.string());
  return exit_done;
}

int start_here(const fs::path& runs, const study& s, int jobs) {
  screen_lines screen = screen_on(stdout);
  return tell_outcome(runs, run_here(runs, s, jobs, screen));
}

// The plan is written before the jobs can begin, and once more with their numbers.
int start_slurm(const fs::path& runs, study& s, const std::string& options, int segments) {
  std::string fault;
  const bool requeue = sampler_asks_for(work_of(runs, s), "state");
  const bool submitted = submit_array(runs, s, options, segments, requeue, s.starts.back().job_ids, fault);
  std::string write_fault;
  if (!write_study(runs, s, write_fault)) return refuse(write_fault);
  for (const std::string& id : s.starts.back().job_ids)
    fmt::print("Submitted job {}, an array of {}\n", id, of_chains(static_cast<int>(s.chains.size())));
  if (!submitted) return refuse(fault);
  fmt::print("To see them: zeph-watch {}\n", runs.string());
  return exit_done;
}

int start(const fs::path& runs, study& s, const std::string& options, int segments) {
  const start_record& how = s.starts.back();
  std::string fault;
  if (!write_study(runs, s, fault)) return refuse(fault);
  return how.where == "slurm" ? start_slurm(runs, s, options, segments) : start_here(runs, s, how.jobs);
}

// ---- continuation ----

void check_queue(const study& s, std::vector<std::string>& faults) {
  std::vector<std::string> ids, held;
  for (const start_record& t : s.starts) ids.insert(ids.end(), t.job_ids.begin(), t.job_ids.end());
  if (ids.empty() || !jobs_in_queue(ids, held)) return;
  for (const std::string& id : held) faults.push_back(fmt::format("job {} is still in Slurm's queue", id));
}

// Looks at every chain; a line for each thing that does not fit.
std::vector<chain_position> check_chains(const fs::path& runs, const study& s, const work_model& m,
                                         std::int64_t more_rounds, std::vector<std::string>& faults) {
  std::vector<chain_position> positions;
  bool any_begun = false, any_left = false;
  for (const chain_record& c : s.chains) {
    chain_position p = position_of(runs, s, c.number);
    settle_by_queue(p.state);
    study wanted = s; // with the rounds that are asked for
    if (more_rounds > 0) wanted.chains[from1(c.number)].last = last_round_number;
    check_continuation(runs, wanted, m, c.number, p);
    const bool left = !is_complete(p, wanted.chains[from1(c.number)].last);
    any_left = any_left || left;
    any_begun = any_begun || (left && p.segment > 0 && !resumes(p));
    faults.insert(faults.end(), p.faults.begin(), p.faults.end());
    positions.push_back(std::move(p));
  }
  if (any_begun)
    if (std::string line = continue_fault(s, m); !line.empty())
      faults.insert(faults.begin(), std::move(line));
  if (!any_left) faults.emplace_back("all chains are complete; --rounds N asks for more");
  return positions;
}

// Sets the number of sampling rounds that each chain runs beyond those it has.
void ask_for_more(study& s, const std::vector<chain_position>& positions, std::int64_t rounds,
                  std::vector<std::string>& faults) {
  for (chain_record& c : s.chains) {
    const chain_position& p = positions[from1(c.number)];
    const bool saved = resumes(p) && p.state.saved.known;
    const std::int64_t there = saved ? p.state.saved.round + p.state.record.shift : p.done;
    c.last = std::max<std::int64_t>(there, s.burnin) + rounds;
    if (c.last > last_round_number)
      faults.push_back(
          fmt::format("chain {}: round {}, legal: up to {}", c.number, c.last, last_round_number));
  }
}

void remove_stops(const fs::path& runs, const std::vector<chain_position>& positions) {
  std::error_code ignored;
  bool removed = fs::remove(runs / stop_name, ignored);
  for (std::size_t k = 0; k < positions.size(); ++k)
    if (positions[k].segment > 0)
      removed |= fs::remove(
          segment_directory(runs, static_cast<int>(k) + 1, positions[k].segment) / stop_name, ignored);
  if (removed) fmt::print("STOP of the last run is removed\n");
}

std::string way_on(const std::vector<chain_position>& positions) {
  const bool lost = std::ranges::any_of(positions, [](const chain_position& p) {
    return p.segment > 0 && !p.faults.empty() && p.state.phase != segment_phase::running;
  });
  std::string text = "Nothing was started.";
  if (lost)
    text += " A segment that did not end well keeps its samples, but no chain continues from it: move its "
            "directory away, and its chain continues from the segment before it, or starts from scratch.";
  return text;
}

void set_start(const continue_options& o, study& s) {
  const start_record& before = s.starts.back();
  const bool slurm = o.slurm || (!o.here && before.where == "slurm");
  const std::string options = o.slurm ? o.sbatch : before.options;
  const std::string hash_before = before.program_sha256;
  s.starts.push_back(start_now("continue", slurm, jobs_of(o.jobs, s.chains.size()), options));
  file_print print;
  print_of_file(s.program, print);
  s.starts.back().program_sha256 = print.sha256;
  if (print.sha256 != hash_before) fmt::print("{} is not the one that ran before\n", s.program);
}

// What a chain that continues in a next segment does not take up from the state that was saved.
void note_latent_values(const work_model& m, const std::vector<chain_position>& positions) {
  const bool any =
      std::ranges::any_of(positions, [](const chain_position& p) { return p.segment > 0 && !resumes(p); });
  if (any && m.forgets_values())
    fmt::print("Values of censored and sequence traits are not saved: they are drawn from scratch, given the "
               "saved state\n");
}

// A chain for each model has the rounds of the models before the last one already.
void note_models(const study& s, const std::vector<chain_position>& positions) {
  if (analysis_of(s.analysis) == analysis::models && std::ranges::any_of(positions, resumes))
    fmt::print(
        "Models whose chains have ended keep their rounds: those asked for are of the model in force and "
        "of those after it\n");
}

// A task that Slurm has put back into the queue before its segment had saved a state: it begins again. With
// the same seeds it makes what it made before.
bool begins_again(const work_model& m, const chain_position& p) {
  return m.saves_state && p.segment > 0 && p.faults.empty() && !p.state.saved.there &&
         p.state.phase == segment_phase::killed && !slurm_job().empty() && p.state.process.job == slurm_job();
}

} // namespace

int run_chains(const run_options& o) {
  const fs::path runs = runs_of(o);
  std::error_code none;
  if (is_study(runs))
    return refuse(
        fmt::format("{} already holds the results of chains; to continue them: zeph-chains continue {}",
                    runs.string(), runs.string()));
  if (fs::exists(runs, none) && (!fs::is_directory(runs, none) || !fs::is_empty(runs, none)))
    return refuse(fmt::format("{} exists and is not an empty directory", runs.string()));
  study s;
  std::vector<std::string> notes, faults;
  std::vector<std::string> words;
  std::string fault;
  if (o.slurm && !split_options(o.sbatch, words, fault)) faults.push_back(fault);
  if (!plan_study(o, s, notes, faults)) return refuse(faults, "Nothing was started.");
  if (!faults.empty()) return refuse(faults, "Nothing was started.");
  fs::create_directories(runs, none);
  if (!fs::is_directory(runs, none)) return refuse(fmt::format("can't make the directory {}", runs.string()));
  s.work = fs::relative(fs::canonical(o.work), fs::canonical(runs)).string();
  s.starts.push_back(start_now("run", o.slurm, jobs_of(o.jobs, s.chains.size()), o.sbatch));
  s.starts.back().program_sha256 = s.program_sha256;
  for (const std::string& note : notes) fmt::print("{}\n", note);
  fmt::print("{} of {} in {}\n", of_chains(o.chains), o.work.string(), runs.string());
  std::fflush(stdout);
  return start(runs, s, o.sbatch, o.segments);
}

int continue_chains(const continue_options& o) {
  study s;
  std::string fault;
  if (!read_study(o.runs, s, fault)) return refuse(fault);
  std::vector<std::string> faults = changed_inputs(work_of(o.runs, s), s, false);
  work_model m;
  if (faults.empty() && !read_work_model(work_of(o.runs, s), m, fault)) faults.push_back(fault);
  if (!faults.empty())
    return refuse(faults, "Nothing was started. Put back what the chains began with, or begin new ones: "
                          "zeph-chains run WORK --into NEW");
  std::error_code none;
  if (!fs::exists(s.program, none)) faults.push_back(fmt::format("{} is gone", s.program));
  std::vector<std::string> words;
  if (o.slurm && !split_options(o.sbatch, words, fault)) faults.push_back(fault);
  check_queue(s, faults);
  const std::vector<chain_position> positions = check_chains(o.runs, s, m, o.rounds, faults);
  if (faults.empty() && o.rounds > 0) ask_for_more(s, positions, o.rounds, faults);
  if (!faults.empty()) return refuse(faults, way_on(positions));
  remove_stops(o.runs, positions);
  set_start(o, s);
  note_latent_values(m, positions);
  if (o.rounds > 0) note_models(s, positions);
  std::fflush(stdout);
  const std::string options = s.starts.back().options;
  return start(o.runs, s, options, o.segments);
}

int tell_status(const fs::path& runs) {
  study s;
  std::string fault;
  if (!read_study(runs, s, fault)) return refuse(fault);
  bool complete = true;
  for (const chain_record& c : s.chains) {
    chain_position p = position_of(runs, s, c.number);
    settle_by_queue(p.state);
    complete = complete && is_complete(p, c.last);
    fmt::print("{}\n", standing_line(runs, s, c.number, p));
  }
  std::error_code none;
  if (fs::exists(runs / stop_name, none))
    fmt::print("A stop was asked for; `zeph-chains continue {}` takes it back\n", runs.string());
  return complete ? exit_done : exit_stopped;
}

int stop_chains(const fs::path& runs) {
  study s;
  std::string fault;
  if (!read_study(runs, s, fault)) return refuse(fault);
  if (!ask_to_stop(runs)) return refuse(fmt::format("can't write {}", (runs / stop_name).string()));
  int asked = 0;
  for (const chain_record& c : s.chains) {
    const chain_position p = position_of(runs, s, c.number);
    if (!p.running()) continue;
    if (!ask_to_stop(segment_directory(runs, c.number, p.segment)))
      return refuse(
          fmt::format("can't write {}", (segment_directory(runs, c.number, p.segment) / stop_name).string()));
    ++asked;
  }
  std::vector<std::string> ids;
  for (const start_record& t : s.starts) ids.insert(ids.end(), t.job_ids.begin(), t.job_ids.end());
  cancel_waiting(ids);
  if (asked == 0)
    fmt::print("no chain of {} is running; none will start\n", runs.string());
  else
    fmt::print("asked {} to stop; each ends at its next sample round\n", of_chains(asked));
  return exit_done;
}

int advance_chain(const fs::path& runs, int chain, int process) {
  study s;
  std::string fault;
  if (!read_study(runs, s, fault)) return refuse(fault);
  if (chain < 1 || chain > static_cast<int>(s.chains.size()))
    return refuse(fmt::format("{} has no chain {}", runs.string(), chain));
  std::error_code none;
  if (fs::exists(runs / stop_name, none)) return exit_done;
  work_model m;
  std::vector<std::string> faults = changed_inputs(work_of(runs, s), s, true);
  if (faults.empty() && !read_work_model(work_of(runs, s), m, fault)) faults.push_back(fault);
  if (!faults.empty()) return refuse(faults, "");
  chain_position p = position_of(runs, s, chain);
  settle_by_queue(p.state);
  const bool requeued = begins_again(m, p);
  if (!requeued) check_continuation(runs, s, m, chain, p);
  if (!p.faults.empty()) return refuse(p.faults, "");
  if (is_complete(p, s.chains[from1(chain)].last)) return exit_done;
  const bool again = requeued || resumes(p);
  if (const std::string line = p.segment > 0 && !again ? continue_fault(s, m) : ""; !line.empty())
    return refuse(line);
  const segment_record r = again ? resumed_segment(s, chain, p) : next_segment(s, chain, p);
  if (!(again ? resume_segment(runs, s, r, process, fault) : make_segment(runs, s, r, process, fault)))
    return refuse(fault);
  fmt::print("{}\n", fs::absolute(segment_directory(runs, chain, r.segment)).lexically_normal().string());
  return exit_done;
}

} // namespace zeph::chains
