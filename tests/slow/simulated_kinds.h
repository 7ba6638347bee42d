// Small data sets of each kind of trait from known parameters, and chains over them. Records are in groups
// (sires, herds) with a random effect each, and have a class k of levels a and b.
#pragma once

#include "runs/latent_chains.h"

#include <functional>
#include <random>

namespace zeph_test {

// A parameter: its name, its true value, its samples.
struct recovered {
  std::string name;
  double truth;
  series samples;
};

// A data set: description (without [run]) and the records.
struct simulated_set {
  std::string toml, data;
};

class kind_simulator {
public:
  explicit kind_simulator(unsigned seed) : draw(seed) {}

  double normal() { return bell(draw); }
  double uniform() { return static_cast<double>(draw() >> 11) / 9007199254740992.0; }
  int below(int n) { return static_cast<int>(draw() % static_cast<unsigned>(n)); }
  series effects(int n, double variance) {
    series out;
    for (int i = 0; i < n; ++i) out.push_back(std::sqrt(variance) * normal());
    return out;
  }

private:
  std::mt19937_64 draw;
  std::normal_distribution<double> bell;
};

inline std::string number_text(double x) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", x);
  return text;
}

constexpr int groups_of_set = 40, records_of_group = 6;

// Visits every record: group g from 0, class 0 (a) or 1 (b).
template <class Visit> void for_each_record(Visit visit) {
  for (int g = 0; g < groups_of_set; ++g)
    for (int r = 0; r < records_of_group; ++r) visit(g, (g + r) % 2);
}

inline std::string group_start(double variance) {
  return "[factor.g]\nstart = " + number_text(variance) + "\n";
}

// ---- censored: means 10 and 12, residual variance 4, group variance 1; a third is cut off or falls into an
// interval

inline simulated_set censored_set(unsigned seed) {
  kind_simulator s(seed);
  const series u = s.effects(groups_of_set, 1.0);
  std::string data = "g,k,y,code,upper\n";
  for_each_record([&](int g, int k) {
    const double y = 10.0 + 2.0 * k + u[static_cast<std::size_t>(g)] + 2.0 * s.normal();
    const std::string head = std::to_string(g) + (k == 0 ? ",a," : ",b,");
    if (y > 13.0)
      data += head + "13,1,NA\n";
    else if (y < 7.5)
      data += head + "7.5,-1,NA\n";
    else if (s.uniform() < 0.2)
      data += head + number_text(std::floor(y)) + ",2," + number_text(std::floor(y) + 1.0) + "\n";
    else
      data += head + number_text(y) + ",0,NA\n";
  });
  return {"[trait.y]\nkind = \"censored\"\nlimits = { code = \"code\", upper = \"upper\" }\n"
          "formula = \"1 + k + (1 | g)\"\n[residual]\nstart = 4\n" +
              group_start(1.0),
          data};
}

// ---- ordered: four categories with thresholds 0, 0.55, 1; means 0.3 and 0.7, residual variance 0.5, group
// variance 0.1

inline simulated_set ordered_set(unsigned seed) {
  kind_simulator s(seed);
  const series u = s.effects(groups_of_set, 0.1);
  std::string data = "g,k,y\n";
  for_each_record([&](int g, int k) {
    const double l = 0.3 + 0.4 * k + u[static_cast<std::size_t>(g)] + std::sqrt(0.5) * s.normal();
    const char* label = l <= 0.0 ? "none" : l <= 0.55 ? "some" : l <= 1.0 ? "more" : "much";
    data += std::to_string(g) + (k == 0 ? ",a," : ",b,") + label + "\n";
  });
  return {"[trait.y]\nkind = \"ordered\"\ncategories = [\"none\", \"some\", \"more\", \"much\"]\n"
          "formula = \"1 + k + (1 | g)\"\n[residual]\nstart = 0.5\n" +
              group_start(0.1),
          data};
}

// ---- binary beside gaussian: liability -0.4 and 0.3, residual correlation 0.5; y means 5 and 6, residual
// variance 4

