#include "control/state_file.h"

#include "control/directives.h"
#include "control/state_blocks.h"
#include "control/state_inputs.h"
#include "formats/free_format.h"
#include "formats/whole_file.h"
#include "jump/jump_setup.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <limits>

namespace zeph {
namespace {

constexpr std::int64_t end_bytes = 4096; // of a growing file, by which it is known again

[[noreturn]] void refuse(reporting& report, std::string_view item, std::string_view value,
                         std::string_view rule, std::initializer_list<std::int64_t> indices = {}) {
  illegal_input(report, given_state_file, item, indices, value, rule);
}

// ---- growing files

// SHA-256 of the last bytes before `length`; empty when they can't be read.
std::string sum_of_end(const std::string& path, std::int64_t length) {
  const std::int64_t n = std::min(length, end_bytes);
  char bytes[end_bytes];
  byte_source file;
  if (!file.open(path) || !file.move_to(length - n) || file.read(bytes, n) != n) return {};
  return sha256_of({bytes, static_cast<std::size_t>(n)});
}

// All rows on the device, and what the state says of the files.
std::array<growing_file, growing_files> sync_growing_files(run& r) {
  std::array<growing_file, growing_files> files;
  each_growing_file(r, [&](std::size_t n, auto& writer) {
    const std::string_view name = names_of_growing_files[n];
    if (!writer.is_open()) return;
    if (!writer.sync()) write_fault(r.report, name, "write");
    const std::string path = path_of(r.report, name);
    files[n].length = size_of_file(path);
    files[n].end = sum_of_end(path, files[n].length);
    if (files[n].end.empty()) read_fault(r.report, name);
  });
  return files;
}

// The file still begins with what it was.
void check_growing_file(std::string_view name, const growing_file& file, reporting& report) {
  const std::string item = "length of " + std::string(name), path = path_of(report, name);
  const std::int64_t length = size_of_file(path);
  const std::string rule = "at least " + std::to_string(file.length) + " bytes, as the chain has left it";
  if (length < 0) refuse(report, item, "no file", rule);
  if (length < file.length) refuse(report, item, std::to_string(length), rule);
  if (sum_of_end(path, file.length) != file.end)
    refuse(report, "end of " + std::string(name), "other bytes", "those that the chain has written");
}

// ---- start of a chain that is continued

void refuse_other_states(reporting& report) {
  for (const char* other : {"r_parm", "oldsol"})
    if (file_exists(report, other))
      refuse(report, "file", std::string("beside ") + other, "alone: all of the chain is taken from r_state");
}

void hold_against_inputs(const std::vector<input_print>& of_this_run, state_reader& from, reporting& report) {
  std::vector<input_print> of_the_chain = of_this_run;
  walk_inputs(from, of_the_chain);
  for (std::size_t i = 0; i < of_this_run.size(); ++i)
    if (of_the_chain[i].digits != of_this_run[i].digits)
      refuse(report, "SHA-256 of " + of_this_run[i].name, "another",
             "the same " + of_this_run[i].name + " as the chain had");
}

void check_within(reporting& report, std::string_view item, std::int64_t x, std::int64_t low,
                  std::int64_t high, std::initializer_list<std::int64_t> indices = {}) {
  if (x < low || x > high)
    refuse(report, item, std::to_string(x), std::to_string(low) + ".." + std::to_string(high), indices);
}

void check_position(const model_records& m, const directives& asked, const chain_position& p,
                    reporting& report) {
  const auto analysis_type = static_cast<std::int32_t>(asked.analysis_type);
  if (p.analysis_type != analysis_type)
    refuse(report, "analysis type", std::to_string(p.analysis_type), std::to_string(analysis_type));
  const std::int32_t nburn = p.restart != 0 ? 0 : asked.nburn; // a restart has none
  if (p.nburn != nburn) refuse(report, "burn-in", std::to_string(p.nburn), std::to_string(nburn));
  check_within(report, "P_ROUND", p.P_ROUND, std::max(nburn, 0),
               p.restart != 0 ? std::numeric_limits<std::int32_t>::max() : std::max(nburn, 0));
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) {
    const bool moves = has_several_models(asked.analysis_type) && k <= m.nramat;
    const std::int32_t most = m.RMAT(k).n_rc, least = moves ? std::min(1, most) : most;
    check_within(report, "model", p.ntr[static_cast<std::size_t>(k - 1)], least, most, {k});
  }
  const std::int64_t last = p.P_ROUND + std::max(asked.nround, 0);
  if (p.round < 0 || p.round > last)
    refuse(report, "round", std::to_string(p.round),
           "0.." + std::to_string(last) + ", the last round that the directive file asks for");
}

void say_continuation(const chain_position& p, reporting& report) {
  say(report);
  say(report, free_row().text("The chain continues from r_state after round").i(p.round).str());
  say(report, free_row().text("with the seeds").i(p.seeds[0]).i(p.seeds[1]).str());
}

// ---- the values taken

bool within(std::int32_t x, std::int32_t low, std::int32_t high) { return low <= x && x <= high; }

bool combined_possible(const combined_source& s) {
  if (!within(s.curntg, 1, virtual_generators)) return false;
  const std::int32_t low = s.qrgnsd ? 1 : 0; // without seeds all are 0
  return std::all_of(s.generators.begin(), s.generators.end(), [&](const virtual_generator& g) {
    return within(g.cg1, low, combined_source::m1 - 1) && within(g.cg2, low, combined_source::m2 - 1) &&
           within(g.lg1, low, combined_source::m1 - 1) && within(g.lg2, low, combined_source::m2 - 1);
  });
}

// What is an index, or makes draws that can't be.
void check_values(run& r, const marsaglia_state& now) {
  const std::int32_t groups = r.model.n_groups_residual();
  for (std::int32_t i = 1; i <= r.design.nobs; ++i)
    check_within(r.report, "IRESG_M", r.design.IRESG_M(i), 1, groups, {i});
  if (now.TEST && !ranmar_possible(now))
    refuse(r.report, "Marsaglia source", "no such state", "one that draws can have left");
  if (!combined_possible(r.sources.combined))
    refuse(r.report, "combined source", "no such state", "one that draws can have left");
}

// What follows from the values taken.
void complete_values(run& r, const marsaglia_state& now) {
  ranmar_restore(r.sources.marsaglia, now);
  count_group_records(r.model, r.design);
  if (!has_several_models(r.asked.analysis_type)) return;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) set_structure(r.model, r.layout, r.state.ntr, k, k);
}

