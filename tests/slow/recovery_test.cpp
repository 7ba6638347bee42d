// Recovery of known parameters: 100 small data sets of each kind of trait. The number of central 90 %
// intervals that hold the truth is binomial(100, 0.9) when chain and model agree; 78..99 leave 0.00015
// outside on both sides together.
#include "slow/simulated_kinds.h"

namespace {

using namespace zeph_test;

constexpr int sets = 100, samples = 199; // a sample every `interval` rounds; thresholds move slowly

using chain_parameters = std::function<std::vector<recovered>(latent_chain&, const std::string& work)>;

void recover(const std::string& kind, simulated_set (*make)(unsigned), int interval,
             const chain_parameters& of) {
  const scratch_directory place;
  std::map<std::string, int> held;
  std::map<std::string, double> error; // mean of posterior mean less truth
  for (int n = 0; n < sets; ++n) {
    latent_chain chain = chain_of_set(place, make(static_cast<unsigned>(7000 + n)), n, samples, interval);
    for (const recovered& q : of(chain, place / "work/")) {
      ASSERT_EQ(q.samples.size(), static_cast<std::size_t>(samples)) << q.name;
      const auto rank =
          std::count_if(q.samples.begin(), q.samples.end(), [&q](double x) { return x < q.truth; }); // 0..199
      held[q.name] += rank >= 10 && rank < 190 ? 1 : 0;
      error[q.name] += (mean_of(q.samples) - q.truth) / sets;
    }
  }
  for (const auto& [name, count] : held) {
    EXPECT_GE(count, 78) << name;
    EXPECT_LE(count, 99) << name;
    if (const char* file = std::getenv("ZEPH_FIGURES")) {
      char row[200];
      std::snprintf(row, sizeof row, "| recovery | %s | %s | %d | %.3f |", kind.c_str(), name.c_str(), count,
                    error[name]);
      std::ofstream(file, std::ios::app) << row << '\n';
    }
  }
}

// Difference of the classes b and a of a trait; the one that is not coded is 0.
series difference(latent_chain& c, const std::string& trait) {
  const std::string name = "class|" + trait + "|k|";
  return sum_of(c.solution.at(name + "b"), c.solution.at(name + "a"), -1.0);
}

TEST(recovery, of_a_censored_trait) {
  recover("censored", censored_set, 30, [](latent_chain& c, const std::string&) {
    return std::vector<recovered>{{"mean of class a", 10.0, c.solution.at("class|y|k|a")},
                                  {"difference of classes", 2.0, difference(c, "y")},
                                  {"group variance", 1.0, c.matrix.at({1, 1, 1})},
                                  {"residual variance", 4.0, c.matrix.at({2, 1, 1})}};
  });
}

TEST(recovery, of_an_ordered_trait) {
  recover("ordered", ordered_set, 90, [](latent_chain& c, const std::string& work) {
    return std::vector<recovered>{{"mean of class a", 0.3, c.solution.at("class|y|k|a")},
                                  {"difference of classes", 0.4, difference(c, "y")},
                                  {"group variance", 0.1, c.matrix.at({1, 1, 1})},
                                  {"residual variance", 0.5, c.matrix.at({2, 1, 1})},
                                  {"threshold 2", 0.55, threshold_samples(work, 2)}};
  });
}

TEST(recovery, of_a_binary_trait_beside_a_gaussian_one) {
  recover("binary, gaussian", binary_set, 30, [](latent_chain& c, const std::string&) {
    return std::vector<recovered>{{"cd, mean of class a", -0.4, c.solution.at("class|cd|k|a")},
                                  {"cd, difference of classes", 0.7, difference(c, "cd")},
                                  {"y, difference of classes", 1.0, difference(c, "y")},
                                  {"cd, group variance", 0.4, c.matrix.at({1, 1, 1})},
                                  {"y, group variance", 1.0, c.matrix.at({1, 2, 2})},
                                  {"residual covariance", 1.0, c.matrix.at({2, 2, 1})},
                                  {"y, residual variance", 4.0, c.matrix.at({2, 2, 2})}};
  });
}

TEST(recovery, of_a_mixture) {
  recover("mixture", mixture_set, 30, [](latent_chain& c, const std::string&) {
    return std::vector<recovered>{{"mean of class a", 3.0, c.solution.at("class|y|k|a")},
                                  {"difference of classes", 0.5, difference(c, "y")},
                                  {"shift", 4.0, c.solution.at("regression|y|shift(z)|")},
                                  {"liability of component 1", -0.3, c.solution.at("class|z|mean|mean")},
                                  {"group variance", 0.3, c.matrix.at({1, 1, 1})},
                                  {"residual variance", 1.0, c.matrix.at({2, 1, 1})}};
  });
}

TEST(recovery, of_a_cure_model) {
  recover("cure", cure_set, 30, [](latent_chain& c, const std::string&) {
    return std::vector<recovered>{
        {"liability of class a", 0.0, c.solution.at("class|ill|k|a")},
        {"difference of classes", -0.4, difference(c, "ill")},
        {"liability to be susceptible", 0.4, c.solution.at("class|able|mean|mean")}};
  });
}

} // namespace