inline simulated_set binary_set(unsigned seed) {
  kind_simulator s(seed);
  const series u = s.effects(groups_of_set, 0.4), v = s.effects(groups_of_set, 1.0);
  std::string data = "g,k,cd,y\n";
  for_each_record([&](int g, int k) {
    const double e = s.normal(), f = 0.5 * e + std::sqrt(0.75) * s.normal();
    const double l = -0.4 + 0.7 * k + u[static_cast<std::size_t>(g)] + e;
    data += std::to_string(g) + (k == 0 ? ",a," : ",b,") + (l > 0.0 ? "1," : "0,") +
            number_text(5.0 + k + v[static_cast<std::size_t>(g)] + 2.0 * f) + "\n";
  });
  return {"[trait.cd]\nkind = \"binary\"\nformula = \"1 + k + (1 | g)\"\n[trait.y]\nformula = \"1 + k + (1 | "
          "g)\"\n"
          "[residual]\nstart = [[1, 0], [0, 4]]\n[factor.g]\nstart = [[0.4, 0], [0, 1]]\n",
          data};
}

// ---- mixture: means 3 and 3.5, shift 4, residual variance 1, group variance 0.3; liability of component 1
// -0.3. Nearer components could lose all their records, which has no end when the shift has a flat prior

inline simulated_set mixture_set(unsigned seed) {
  kind_simulator s(seed);
  const series u = s.effects(groups_of_set, 0.3);
  std::string data = "g,k,y\n";
  for_each_record([&](int g, int k) {
    const bool one = -0.3 + s.normal() > 0.0;
    data += std::to_string(g) + (k == 0 ? ",a," : ",b,") +
            number_text(3.0 + 0.5 * k + (one ? 4.0 : 0.0) + u[static_cast<std::size_t>(g)] + s.normal()) +
            "\n";
  });
  return {"[trait.y]\nformula = \"1 + k + shift(z) + (1 | g)\"\n[trait.z]\nkind = \"indicator\"\nformula = "
          "\"1\"\n"
          "first = { upper = 0.3 }\n[residual]\nstart = [[1, 0], [0, 1]]\n" +
              group_start(0.3),
          data};
}

// ---- cure: 120 subjects of up to 10 periods, liability 0 and -0.4 by class in a period, to be susceptible
// 0.4

inline simulated_set cure_set(unsigned seed) {
  kind_simulator s(seed);
  std::string data = "subject,period,k,ill\n";
  for (int i = 0; i < 120; ++i) {
    const bool able = 0.4 + s.normal() > 0.0;
    const int last = 6 + s.below(5);
    for (int t = 1; t <= last; ++t) {
      const int k = (i + t) % 2;
      const bool ill = able && -0.4 * k + s.normal() > 0.0;
      data += std::to_string(i) + "," + std::to_string(t) + (k == 0 ? ",a," : ",b,") + (ill ? "1\n" : "0\n");
      if (ill) break;
    }
  }
  return {
      "[trait.ill]\nkind = \"sequence\"\nsubject = \"subject\"\nposition = \"period\"\nformula = \"1 + k\"\n"
      "[trait.able]\nkind = \"cured\"\nof = \"ill\"\nformula = \"1\"\n",
      data};
}

// ---- chains

inline latent_chain chain_of_set(const scratch_directory& place, const simulated_set& set, int number,
                                 int samples, int interval) {
  place.write("data.csv", set.data);
  std::filesystem::remove_all(place / "work");
  const prepared_run run = prepare_and_solve(
      place, "[data]\nfile = \"data.csv\"\n" + set.toml +
                 "[keep]\nsolutions = true\n[run]\nanalysis = \"gibbs\"\nsampler = \"classic\"\nburnin = "
                 "600\nrounds = " +
                 std::to_string(samples * interval) + "\ninterval = " + std::to_string(interval) +
                 "\nseeds = [" + std::to_string(number + 1) + ", " + std::to_string(7 * number + 1) + "]\n");
  if (!run.prepared || run.run.exit_code != 0) throw std::runtime_error(run.messages + run.run.listing);
  return chain_in(place / "work/", true);
}

// Samples of threshold k from the file threshold: round, trait, number, value.
inline series threshold_samples(const std::string& work, int k) {
  std::ifstream file(work + "threshold");
  series out;
  int round = 0, trait = 0, number = 0;
  for (double value = 0.0; file >> round >> trait >> number >> value;)
    if (number == k) out.push_back(value);
  return out;
}

inline series sum_of(const series& a, const series& b, double sign) {
  series out = a;
  for (std::size_t i = 0; i < out.size(); ++i) out[i] += sign * b[i];
  return out;
}

} // namespace zeph_test
