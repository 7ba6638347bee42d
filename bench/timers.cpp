// Timers of one scan round, of data loading and of relationship reading, on a
// prepared work directory named by ZEPH_BENCH_DIR. Each checks its result, so
// that a fast wrong answer fails.
#include "control/run_driver.h"
#include "gibbs/gibscan.h"
#include "input/data_loading.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <sstream>

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

void scan_round(benchmark::State& state) {
  started_run s;
  if (!s.started) return state.SkipWithError(s.listing.str().c_str());
  zeph::scan_records records = zeph::records_of(s.r);
  for (auto _ : state) {
    ++s.r.frame.iround;
    zeph::GIBSCAN(records, s.r.frame, s.r.files);
  }
  double sum = 0;
  for (const double x : s.r.sampler.sol) sum += x * x;
  if (!std::isfinite(sum) || sum == 0) state.SkipWithError("solutions are not finite");
  state.counters["records"] = s.r.design.nobs;
  state.counters["equations"] = s.r.layout.neq;
}
BENCHMARK(scan_round)->Unit(benchmark::kMillisecond)->MinTime(2.0);

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
