// Timers of one scan round with either body, of what a round can't do without, of
// the start of a run, of data loading and of relationship reading, on a prepared
// work directory named by ZEPH_BENCH_DIR. Each checks its result, so that a fast
// wrong answer fails.
#include "control/model_chains.h"
#include "control/run_driver.h"
#include "gibbs/scan/gibscan.h"
#include "input/data_loading.h"
#include "jump/jump_setup.h"
#include "listing/stops.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

namespace {

std::string directory() {
  const char* name = std::getenv("ZEPH_BENCH_DIR");
  return name != nullptr ? name : "";
}

struct started_run {
  std::ostringstream listing;
  zeph::run r{listing, directory()};
  bool started = false;
  started_run() {
    try {
      zeph::start_run(r);
      started = true;
    } catch (const zeph::run_stop&) {}
  }
};

void run_rounds(benchmark::State& state, bool plain) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  if (plain) s.r.work.body = zeph::scan_body::plain;
  zeph::scan_records records = zeph::records_of(s.r);
  for (int warm = 0; warm < 2; ++warm) {
    ++s.r.state.iround;
    zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files);
  }
  for (auto _ : state) {
    ++s.r.state.iround;
    zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files);
  }
  double sum = 0;
  for (const double x : s.r.sampler.sol) sum += x * x;
  if (!std::isfinite(sum) || sum == 0) state.SkipWithError("solutions are not finite");
  state.counters["records"] = s.r.design.nobs;
  state.counters["equations"] = s.r.layout.neq;
}
void scan_round(benchmark::State& state) { run_rounds(state, false); }
void scan_round_plain(benchmark::State& state) { run_rounds(state, true); }
BENCHMARK(scan_round)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(scan_round_plain)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The whole state of the chain onto the device, as the word `state` of the file `sampler` asks for it.
void state_saving(benchmark::State& state) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  if (!zeph::samples_solutions(s.r.asked.analysis_type)) return state.SkipWithError("not a chain");
  zeph::scan_records records = zeph::records_of(s.r);
  s.r.state.iround = 1;
  zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files);
  s.r.saved.wanted = true;
  s.r.saved.finished = 1;
  s.r.saved.to = std::make_unique<zeph::state_writer>();
  for (auto _ : state) zeph::save_state(s.r);
  try {
    zeph::state_reader(s.r.report).open(directory() + "/statelast");
  } catch (const zeph::run_stop&) {
    state.SkipWithError("the state can't be read");
  }
  state.counters["bytes"] = static_cast<double>(zeph::size_of_file(directory() + "/statelast"));
}
BENCHMARK(state_saving)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);

// Rounds that propose a move of a factor, from one row each on; every iteration is a round.
void jump_round(benchmark::State& state) {
  started_run s;
  if (!s.started || !moves_between_models(s.r.asked.analysis_type))
    return state.SkipWithError("not a chain that moves");
  zeph::jump_records records = zeph::jump_records_of(s.r);
  zeph::jump_setup(records, s.r.relations, s.r.asked.analysis_type);
  s.r.asked.nround = 1;
  std::int64_t taken = 0, large = 0;
  const auto round = [&] {
    zeph::run_jump_rounds(s.r);
    ++s.r.asked.nburn; // so the next call runs the next round
    taken += s.r.jump.accepted;
    large += s.r.state.ntr.front();
    s.listing.str("");
  };
  for (int warm = 0; warm < 20; ++warm) round();
  taken = large = 0;
  for (auto _ : state) round();
  const auto rounds = static_cast<double>(state.iterations());
  if (!std::isfinite(s.r.jump.log_ratio)) state.SkipWithError("the ratio is not finite");
  state.counters["records"] = s.r.design.nobs;
  state.counters["accepted"] = static_cast<double>(taken) / rounds;
  state.counters["rows"] = static_cast<double>(large) / rounds; // of factor 1, on average
}
BENCHMARK(jump_round)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void start_up(benchmark::State& state) {
  for (auto _ : state) {
    started_run s;
    if (!s.started) return state.SkipWithError(s.listing.str().c_str());
    zeph::scan_records records = zeph::records_of(s.r);
    s.r.state.iround = 1;
    zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files); // builds what the rounds need
  }
}
BENCHMARK(start_up)->Unit(benchmark::kMillisecond);

template <class T> double bytes(const T& array) {
  return static_cast<double>(array.size()) * static_cast<double>(sizeof(*array.data()));
}

