// The first values of every draw, compared to the bit with tests/data/streams.
#include "csv_rows.h"
#include "numerics/gamma_draws.h"
#include "numerics/matrix_draws.h"
#include "numerics/normal_draws.h"
#include "stops.h"
#include "support/places.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace zeph {
namespace {

constexpr std::int32_t ij = 1802, kl = 9373;            // RMARIN
constexpr std::int32_t s1 = 1234567890, s2 = 123456789; // SETALL

struct seeded : kept_listing {
  random_sources sources{report};
  marsaglia_source& ranmar = sources.marsaglia;
  combined_source& ranlib = sources.combined;
  matrix_draw_work work;
  seeded() {
    RMARIN(ranmar, ij, kl);
    SETALL(ranlib, s1, s2);
  }
};

// bits, sixteen or eight digits, and the value
std::string cell(double x) {
  char text[64];
  std::snprintf(text, sizeof text, "%016llx,%.17g",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(x)), x);
  return text;
}
std::string cell(float x) {
  char text[64];
  std::snprintf(text, sizeof text, "%08x,%.9g", std::bit_cast<std::uint32_t>(x), static_cast<double>(x));
  return text;
}

using lines = std::vector<std::string>;

void expect_stream(const std::string& name, const std::string& seeds, const lines& values) {
  ASSERT_EQ(values.size(), 20U);
  if (std::getenv("ZEPH_PIN_STREAMS") != nullptr) {
    std::ofstream file(zeph_test::source_folder() + "/tests/data/streams/" + name + ".csv");
    file << "# " << seeds << "; columns: bits,value\n";
    for (const std::string& line : values) file << line << '\n';
    return;
  }
  const auto rows = csv_rows("streams/" + name + ".csv");
  ASSERT_EQ(rows.size(), 20U) << name;
  for (std::size_t i = 0; i < 20; ++i)
    EXPECT_EQ(values[i].substr(0, values[i].find(',')), rows[i][0]) << name << " value " << i + 1;
}

template <class draw> lines twenty(draw next) {
  lines values;
  for (int i = 0; i < 20; ++i) values.push_back(cell(next()));
  return values;
}
// The elements of successive draws of a vector or matrix
template <class draw> lines twenty_elements(int each, draw next) {
  lines values;
  std::vector<double> x(static_cast<std::size_t>(each));
  while (values.size() < 20) {
    next(x.data());
    for (const double v : x)
      if (values.size() < 20) values.push_back(cell(v));
  }
  return values;
}

const std::string of_ranmar = "RMARIN(1802, 9373)";
const std::string of_ranlib = "SETALL(1234567890, 123456789)";
const double mean[] = {1.0, -2.0, 0.5};
const double covariance[] = {4, 2, -2, 2, 10, 2, -2, 2, 3};

TEST(pinned_streams, of_the_marsaglia_source) {
  seeded snorm, kr, mvn;
  expect_stream("ranmar_snorm", of_ranmar, twenty([&] { return ranmar_snorm(snorm.ranmar); }));
  expect_stream("ranmar_kr_normals", of_ranmar,
                twenty_elements(20, [&](double* x) { ranmar_kr_normals(kr.ranmar, x, 20); }));
  double parm[10], z[3];
  ranmar_setgmn(mvn.report, mean, covariance, 3, 3, parm, mvn.work);
  expect_stream("ranmar_genmn", of_ranmar + ", order 3",
                twenty_elements(3, [&](double* x) { ranmar_genmn(mvn.ranmar, parm, x, z); }));
}

TEST(pinned_streams, of_normal_draws_of_the_combined_source) {
  seeded plain, scaled, truncated, mvn;
  expect_stream("snorm", of_ranlib, twenty([&] { return snorm(plain.ranlib); }));
  expect_stream("normal_draw", of_ranlib + ", mean 3, variance 2",
                twenty([&] { return normal_draw(scaled.ranlib, 3.0, 2.0); }));
  expect_stream("GEN_TRUNC_NORMAL", of_ranlib + ", bounds -1 and 2.5, mean 0.5, variance 2",
                twenty([&] { return GEN_TRUNC_NORMAL(truncated.ranlib, -1.0, 2.5, 0.5, 2.0); }));
  expect_stream("mvn_draw", of_ranlib + ", order 3", twenty_elements(3, [&](double* x) {
                  mvn_draw(mvn.report, mvn.ranlib, x, mean, covariance, 3, 3, mvn.work);
                }));
}

TEST(pinned_streams, of_exponential_and_gamma_draws) {
  seeded exponential;
  expect_stream("sexpo", of_ranlib, twenty([&] { return sexpo(exponential.ranlib); }));
  const struct {
    float shape;
    const char* name;
  } cases[] = {{0.3F, "sgamma_0.3"}, {1.0F, "sgamma_1"},   {1.5F, "sgamma_1.5"}, {3.0F, "sgamma_3"},
               {3.7F, "sgamma_3.7"}, {10.0F, "sgamma_10"}, {15.0F, "sgamma_15"}, {100.0F, "sgamma_100"}};
  for (const auto& c : cases) {
    seeded gamma;
    expect_stream(c.name, of_ranlib,
                  twenty([&] { return sgamma(gamma.ranlib, c.shape, gamma.sources.gamma); }));
  }
}

TEST(pinned_streams, of_matrix_draws) {
  seeded wishart, inverse;
  expect_stream("wishart_draw", of_ranlib + ", order 3, df 7", twenty_elements(9, [&](double* w) {
                  wishart_draw(wishart.report, wishart.sources, w, 3, covariance, 3, 3, 7, wishart.work);
                }));
  expect_stream("rinvwish", of_ranlib + ", order 3, df 7", twenty_elements(9, [&](double* w) {
                  rinvwish(inverse.report, inverse.sources, w, 3, covariance, 3, 3, 7, inverse.work);
                }));
}

} // namespace
} // namespace zeph