chain_position position_of(const run& r) {
  chain_position p;
  p.analysis_type = static_cast<std::int32_t>(r.asked.analysis_type);
  p.sampling =
      r.asked.analysis_type == analysis::models ? r.saved.model_number : r.saved.finished > r.counts.P_ROUND;
  p.round = r.saved.finished;
  p.P_ROUND = r.counts.P_ROUND;
  p.seeds[0] = r.asked.seed_a, p.seeds[1] = r.asked.seed_b;
  p.nburn = r.asked.nburn;
  p.restart = r.asked.restart;
  p.ntr = r.state.ntr;
  return p;
}

// Between two saves; 0: there are none.
std::chrono::nanoseconds pause_of(const run& r) {
  if (r.saved.between.count() > 0) return r.saved.between;
  return std::chrono::minutes(r.asked.sampler.state_minutes);
}

bool save_is_due(const run& r) {
  return saves_between_rounds(r) && std::chrono::steady_clock::now() - r.saved.last_save >= pause_of(r);
}

} // namespace

bool saves_between_rounds(const run& r) { return r.saved.wanted && pause_of(r).count() > 0; }

void find_state(run& r) {
  saved_state& s = r.saved;
  const bool given = file_exists(r.report, given_state_file);
  s.wanted = r.asked.sampler.state;
  if (!s.wanted) {
    if (!given) return;
    say(r.report);
    say(r.report, "r_state is ignored: no word state in the file sampler");
    return;
  }
  s.to = std::make_unique<state_writer>();
  s.last_save = std::chrono::steady_clock::now();
  const std::string directives = directive_path(r.report, directive_file_name(r.model, r.report));
  if (given) refuse_other_states(r.report);
  s.inputs = prints_of_inputs(r.model, r.report, directives);
  if (!given) return;

  s.from = std::make_unique<state_reader>(r.report);
  s.from->open(path_of(r.report, given_state_file));
  hold_against_inputs(s.inputs, *s.from, r.report);
  s.position.ntr.assign(static_cast<std::size_t>(r.model.nramat) + 1, 0);
  walk_position(*s.from, s.position);
  check_position(r.model, r.asked, s.position, r.report);
  r.asked.seed_a = s.position.seeds[0];
  r.asked.seed_b = s.position.seeds[1];
  r.asked.nburn = s.position.nburn;
  say_continuation(s.position, r.report);
}

void continue_files(run& r) {
  std::array<growing_file, growing_files> files;
  walk_growing_files(*r.saved.from, files);
  for (std::size_t n = 0; n < growing_files; ++n)
    if (files[n].length >= 0) check_growing_file(names_of_growing_files[n], files[n], r.report);
  describe_files(r.model, r.asked, r.files);
  each_growing_file(r, [&](std::size_t n, auto& writer) {
    if (files[n].length < 0) return; // its owner begins it again
    const std::string_view name = names_of_growing_files[n];
    const std::string path = path_of(r.report, name);
    if (!cut_file(path, files[n].length) || !writer.open_append(path)) write_fault(r.report, name, "open");
  });
  for (bool& made : r.mixtures.membership_made) made = true;
}

void take_state(run& r) {
  saved_state& s = r.saved;
  if (!continues(s)) return;
  r.state.ntr = s.position.ntr;
  r.counts.P_ROUND = s.position.P_ROUND;
  r.asked.restart = s.position.restart != 0;
  s.finished = s.position.round;
  if (r.asked.analysis_type == analysis::models) s.model_number = s.position.sampling;
  marsaglia_state now;
  walk_chain(*s.from, r, now);
  check_values(r, now);
  walk_residuals(*s.from, r, s.finished + 1);
  s.from->finish();
  s.from.reset();
  s.continued = true;
  complete_values(r, now);
}

bool round_ends_the_run(run& r, bool looked_for) {
  r.saved.finished = r.state.iround;
  if ((looked_for || r.saved.wanted) && file_exists(r.report, "STOP")) return true;
  if (save_is_due(r)) save_state(r);
  return false;
}

void save_state(run& r) {
  saved_state& s = r.saved;
  if (!s.wanted) return;
  std::array<growing_file, growing_files> files = sync_growing_files(r);
  chain_position position = position_of(r);
  marsaglia_state now = ranmar_state(r.sources.marsaglia);
  const std::string path = path_of(r.report, saved_state_file);
  whole_file whole(path);
  if (!s.to->open(whole.path())) write_fault(r.report, saved_state_file, "open");
  walk_inputs(*s.to, s.inputs);
  walk_position(*s.to, position);
  walk_growing_files(*s.to, files);
  walk_chain(*s.to, r, now);
  walk_residuals(*s.to, r, s.finished + 1);
  if (!s.to->finish() || !whole.publish() || !sync_folder_of(path))
    write_fault(r.report, saved_state_file, "write");
  s.last_save = std::chrono::steady_clock::now();
}

} // namespace zeph