// What the rounds must read or write: each coefficient, link and residual once, and
// right-hand sides and solutions of all equations.
double bytes_of_round(const zeph::run& r) {
  const zeph::residual_form& form = r.work.fast;
  double sum = 2 * bytes(form.E) + bytes(r.design.Y_M) + bytes(r.sampler.RHS) + bytes(r.sampler.sol);
  for (const zeph::group_form& g : form.groups) {
    for (const zeph::design_slot& slot : g.slots) sum += bytes(slot.row) + bytes(slot.rec) + bytes(slot.z);
    sum += g.level_class.allocated() ? bytes(g.level_class) : bytes(g.sums);
  }
  for (const zeph::link_form& f : form.links)
    sum += bytes(f.before) + bytes(f.after) + bytes(f.col) + bytes(f.val);
  return sum;
}

double seconds_of(const std::chrono::steady_clock::time_point& from) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

// Bytes read and written by second, 256 MB copied.
double copy_bandwidth() {
  std::vector<double> from(std::size_t{1} << 25, 1.0), to(from.size());
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    const auto start = std::chrono::steady_clock::now();
    std::memcpy(to.data(), from.data(), from.size() * sizeof(double));
    best = std::min(best, seconds_of(start));
    benchmark::DoNotOptimize(to.data());
  }
  return 2.0 * static_cast<double>(from.size() * sizeof(double)) / best;
}

// Seconds of one walk over the links of a level, all levels of all factors.
double walk_over_links(const zeph::run& r, std::int64_t& levels) {
  double seconds = 0, total = 0;
  levels = 0;
  for (const zeph::link_form& f : r.work.fast.links) {
    if (!f.val.allocated() || f.val.size() == 0) continue;
    const auto start = std::chrono::steady_clock::now();
    const std::int32_t* col = f.col.data();
    const double* val = f.val.data();
    for (std::int64_t l = 0; l < f.before.size(); ++l) {
      double sum = 0;
      const std::int32_t n = f.before.data()[l] + f.after.data()[l];
      for (std::int32_t i = 0; i < n; ++i) sum += val[i] * r.sampler.sol.data()[col[i]];
      col += n, val += n;
      total += sum;
    }
    seconds += seconds_of(start);
    levels += f.before.size();
  }
  benchmark::DoNotOptimize(total);
  return levels > 0 ? seconds / static_cast<double>(levels) : 0.0;
}

// A round against the sum of what it must move and draw: bytes by the machine's
// copy bandwidth, and for each equation one normal and one walk over links.
void round_against_its_bound(benchmark::State& state) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  zeph::scan_records records = zeph::records_of(s.r);
  ++s.r.state.iround;
  zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files);
  const double bandwidth = copy_bandwidth();
  std::int64_t levels = 0;
  double walk = 1.0, normal = 1.0;
  zeph::random_sources sources(s.r.report);
  zeph::marsaglia_source& source = sources.marsaglia;
  zeph::RMARIN(source, 1802, 9373);
  for (int i = 0; i < 3; ++i) {
    walk = std::min(walk, walk_over_links(s.r, levels));
    const auto start = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < 1000000; ++k) sum += zeph::ranmar_snorm(source);
    benchmark::DoNotOptimize(sum);
    normal = std::min(normal, seconds_of(start) / 1e6);
  }
  const double moved = bytes_of_round(s.r), equations = s.r.layout.neq;
  const double bound = moved / bandwidth + equations * (normal + walk);
  double rounds = 0, taken = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    ++s.r.state.iround;
    zeph::GIBSCAN(records, s.r.asked, s.r.state, s.r.counts, s.r.files);
    taken += seconds_of(start);
    ++rounds;
  }
  state.counters["MB"] = moved / 1e6;
  state.counters["GB/s"] = bandwidth / 1e9;
  state.counters["ns_normal"] = normal * 1e9;
  state.counters["ns_walk"] = walk * 1e9;
  state.counters["ms_bound"] = bound * 1e3;
  state.counters["ratio"] = taken / rounds / bound;
}
BENCHMARK(round_against_its_bound)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void data_loading(benchmark::State& state) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  for (auto _ : state) {
    zeph::design_store design;
    zeph::relationship_store relations;
    zeph::READTOMEM(s.r.model, s.r.layout, design, relations, s.r.report);
    if (design.nobs != s.r.model.nobs()) state.SkipWithError("records are missing");
  }
}
BENCHMARK(data_loading)->Unit(benchmark::kMillisecond);

void relationship_reading(benchmark::State& state) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  std::int64_t elements = 0;
  for (auto _ : state) {
    zeph::relationship_store relations;
    zeph::read_relationships(s.r.model, relations, s.r.report);
    elements = 0;
    for (const zeph::relationship_rows& rows : relations.CV_STR)
      elements += rows.diag.size() + rows.col.size() / 2;
    if (elements == 0) state.SkipWithError("no elements");
  }
  state.counters["elements"] = static_cast<double>(elements);
}
BENCHMARK(relationship_reading)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
