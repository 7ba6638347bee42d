// Timers of the draws, one value (or one vector or matrix of order 3) an
// iteration. Each checks the mean of what it drew against the mean of its law,
// within eight standard errors, so that a fast wrong draw fails.
#include "numerics/gamma_draws.h"
#include "numerics/matrix_draws.h"
#include "numerics/normal_draws.h"
#include "numerics/random_sources.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <iostream>
#include <vector>

namespace {

struct seeded {
  zeph::reporting report{std::cout};
  zeph::random_sources sources{report};
  zeph::matrix_draw_work work;
  seeded() {
    zeph::RMARIN(sources.marsaglia, 1802, 9373);
    zeph::SETALL(sources.combined, 1234567890, 123456789);
  }
};

void check_mean(benchmark::State& state, double sum, double n, double mean, double variance) {
  if (!(std::fabs(sum - n * mean) <= 8.0 * std::sqrt(n * variance)))
    state.SkipWithError("the mean is not that of the law");
  state.SetItemsProcessed(static_cast<std::int64_t>(n));
}

// One value an iteration
template <class draw> void time_values(benchmark::State& state, double mean, double variance, draw next) {
  double sum = 0.0;
  for (auto _ : state) {
    const double x = static_cast<double>(next());
    benchmark::DoNotOptimize(x);
    sum += x;
  }
  check_mean(state, sum, static_cast<double>(state.iterations()), mean, variance);
}

// Arrays of 1000 values an iteration; items are values
template <class fill> void time_fills(benchmark::State& state, double mean, double variance, fill next) {
  std::vector<double> x(1000);
  double sum = 0.0;
  for (auto _ : state) {
    next(x.data(), static_cast<std::int64_t>(x.size()));
    for (const double v : x) sum += v;
  }
  check_mean(state, sum, 1000.0 * static_cast<double>(state.iterations()), mean, variance);
}

void uniform_of_ranmar(benchmark::State& state) {
  seeded run;
  time_values(state, 0.5, 1.0 / 12.0, [&] { return zeph::RANMAR(run.sources.marsaglia); });
}
BENCHMARK(uniform_of_ranmar);

void uniforms_of_ranmar(benchmark::State& state) {
  seeded run;
  time_fills(state, 0.5, 1.0 / 12.0,
             [&](double* x, std::int64_t n) { zeph::ranmar_fill(run.sources.marsaglia, x, n); });
}
BENCHMARK(uniforms_of_ranmar);

void uniform_of_ranf(benchmark::State& state) {
  seeded run;
  time_values(state, 0.5, 1.0 / 12.0, [&] { return zeph::ranf(run.sources.combined); });
}
BENCHMARK(uniform_of_ranf);

void ranmar_snorm(benchmark::State& state) {
  seeded run;
  time_values(state, 0.0, 1.0, [&] { return zeph::ranmar_snorm(run.sources.marsaglia); });
}
BENCHMARK(ranmar_snorm);

void ranmar_snorm_state_in_locals(benchmark::State& state) {
  seeded run;
  zeph::ranmar_draws draws(run.sources.marsaglia);
  time_values(state, 0.0, 1.0, [&] { return zeph::ranmar_snorm(draws); });
}
BENCHMARK(ranmar_snorm_state_in_locals);

void ranmar_snorms(benchmark::State& state) {
  seeded run;
  time_fills(state, 0.0, 1.0,
             [&](double* x, std::int64_t n) { zeph::ranmar_snorms(run.sources.marsaglia, x, n); });
}
BENCHMARK(ranmar_snorms);

void ranmar_kr_normals(benchmark::State& state) {
  seeded run;
  time_fills(state, 0.0, 1.0,
             [&](double* x, std::int64_t n) { zeph::ranmar_kr_normals(run.sources.marsaglia, x, n); });
}
BENCHMARK(ranmar_kr_normals);

void snorm(benchmark::State& state) {
  seeded run;
  time_values(state, 0.0, 1.0, [&] { return zeph::snorm(run.sources.combined); });
}
BENCHMARK(snorm);

void normal_draw(benchmark::State& state) {
  seeded run;
  time_values(state, 3.0, 4.0, [&] { return zeph::normal_draw(run.sources.combined, 3.0, 4.0); });
}
BENCHMARK(normal_draw);

// A half normal: mean -sqrt(2/pi), variance 1 - 2/pi
void GEN_TRUNC_NORMAL(benchmark::State& state) {
  seeded run;
  const double two_over_pi = 2.0 / std::acos(-1.0);
  time_values(state, -std::sqrt(two_over_pi), 1.0 - two_over_pi,
              [&] { return zeph::GEN_TRUNC_NORMAL(run.sources.combined, -99999.0, 0.0); });
}
BENCHMARK(GEN_TRUNC_NORMAL);

void sexpo(benchmark::State& state) {
  seeded run;
  time_values(state, 1.0, 1.0, [&] { return zeph::sexpo(run.sources.combined); });
}
BENCHMARK(sexpo);

// Argument: ten times the shape
void sgamma(benchmark::State& state) {
  seeded run;
  const float a = static_cast<float>(state.range(0)) / 10.0F;
  time_values(state, static_cast<double>(a), static_cast<double>(a),
              [&] { return zeph::sgamma(run.sources.combined, a, run.sources.gamma); });
}
BENCHMARK(sgamma)->Arg(3)->Arg(10)->Arg(15)->Arg(37)->Arg(150)->Arg(1000);

const double mean[] = {1.0, -2.0, 0.5};
const double covariance[] = {4, 2, -2, 2, 10, 2, -2, 2, 3};

void ranmar_setgmn_and_genmn(benchmark::State& state) {
  seeded run;
  double parm[10], x[3], z[3];
  time_values(state, -2.0, 10.0, [&] {
    zeph::ranmar_setgmn(run.report, mean, covariance, 3, 3, parm, run.work);
    zeph::ranmar_genmn(run.sources.marsaglia, parm, x, z);
    return x[1];
  });
}
BENCHMARK(ranmar_setgmn_and_genmn);

void mvn_draw(benchmark::State& state) {
  seeded run;
  double x[3];
  time_values(state, -2.0, 10.0, [&] {
    zeph::mvn_draw(run.sources.combined, x, mean, covariance, 3, 3, run.work);
    return x[1];
  });
}
BENCHMARK(mvn_draw);

// w(2,2) is 10 times a chi-square with df degrees of freedom
void wishart_draw(benchmark::State& state) {
  seeded run;
  double w[9];
  time_values(state, 2000.0, 2.0 * 100.0 * 200.0, [&] {
    zeph::wishart_draw(run.sources, w, 3, covariance, 3, 3, 200, run.work);
    return w[4];
  });
}
BENCHMARK(wishart_draw);

// w(2,2) over its inverse scale 8/36 is 1 over a chi-square with df - 2 degrees:
// mean 1/(df - 4), variance 2/((df - 4)^2 (df - 6))
void rinvwish(benchmark::State& state) {
  seeded run;
  double w[9];
  time_values(state, 1.0 / 196.0, 2.0 / (196.0 * 196.0 * 194.0), [&] {
    zeph::rinvwish(run.sources, w, 3, covariance, 3, 3, 200, run.work);
    return w[4] * 36.0 / 8.0;
  });
}
BENCHMARK(rinvwish);

} // namespace
