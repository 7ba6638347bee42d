// Recovery of a known causal coefficient: 100 small data sets in which the level
// of a herd in one trait moves another trait.
//
// The covariable is the sampled solution, herd + error of the estimate + error of
// the draw, each of variance s2/n with n records a herd. The coefficient is
// therefore drawn towards 0 by 1/(1 + 2 s2/(n v)), v the variance of the herds
// (W. A. Fuller, Measurement Error Models, Wiley 1987, section 1.1).
#include "runs/small_herd.h"

#include <cmath>
#include <random>

namespace {

using namespace zeph_test;

constexpr int sets = 100, herds = 16, records = 40; // a herd has 40 records
constexpr double coefficient = 0.5, herd_sd = 2.0;

struct simulated {
  explicit simulated(unsigned seed) : source(seed) {}
  // A standard normal (G. E. P. Box and M. E. Muller 1958).
  double normal() {
    const double u = (static_cast<double>(source()) + 0.5) / 4294967296.0;
    const double v = (static_cast<double>(source()) + 0.5) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
  }
  std::string data() {
    std::vector<double> herd(herds), sire(5);
    for (double& h : herd) h = herd_sd * normal();
    for (double& s : sire) s = 0.7 * normal();
    std::string out = "herd,sire,y1,y2\n";
    for (int h = 0; h < herds; ++h)
      for (int r = 0; r < records; ++r) {
        char row[100];
        const double u = sire[static_cast<std::size_t>(r % 5)], x = herd[static_cast<std::size_t>(h)];
        std::snprintf(row, sizeof row, "%d,%d,%.5f,%.5f\n", h + 1, r % 5 + 1, 10.0 + x + u + normal(),
                      3.0 + coefficient * x + normal());
        out += row;
      }
    return out;
  }
  std::mt19937 source;
};

TEST(recovery, of_the_effect_of_one_trait_s_herd_level_on_another_trait) {
  const small_herd place;
  int held = 0;
  series means;
  for (unsigned n = 0; n < sets; ++n) {
    place.directory.write("data.csv", simulated(5000 + n).data());
    place.run(
        "[data]\nfile = \"data.csv\"\n[keep]\nsolutions = true\n[run]\nanalysis = \"gibbs\"\nburnin = 50\n"
        "interval = 2\nrounds = 400\nseeds = [" +
        std::to_string(100 + n) + R"toml(, 707]
[trait.y1]
formula = "1 + herd + (1 | sire)"
[trait.y2]
formula = "1 + level"
[covariable.level]
solution = "y1.herd"
[factor.sire]
prior_df = 5
[residual]
zero = [["y1", "y2"]]
)toml");
    series b = named_samples_in(place.work()).at("regression|y2|level|");
    ASSERT_EQ(b.size(), 200U);
    means.push_back(mean_of(b));
    std::sort(b.begin(), b.end());
    held += b[10] < coefficient && coefficient < b[189] ? 1 : 0;
  }
  const double expected = coefficient / (1.0 + 2.0 / (records * herd_sd * herd_sd));
  const estimate e = estimate_of(means);
  EXPECT_NEAR(e.mean, expected, 4.0 * std::sqrt(e.variance / sets)); // 4 standard errors: 6e-5
  EXPECT_GE(held, 78);                                               // binomial(100, 0.9): 0.0003 below
  note_figure("coefficient", expected, e.mean, std::sqrt(e.variance / sets), sets);
  note_figure("90 % intervals that hold it", 90, held, 3, sets);
}

} // namespace
