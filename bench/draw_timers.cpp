// Timers of the draws, one value (or one vector or matrix of order 3) an
// iteration. Each checks the mean of what it drew against the mean of its law,
// within eight standard errors, so that a fast wrong draw fails.
#include "listing/reporting.h"
#include "numerics/gamma_draws.h"
#include "numerics/matrix_draws.h"
#include "numerics/normal_draws.h"
#include "numerics/random_sources.h"

#include <array>
#include <benchmark/benchmark.h>
#include <bit>
#include <cmath>
#include <iostream>
#include <numeric>
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
  double sums[8] = {};
  for (auto _ : state) {
    next(x.data(), static_cast<std::int64_t>(x.size()));
    for (std::size_t i = 0; i < x.size(); i += 8) // eight sums: one would cost more than the draws
      for (std::size_t j = 0; j < 8; ++j) sums[j] += x[i + j];
  }
  const double sum = std::accumulate(sums, sums + 8, 0.0);
  check_mean(state, sum, 1000.0 * static_cast<double>(state.iterations()), mean, variance);
}

// ---- One number at a time, as before the numbers were drawn ahead ----

// As published: a routine that is called for each number and keeps its state in
// memory. Figures of other machines are set against this one.
[[gnu::noinline]] double called_ranmar(zeph::marsaglia_state& s) {
  double uni = s.U[static_cast<std::size_t>(s.I97 - 1)] - s.U[static_cast<std::size_t>(s.J97 - 1)];
  if (uni < 0.0) uni += 1.0;
  s.U[static_cast<std::size_t>(s.I97 - 1)] = uni;
  if (--s.I97 == 0) s.I97 = 97;
  if (--s.J97 == 0) s.J97 = 97;
  s.C -= s.CD;
  if (s.C < 0.0) s.C += s.CM;
  uni -= s.C;
  return uni < 0.0 ? uni + 1.0 : uni;
}

void called_uniform_of_ranmar(benchmark::State& state) {
  seeded s;
  zeph::marsaglia_state numbers = zeph::ranmar_state(s.sources.marsaglia);
  time_values(state, 0.5, 1.0 / 12.0, [&] { return called_ranmar(numbers); });
}
BENCHMARK(called_uniform_of_ranmar);

// State in locals; the sign without a branch.
struct single_uniforms {
  explicit single_uniforms(const zeph::marsaglia_state& state)
      : u(state.U), c(state.C), cd(state.CD), cm(state.CM), i(state.I97 - 1), j(state.J97 - 1) {}
  std::array<double, 97> u;
  double c, cd, cm;
  std::int32_t i, j; // 0-based
  static double one_if_negative(double x) {
    const std::int64_t all_if_negative = std::bit_cast<std::int64_t>(x) >> 63;
    return std::bit_cast<double>(std::bit_cast<std::int64_t>(1.0) & all_if_negative);
  }
  double operator()() {
    double uni;
    do {
      uni = u[static_cast<std::size_t>(i)] - u[static_cast<std::size_t>(j)];
      uni += one_if_negative(uni);
      u[static_cast<std::size_t>(i)] = uni;
      i = i == 0 ? 96 : i - 1;
      j = j == 0 ? 96 : j - 1;
      c -= cd;
      if (c < 0.0) c += cm;
      uni -= c;
      uni += one_if_negative(uni);
    } while (uni == 0.0);
    return uni;
  }
};

// By Schrage's quotients
struct single_ranf {
  std::int32_t s1 = 1234567890, s2 = 123456789;
  float operator()() {
    std::int32_t k = s1 / 53668;
    s1 = 40014 * (s1 - k * 53668) - k * 12211;
    if (s1 < 0) s1 += 2147483563;
    k = s2 / 52774;
    s2 = 40692 * (s2 - k * 52774) - k * 3791;
    if (s2 < 0) s2 += 2147483399;
    const std::int32_t z = s1 - s2;
    return static_cast<float>(z < 1 ? z + 2147483562 : z) * 4.656613057E-10F;
  }
};

void single_uniform_of_ranmar(benchmark::State& state) {
  seeded run;
  single_uniforms next(zeph::ranmar_state(run.sources.marsaglia));
  time_values(state, 0.5, 1.0 / 12.0, next);
}
BENCHMARK(single_uniform_of_ranmar);

void single_ranmar_snorm(benchmark::State& state) {
  seeded run;
  single_uniforms next(zeph::ranmar_state(run.sources.marsaglia));
  time_values(state, 0.0, 1.0, [&] { return zeph::fl5_normal<double>(next); });
}
BENCHMARK(single_ranmar_snorm);

void single_uniform_of_ranf(benchmark::State& state) { time_values(state, 0.5, 1.0 / 12.0, single_ranf()); }
BENCHMARK(single_uniform_of_ranf);

// ---- The draws of the program ----

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
    zeph::mvn_draw(run.report, run.sources.combined, x, mean, covariance, 3, 3, run.work);
    return x[1];
  });
}
BENCHMARK(mvn_draw);

// w(2,2) is 10 times a chi-square with df degrees of freedom
void wishart_draw(benchmark::State& state) {
  seeded run;
  double w[9];
  time_values(state, 2000.0, 2.0 * 100.0 * 200.0, [&] {
    zeph::wishart_draw(run.report, run.sources, w, 3, covariance, 3, 3, 200, run.work);
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
    zeph::rinvwish(run.report, run.sources, w, 3, covariance, 3, 3, 200, run.work);
    return w[4] * 36.0 / 8.0;
  });
}
BENCHMARK(rinvwish);

} // namespace
