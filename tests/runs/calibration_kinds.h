// Small models of every kind whose truth is drawn from the priors and whose data are drawn from the truth,
// and the ranks of the truth among the samples of an exact chain: uniform when chain and model agree
// (S. Talts, M. Betancourt, D. Simpson, A. Vehtari and A. Gelman, Validating Bayesian inference algorithms
// with simulation-based calibration, 2018). Data sets that zeph-prepare would refuse (a category without a
// record) are drawn again with their truth: what is conditioned on the data alone leaves ranks uniform.
//
// There are no flat effects but the shift of a mixture. Its truth is uniform between two bounds, and samples
// outside of them are left out: the rest has the posterior under the uniform prior.
#pragma once

#include "runs/latent_chains.h"
#include "support/dense_matrix.h"

#include <functional>
#include <random>

namespace zeph_test {

// ---- what a chain left, of every sample

struct ranked_chain {
  std::size_t samples = 0;
  std::map<std::array<int, 3>, series> matrix; // 0 where the model of the sample has no such element
  std::map<std::string, series> solution;
  series threshold, rows; // of the second threshold; rows of the factor in chains over models
};

// A quantity with its truth; samples outside of the bounds are left out, of all quantities.
struct ranked_quantity {
  std::string name;
  double truth;
  std::function<series(const ranked_chain&)> samples;
  double low = -HUGE_VAL, high = HUGE_VAL;
};

struct drawn_set {
  std::string toml; // without [run]
  std::map<std::string, std::string> files;
  std::vector<ranked_quantity> quantities;
};

inline ranked_quantity element(const std::string& name, double truth, int k, int i, int j) {
  return {name, truth, [=](const ranked_chain& c) {
            const auto at = c.matrix.find({k, i, j}); // of a chain over models: perhaps in no sample
            return at == c.matrix.end() ? series(c.samples) : at->second;
          }};
}
inline ranked_quantity solution(const std::string& name, double truth, const std::string& full_name) {
  return {name, truth, [=](const ranked_chain& c) { return c.solution.at(full_name); }};
}

// ---- draws

class prior_source {
public:
  explicit prior_source(unsigned seed) : draw(seed) {}

  double normal() { return bell(draw); }
  double uniform() { return static_cast<double>(draw() >> 11) / 9007199254740992.0; }
  int below(int n) { return static_cast<int>(draw() % static_cast<unsigned>(n)); }
  double chi_square(double df) { return std::gamma_distribution<double>(df / 2.0, 2.0)(draw); }

  static dense_matrix factor(const dense_matrix& a) {
    dense_matrix L(a.n);
    for (std::int64_t j = 1; j <= a.n; ++j)
      for (std::int64_t i = j; i <= a.n; ++i) {
        double sum = a(i, j);
        for (std::int64_t k = 1; k < j; ++k) sum -= L(i, k) * L(j, k);
        L(i, j) = i == j ? std::sqrt(sum) : sum / L(j, j);
      }
    return L;
  }
  // N(0, V), from 0
  series normal_vector(const dense_matrix& V) {
    const dense_matrix L = factor(V);
    series z, out(static_cast<std::size_t>(V.n));
    for (std::int64_t i = 1; i <= V.n; ++i) {
      z.push_back(normal());
      for (std::int64_t j = 1; j <= i; ++j)
        out[static_cast<std::size_t>(i - 1)] += L(i, j) * z[static_cast<std::size_t>(j - 1)];
    }
    return out;
  }
  // Inverse of the sum of v squares of normals with covariance ((v - n - 1) M)^-1.
  dense_matrix inverse_wishart(const dense_matrix& M, int v) {
    dense_matrix scale = M, W(M.n);
    for (double& x : scale.cells) x *= static_cast<double>(v - M.n - 1);
    const dense_matrix V = dense_inverse(scale).inverse;
    for (int k = 0; k < v; ++k) {
      const series x = normal_vector(V);
      for (std::int64_t i = 1; i <= M.n; ++i)
        for (std::int64_t j = 1; j <= M.n; ++j)
          W(i, j) += x[static_cast<std::size_t>(i - 1)] * x[static_cast<std::size_t>(j - 1)];
    }
    return dense_inverse(W).inverse;
  }
  // Inverse Wishart, v degrees of freedom and scale (v - p - 1) M, under the condition that all variances but
  // the first are 1 and covariances among them 0, as in M: with S the scale, R_11 given the covariances
  // (S_11 - sum S_1i^2/S_ii)/chi-square(v) =: g, covariances from N(S_1i/S_ii, g/S_ii).
  dense_matrix beside_fixed_variances(const dense_matrix& M, int v) {
    const double scale = static_cast<double>(v - M.n - 1);
    double q = M(1, 1);
    for (std::int64_t i = 2; i <= M.n; ++i) q -= M(1, i) * M(1, i);
    const double g = scale * q / chi_square(v);
    dense_matrix R(M.n);
    R(1, 1) = g;
    for (std::int64_t i = 2; i <= M.n; ++i) {
      R(i, i) = 1.0;
      R(1, i) = R(i, 1) = M(1, i) + std::sqrt(g / scale) * normal();
      R(1, 1) += R(1, i) * R(1, i);
    }
    return R;
  }
  // Effects of levels 1.. at [0]..
  std::vector<series> effects(int levels, const dense_matrix& G) {
    std::vector<series> u;
    for (int l = 0; l < levels; ++l) u.push_back(normal_vector(G));
    return u;
  }

private:
  std::mt19937_64 draw;
  std::normal_distribution<double> bell;
};

// ---- texts

inline std::string figure(double x) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", x);
  return text;
}
inline std::string rows_of(const dense_matrix& M) {
  std::string text = "[";
  for (std::int64_t i = 1; i <= M.n; ++i) {
    text += i == 1 ? "[" : ", [";
    for (std::int64_t j = 1; j <= i; ++j) text += (j == 1 ? "" : ", ") + figure(M(i, j));
    text += "]";
  }
  return text + "]";
}
inline std::string prior_of(const std::string& table, const dense_matrix& M, int v) {
  return "[" + table + "]\nstart = " + rows_of(M) + "\nprior_df = " + std::to_string(v) + "\n";
}
inline std::string trait(const std::string& name, const std::string& formula, const std::string& more = "") {
  return "[trait." + name + "]\nformula = \"" + formula + "\"\n" + more;
}
inline const std::string of_data = "[data]\nfile = \"data.csv\"\n";

// ---- the kinds. Levels g of identity factors are 1, 2, ..; record r = 0, 1, .. has level 1 + r % levels

// Two gaussian traits with weights and missing values.
inline drawn_set missing_set(prior_source& s) {
  constexpr int levels = 8, records = 40;
  const dense_matrix G0(2, {1, 0.3, 0.3, 0.8}), R0(2, {1, 0.6, 0.6, 1.2});
  const dense_matrix G = s.inverse_wishart(G0, 10), R = s.inverse_wishart(R0, 8);
  const auto u = s.effects(levels, G);
  std::string data = "g,w,y1,y2\n";
  for (int r = 0; r < records; ++r) {
    const auto l = static_cast<std::size_t>(r % levels);
    const series e = s.normal_vector(R);
    const double w = r % 3 == 0 ? 2.0 : 0.5, absent = s.uniform();
    data += std::to_string(l + 1) + "," + figure(w) + ",";
    data += absent < 0.25 ? "NA," : figure(u[l][0] + e[0] / std::sqrt(w)) + ",";
    data += absent > 0.6 ? "NA\n" : figure(u[l][1] + e[1]) + "\n";
  }
  return {of_data + trait("y1", "0 + (1 | g)", "weight = \"w\"\n") + trait("y2", "0 + (1 | g)") +
              prior_of("factor.g", G0, 10) + prior_of("residual", R0, 8),
          {{"data.csv", data}},
          {element("G(1,1)", G(1, 1), 1, 1, 1), element("G(2,1)", G(2, 1), 1, 2, 1),
           element("G(2,2)", G(2, 2), 1, 2, 2), element("R(1,1)", R(1, 1), 2, 1, 1),
           element("R(2,1)", R(2, 1), 2, 2, 1), element("R(2,2)", R(2, 2), 2, 2, 2),
           solution("level 3, y1", u[2][0], "factor|g|y1.g|3"),
           solution("level 5, y2", u[4][1], "factor|g|y2.g|5")}};
}

// Direct and maternal effects of one pedigree; parents come before progeny, odd animals are male.
inline drawn_set maternal_set(prior_source& s) {
  constexpr int animals = 24, founders = 8;
  const dense_matrix G0(2, {1, -0.2, -0.2, 0.7}), R0(1, {0.6});
  const dense_matrix G = s.inverse_wishart(G0, 9), R = s.inverse_wishart(R0, 8);
  dense_matrix A(animals);
  std::string pedigree = "animal,sire,dam\n", data = "animal,dam,y\n";
  std::vector<int> dams;
  for (int a = 1; a <= animals; ++a) {
    const bool known = a > founders;
    const int sire = known ? 2 * s.below((a - 1) / 2) + 1 : 0, dam = known ? 2 * s.below((a - 1) / 2) + 2 : 0;
    dams.push_back(dam);
    pedigree += std::to_string(a) + "," + std::to_string(sire) + "," + std::to_string(dam) + "\n";
    for (int j = 1; j < a && known; ++j) A(a, j) = A(j, a) = 0.5 * (A(j, sire) + A(j, dam));
    A(a, a) = 1.0 + (known ? 0.5 * A(sire, dam) : 0.0);
  }
  const dense_matrix L = prior_source::factor(G);
  const series a1 = s.normal_vector(A), a2 = s.normal_vector(A);
  const auto direct = [&](int a) { return L(1, 1) * a1[static_cast<std::size_t>(a - 1)]; };
  const auto maternal = [&](int a) {
    return L(2, 1) * a1[static_cast<std::size_t>(a - 1)] + L(2, 2) * a2[static_cast<std::size_t>(a - 1)];
  };
  for (int r = 0; r < 2 * (animals - founders); ++r) {
    const int a = founders + 1 + r / 2, dam = dams[static_cast<std::size_t>(a - 1)];
    const double y = direct(a) + maternal(dam) + std::sqrt(R(1, 1)) * s.normal();
    data += std::to_string(a) + "," + std::to_string(dam) + "," + figure(y) + "\n";
  }
  return {of_data + trait("y", "0 + (1 | genetic | animal) + (1 | genetic | dam)") +
              prior_of("factor.genetic", G0, 9) + "pedigree = \"pedigree.csv\"\n" +
              prior_of("residual", R0, 8),
          {{"data.csv", data}, {"pedigree.csv", pedigree}},
          {element("direct", G(1, 1), 1, 1, 1), element("covariance", G(2, 1), 1, 2, 1),
           element("maternal", G(2, 2), 1, 2, 2), element("residual", R(1, 1), 2, 1, 1),
           solution("animal 12, direct", direct(12), "factor|genetic|y.animal|12"),
           solution("animal 2, maternal", maternal(2), "factor|genetic|y.dam|2")}};
}

// A censored trait (below, above, between whole numbers) beside a gaussian one.
inline drawn_set censored_set_of_priors(prior_source& s) {
  constexpr int levels = 8, records = 40;
  const dense_matrix G0(2, {0.8, 0.2, 0.2, 0.8}), R0(2, {1.2, 0.6, 0.6, 1});
  const dense_matrix G = s.inverse_wishart(G0, 10), R = s.inverse_wishart(R0, 8);
  const auto u = s.effects(levels, G);
  std::string data = "g,y,code,upper,x\n";
  for (int r = 0; r < records; ++r) {
    const auto l = static_cast<std::size_t>(r % levels);
    const series e = s.normal_vector(R);
    const double y = u[l][0] + e[0];
    data += std::to_string(l + 1) + ",";
    if (r % 5 < 2 && y > 0.3)
      data += "0.3,1,NA,";
    else if (r % 5 == 2 && y < -0.4)
      data += "-0.4,-1,NA,";
    else if (r % 5 == 3)
      data += figure(std::floor(y)) + ",2," + figure(std::floor(y) + 1.0) + ",";
    else
      data += figure(y) + ",0,NA,";
    data += figure(u[l][1] + e[1]) + "\n";
  }
  return {of_data +
              trait("y", "0 + (1 | g)",
                    "kind = \"censored\"\nlimits = { code = \"code\", upper = \"upper\" }\n") +
              trait("x", "0 + (1 | g)") + prior_of("factor.g", G0, 10) + prior_of("residual", R0, 8),
          {{"data.csv", data}},
          {element("G(1,1)", G(1, 1), 1, 1, 1), element("G(2,1)", G(2, 1), 1, 2, 1),
           element("R(1,1)", R(1, 1), 2, 1, 1), element("R(2,1)", R(2, 1), 2, 2, 1),
           element("R(2,2)", R(2, 2), 2, 2, 2), solution("level 2, y", u[1][0], "factor|g|y.g|2")}};
}

// A binary trait beside a gaussian one; its residual variance is 1.
inline drawn_set binary_set_of_priors(prior_source& s) {
  constexpr int levels = 8, records = 48;
  const dense_matrix G0(2, {1, 0.2, 0.2, 0.6}), R0(2, {1.2, 0.5, 0.5, 1});
  for (;;) {
    const dense_matrix G = s.inverse_wishart(G0, 10), R = s.beside_fixed_variances(R0, 8);
    const auto u = s.effects(levels, G);
    std::string data = "g,x,cd\n";
    int ones = 0;
    for (int r = 0; r < records; ++r) {
      const auto l = static_cast<std::size_t>(r % levels);
      const series e = s.normal_vector(R);
      const bool one = u[l][1] + e[1] > 0.0;
      ones += one;
      data += std::to_string(l + 1) + "," + figure(u[l][0] + e[0]) + (one ? ",1\n" : ",0\n");
    }
    if (ones == 0 || ones == records) continue;
    return {of_data + trait("x", "0 + (1 | g)") + trait("cd", "0 + (1 | g)", "kind = \"binary\"\n") +
                prior_of("factor.g", G0, 10) + prior_of("residual", R0, 8),
            {{"data.csv", data}},
            {element("G(2,1)", G(2, 1), 1, 2, 1), element("G(2,2)", G(2, 2), 1, 2, 2),
             element("R(1,1)", R(1, 1), 2, 1, 1), element("R(2,1)", R(2, 1), 2, 2, 1),
             solution("level 4, cd", u[3][1], "factor|g|cd.g|4")}};
  }
}

// Four ordered categories with thresholds 0, uniform, 1, beside a gaussian trait.
inline drawn_set ordered_set_of_priors(prior_source& s) {
  constexpr int levels = 8, records = 48;
  const dense_matrix G0(2, {0.4, 0.1, 0.1, 0.6}), R0(2, {0.7, 0.3, 0.3, 1});
  for (;;) {
    const dense_matrix G = s.inverse_wishart(G0, 10), R = s.inverse_wishart(R0, 8);
    const double second = s.uniform();
    const auto u = s.effects(levels, G);
    std::string data = "g,y,x\n";
    std::array<int, 4> count{};
    for (int r = 0; r < records; ++r) {
      const auto l = static_cast<std::size_t>(r % levels);
      const series e = s.normal_vector(R);
      const double y = u[l][0] + e[0];
      const int category = y <= 0.0 ? 0 : y <= second ? 1 : y <= 1.0 ? 2 : 3;
      ++count[static_cast<std::size_t>(category)];
      data += std::to_string(l + 1) + "," + std::to_string(category) + "," + figure(u[l][1] + e[1]) + "\n";
    }
    if (*std::min_element(count.begin(), count.end()) == 0) continue;
    return {of_data + trait("y", "0 + (1 | g)", "kind = \"ordered\"\n") + trait("x", "0 + (1 | g)") +
                prior_of("factor.g", G0, 10) + prior_of("residual", R0, 8),
            {{"data.csv", data}},
            {{"threshold", second, [](const ranked_chain& c) { return c.threshold; }},
             element("G(1,1)", G(1, 1), 1, 1, 1),
             element("R(1,1)", R(1, 1), 2, 1, 1),
             element("R(2,1)", R(2, 1), 2, 2, 1),
             solution("level 6, y", u[5][0], "factor|g|y.g|6")}};
  }
}

// A mixture whose liability has a covariance with the mixed trait; one residual matrix, or one a component.
// Both components have a record.
inline drawn_set mixture_set_of_priors(prior_source& s, bool groups) {
  constexpr int levels = 6, records = 36;
  constexpr double low = 1.0, high = 5.0;
  const dense_matrix G0(2, {0.5, 0.1, 0.1, 0.5}), R0(2, {1, 0.3, 0.3, 1});
  for (;;) {
    const dense_matrix G = s.inverse_wishart(G0, 10);
    const std::array<dense_matrix, 2> R{s.beside_fixed_variances(R0, 10), s.beside_fixed_variances(R0, 10)};
    const double shift = low + (high - low) * s.uniform();
    const auto u = s.effects(levels, G);
    std::string data = "g,y\n";
    int ones = 0;
    for (int r = 0; r < records; ++r) {
      const auto l = static_cast<std::size_t>(r % levels);
      const double e = s.normal();
      const bool one = u[l][1] + e > 0.0;
      const dense_matrix& C = R[one && groups ? 1 : 0];
      ones += one;
      const double y =
          u[l][0] + (one ? shift : 0.0) + C(2, 1) * e + std::sqrt(C(1, 1) - C(2, 1) * C(2, 1)) * s.normal();
      data += std::to_string(l + 1) + "," + figure(y) + "\n";
    }
    if (ones == 0 || ones == records) continue;
    drawn_set out{
        of_data + trait("y", "0 + shift(z) + (1 | g)") + trait("z", "0 + (1 | g)", "kind = \"indicator\"\n") +
            prior_of("factor.g", G0, 10) + prior_of("residual", R0, 10) + "free = [[\"y\", \"z\"]]\n" +
            (groups ? "groups = \"z\"\n" : ""),
        {{"data.csv", data}},
        {solution("shift", shift, "regression|y|shift(z)|"), element("G(1,1)", G(1, 1), 1, 1, 1),
         element("G(2,2)", G(2, 2), 1, 2, 2), element("R(1,1)", R[0](1, 1), 2, 1, 1),
         element("R(2,1)", R[0](2, 1), 2, 2, 1), solution("level 2, liability", u[1][1], "factor|g|z.g|2")}};
    out.quantities[0].low = low;
    out.quantities[0].high = high;
    if (groups) {
      out.quantities.push_back(element("R(1,1) of component 1", R[1](1, 1), 3, 1, 1));
      out.quantities.push_back(element("R(2,1) of component 1", R[1](2, 1), 3, 2, 1));
    }
    return out;
  }
}

// Subjects of up to four positions, ended by an event; a gaussian trait in every record with covariances with
// both liabilities. That of the subject belongs to its last record.
inline drawn_set cure_set_of_priors(prior_source& s) {
  constexpr int levels = 6, subjects = 24;
  const dense_matrix G0(3, {0.6, 0.1, 0.1, 0.1, 0.5, 0, 0.1, 0, 0.5}),
      R0(3, {1.2, 0.3, 0.3, 0.3, 1, 0, 0.3, 0, 1});
  for (;;) {
    const dense_matrix G = s.inverse_wishart(G0, 10), R = s.beside_fixed_variances(R0, 9);
    const auto u = s.effects(levels, G);
    std::string data = "g,subject,position,y,ill\n";
    int able_ones = 0, events = 0;
    for (int i = 0; i < subjects; ++i) {
      const auto l = static_cast<std::size_t>(i % levels);
      const double e8 = s.normal();
      const bool able = u[l][2] + e8 > 0.0;
      able_ones += able;
      bool event = false;
      for (int t = 1, last = 2 + i % 3; t <= last && !event; ++t) {
        const double e7 = s.normal();
        event = able && u[l][1] + e7 > 0.0;
        events += event;
        const bool at_end = t == last || event;
        const double mean = R(1, 2) * e7 + (at_end ? R(1, 3) * e8 : 0.0),
                     variance = R(1, 1) - R(1, 2) * R(1, 2) - (at_end ? R(1, 3) * R(1, 3) : 0.0);
        data += std::to_string(l + 1) + "," + std::to_string(i + 1) + "," + std::to_string(t) + "," +
                figure(u[l][0] + mean + std::sqrt(variance) * s.normal()) + (event ? ",1\n" : ",0\n");
      }
    }
    if (able_ones == 0 || able_ones == subjects || events == 0) continue;
    return {of_data + trait("y", "0 + (1 | g)") +
                trait("ill", "0 + (1 | g)",
                      "kind = \"sequence\"\nsubject = \"subject\"\nposition = \"position\"\n") +
                trait("able", "0 + (1 | g)", "kind = \"cured\"\nof = \"ill\"\n") +
                prior_of("factor.g", G0, 10) + prior_of("residual", R0, 9) +
                "free = [[\"y\", \"ill\"], [\"y\", \"able\"]]\n",
            {{"data.csv", data}},
            {element("G(1,1)", G(1, 1), 1, 1, 1), element("G(2,2)", G(2, 2), 1, 2, 2),
             element("G(3,3)", G(3, 3), 1, 3, 3), element("R(1,1)", R(1, 1), 2, 1, 1),
             element("R(2,1)", R(2, 1), 2, 2, 1), element("R(3,1)", R(3, 1), 2, 3, 1),
             solution("level 3, ill", u[2][1], "factor|g|ill.g|3"),
             solution("level 3, able", u[2][2], "factor|g|able.g|3")}};
  }
}

// Three traits, residual covariance (3,1) held at zero: R_11 = S_11/chi-square(v), R_33 alike, and trait 2
// given them by its regressions, g = q/chi-square(v), q = S_22 - S_12^2/S_11 - S_32^2/S_33.
inline drawn_set zero_pair_set(prior_source& s) {
  constexpr int levels = 8, records = 36, v = 9;
  const dense_matrix G0(3, {0.6, 0.1, 0.1, 0.1, 0.6, 0.1, 0.1, 0.1, 0.6}),
      R0(3, {1, 0.5, 0, 0.5, 1, 0.4, 0, 0.4, 1.2});
  const dense_matrix G = s.inverse_wishart(G0, 10);
  dense_matrix S = R0, R(3);
  for (double& x : S.cells) x *= v - 4;
  const double q = S(2, 2) - S(1, 2) * S(1, 2) / S(1, 1) - S(2, 3) * S(2, 3) / S(3, 3);
  R(2, 2) = q / s.chi_square(v);
  const double g = R(2, 2);
  for (const int i : {1, 3}) {
    R(i, i) = S(i, i) / s.chi_square(v);
    const double b = S(i, 2) / S(i, i) + std::sqrt(g / S(i, i)) * s.normal();
    R(i, 2) = R(2, i) = b * R(i, i);
    R(2, 2) += b * b * R(i, i);
  }
  const auto u = s.effects(levels, G);
  std::string data = "g,y1,y2,y3\n";
  for (int r = 0; r < records; ++r) {
    const auto l = static_cast<std::size_t>(r % levels);
    const series e = s.normal_vector(R);
    data += std::to_string(l + 1);
    for (std::size_t t = 0; t < 3; ++t)
      data += s.uniform() < 0.15 && t < 2 ? ",NA" : "," + figure(u[l][t] + e[t]);
    data += "\n";
  }
  return {of_data + trait("y1", "0 + (1 | g)") + trait("y2", "0 + (1 | g)") + trait("y3", "0 + (1 | g)") +
              prior_of("factor.g", G0, 10) + prior_of("residual", R0, v) + "zero = [[\"y1\", \"y3\"]]\n",
          {{"data.csv", data}},
          {element("R(1,1)", R(1, 1), 2, 1, 1), element("R(2,1)", R(2, 1), 2, 2, 1),
           element("R(2,2)", R(2, 2), 2, 2, 2), element("R(3,2)", R(3, 2), 2, 3, 2),
           element("R(3,3)", R(3, 3), 2, 3, 3), element("G(3,1)", G(3, 1), 1, 3, 1),
           solution("level 7, y2", u[6][1], "factor|g|y2.g|7")}};
}

// Two residual groups with matrices of their own, missing values.
inline drawn_set groups_set(prior_source& s) {
  constexpr int levels = 8, records = 44;
  const dense_matrix G0(2, {1, 0.3, 0.3, 0.8});
  const std::array<dense_matrix, 2> R0{dense_matrix(2, {0.6, 0.2, 0.2, 0.8}),
                                       dense_matrix(2, {1.5, -0.4, -0.4, 1})};
  const dense_matrix G = s.inverse_wishart(G0, 10);
  const std::array<dense_matrix, 2> R{s.inverse_wishart(R0[0], 8), s.inverse_wishart(R0[1], 8)};
  const auto u = s.effects(levels, G);
  std::string data = "g,pen,y1,y2\n";
  for (int r = 0; r < records; ++r) {
    const auto l = static_cast<std::size_t>(r % levels), h = static_cast<std::size_t>(r % 5 < 2);
    const series e = s.normal_vector(R[h]);
    const double absent = s.uniform();
    data += std::to_string(l + 1) + (h == 0 ? ",a," : ",b,");
    data += absent < 0.2 ? "NA," : figure(u[l][0] + e[0]) + ",";
    data += absent > 0.7 ? "NA\n" : figure(u[l][1] + e[1]) + "\n";
  }
  return {of_data + trait("y1", "0 + (1 | g)") + trait("y2", "0 + (1 | g)") + prior_of("factor.g", G0, 10) +
              prior_of("residual", R0[0], 8) + "groups = \"pen\"\n[residual.start_by_group]\na = " +
              rows_of(R0[0]) + "\nb = " + rows_of(R0[1]) + "\n",
          {{"data.csv", data}},
          {element("R(1,1) of a", R[0](1, 1), 2, 1, 1), element("R(2,1) of a", R[0](2, 1), 2, 2, 1),
           element("R(2,1) of b", R[1](2, 1), 3, 2, 1), element("R(2,2) of b", R[1](2, 2), 3, 2, 2),
           element("G(2,1)", G(2, 1), 1, 2, 1), solution("level 1, y2", u[0][1], "factor|g|y2.g|1")}};
}

// 1, x, x^2 in the levels of a factor, of which the first one to three are there by their prior weights.
inline drawn_set jump_set(prior_source& s) {
  constexpr int levels = 8, records = 40;
  const dense_matrix G0(3, {0.6, 0.15, 0.1, 0.15, 0.5, 0.1, 0.1, 0.1, 0.4}), R0(1, {0.5});
  const dense_matrix G = s.inverse_wishart(G0, 9), R = s.inverse_wishart(R0, 7);
  const double which = 7.0 * s.uniform(); // weights 2, 3, 2
  const int rows = which < 2.0 ? 1 : which < 5.0 ? 2 : 3;
  auto u = s.effects(levels, G);
  for (series& x : u)
    for (int p = rows; p < 3; ++p) x[static_cast<std::size_t>(p)] = 0.0;
  std::string data = "g,x,y\n";
  for (int r = 0; r < records; ++r) {
    const auto l = static_cast<std::size_t>(r % levels);
    const double x = -1.0 + 0.5 * (r / levels);
    data += std::to_string(l + 1) + "," + figure(x) + "," +
            figure(u[l][0] + x * u[l][1] + x * x * u[l][2] + std::sqrt(R(1, 1)) * s.normal()) + "\n";
  }
  return {of_data + "[covariable.x]\n" + trait("y", "0 + (poly(x, 2) | g)") + prior_of("factor.g", G0, 9) +
              "model_prior = [2, 3, 2]\n" + prior_of("residual", R0, 7),
          {{"data.csv", data}},
          {{"rows of the factor", static_cast<double>(rows), [](const ranked_chain& c) { return c.rows; }},
           element("G(1,1)", G(1, 1), 1, 1, 1),
           element("G(2,2), or 0", rows > 1 ? G(2, 2) : 0.0, 1, 2, 2),
           element("G(3,1), or 0", rows > 2 ? G(3, 1) : 0.0, 1, 3, 1),
           element("R(1,1)", R(1, 1), 2, 1, 1),
           solution("level 4, row 1", u[3][0], "factor|g|y.poly0|4"),
           solution("level 4, row 2, or 0", u[3][1], "factor|g|y.poly1|4")}};
}

// ---- chains

struct calibrated_kind {
  std::string name;
  drawn_set (*draw)(prior_source&);
  int interval;
  bool jump = false;
};

inline void PrintTo(const calibrated_kind& kind, std::ostream* out) { *out << kind.name; }

inline const std::vector<calibrated_kind>& calibrated_kinds() {
  static const std::vector<calibrated_kind> all = {
      {"missing", missing_set, 20},
      {"maternal", maternal_set, 40},
      {"censored", censored_set_of_priors, 20},
      {"binary", binary_set_of_priors, 40},
      {"ordered", ordered_set_of_priors, 60},
      {"mixture", [](prior_source& s) { return mixture_set_of_priors(s, false); }, 40},
      {"mixture_groups", [](prior_source& s) { return mixture_set_of_priors(s, true); }, 40},
      {"cure", cure_set_of_priors, 60},
      {"zero_pair", zero_pair_set, 20},
      {"groups", groups_set, 20},
      {"jump", jump_set, 30, true},
  };
  return all;
}

// gib.samples (I8, 3I4, G15.6, I11) with an element of 0 where the model of a sample has none.
inline ranked_chain ranked_chain_in(const std::string& work) {
  ranked_chain out;
  std::map<int, std::size_t> number; // of the sample of a round
  std::ifstream densities(work + "py"), elements(work + "gib.samples");
  for (std::string line; std::getline(densities, line);) {
    std::istringstream words(line);
    int round = 0;
    double rows = 0;
    words >> round >> rows;
    number[round] = out.samples++;
    out.rows.push_back(rows);
  }
  for (std::string line; std::getline(elements, line);) {
    const auto item = [&](std::size_t at) { return std::stoi(line.substr(at, 4)); };
    series& x = out.matrix[{item(8), item(12), item(16)}];
    x.resize(out.samples);
    x.at(number.at(std::stoi(line.substr(0, 8)))) = std::stod(line.substr(20, 15));
  }
  out.solution = named_samples_in(work);
  std::ifstream thresholds(work + "threshold");
  int round = 0, trait = 0, k = 0;
  for (double value = 0.0; thresholds >> round >> trait >> k >> value;)
    if (k == 2) out.threshold.push_back(value);
  return out;
}

constexpr int ranked_samples = 63;

// The truth's place among 63 samples, 0..63, of each quantity; equal ones are broken at random.
struct ranked {
  std::string name;
  int rank;
  double worth; // effective samples a sample
};

inline ranked_chain chain_of_set(const calibrated_kind& kind, const drawn_set& set,
                                 const scratch_directory& place, int n, const std::string& sampler,
                                 int samples) {
  std::filesystem::remove_all(place / "work");
  const prepared_run run = prepare_and_solve(
      place, set.toml + "[keep]\nsolutions = true\n[run]\nanalysis = \"" + (kind.jump ? "jump" : "gibbs") +
                 "\"\nsampler = \"" + sampler +
                 "\"\nstate_every = false\nburnin = " + std::to_string(10 * kind.interval) +
                 "\nrounds = " + std::to_string(samples * kind.interval) +
                 "\ninterval = " + std::to_string(kind.interval) + "\nseeds = [" +
                 std::to_string(1 + n % 31000) + ", " + std::to_string(1 + 7 * n % 30000) + "]\n");
  if (!run.prepared || run.run.exit_code != 0) throw std::runtime_error(run.messages + run.run.listing);
  return ranked_chain_in(place / "work/");
}

// The first 63 samples within all bounds, of each quantity; fewer when there are no more.
inline std::vector<series> samples_within_bounds(const drawn_set& set, const ranked_chain& chain) {
  std::vector<series> all, out(set.quantities.size());
  for (const ranked_quantity& q : set.quantities) all.push_back(q.samples(chain));
  for (std::size_t i = 0; i < chain.samples && out[0].size() < ranked_samples; ++i) {
    bool within = true;
    for (std::size_t k = 0; k < all.size(); ++k)
      within = within && set.quantities[k].low <= all[k].at(i) && all[k].at(i) <= set.quantities[k].high;
    for (std::size_t k = 0; k < all.size() && within; ++k) out[k].push_back(all[k][i]);
  }
  return out;
}

// The chain is made longer until enough of its samples are within the bounds of the priors.
inline std::vector<ranked> ranks_of_set(const calibrated_kind& kind, const scratch_directory& place, int n,
                                        const std::string& sampler) {
  prior_source s(static_cast<unsigned>(20260000 + n));
  const drawn_set set = kind.draw(s);
  for (const auto& [name, text] : set.files) place.write(name, text);
  bool bounded = false;
  for (const ranked_quantity& q : set.quantities) bounded = bounded || q.low > -HUGE_VAL || q.high < HUGE_VAL;
  std::vector<series> samples(1);
  for (int times = bounded ? 2 : 1; samples[0].size() < ranked_samples; times *= 4) {
    if (times > 3000) throw std::runtime_error("no samples within the bounds of the priors");
    const ranked_chain chain = chain_of_set(kind, set, place, n, sampler, ranked_samples * times);
    samples = samples_within_bounds(set, chain);
  }
  std::vector<ranked> out;
  for (std::size_t k = 0; k < samples.size(); ++k) {
    int below = 0, equal = 0;
    for (const double x : samples[k]) {
      below += x < set.quantities[k].truth;
      equal += x == set.quantities[k].truth;
    }
    out.push_back({set.quantities[k].name, below + s.below(equal + 1),
                   estimate_of(samples[k]).ess / static_cast<double>(ranked_samples)});
  }
  return out;
}

// The ranks of each quantity over the data sets, by name in the order of the kind.
struct ranks_of_quantity {
  std::string name;
  std::vector<int> ranks;
  double worth = 0.0; // mean of the sets

  // Of equal classes: chi-square with one degree of freedom less when the ranks are uniform.
  double chi_square(int classes) const {
    std::vector<int> count(static_cast<std::size_t>(classes));
    for (const int r : ranks) ++count[static_cast<std::size_t>(r * classes / (ranked_samples + 1))];
    const double expected = static_cast<double>(ranks.size()) / classes;
    double sum = 0.0;
    for (const int c : count) sum += (c - expected) * (c - expected) / expected;
    return sum;
  }
  // Mean rank less the expected one in its standard errors.
  double z() const {
    constexpr double ranks_there_are = ranked_samples + 1;
    double sum = 0.0;
    for (const int r : ranks) sum += r - 0.5 * ranked_samples;
    const double variance = (ranks_there_are * ranks_there_are - 1.0) / 12.0;
    return sum / std::sqrt(variance * static_cast<double>(ranks.size()));
  }
};

inline std::vector<ranks_of_quantity> calibrate(const calibrated_kind& kind, int sets,
                                                const std::string& sampler = "exact") {
  const scratch_directory place;
  std::vector<ranks_of_quantity> out;
  for (int n = 0; n < sets; ++n) {
    const std::vector<ranked> of_set = ranks_of_set(kind, place, n, sampler);
    out.resize(of_set.size());
    for (std::size_t k = 0; k < of_set.size(); ++k) {
      out[k].name = of_set[k].name;
      out[k].ranks.push_back(of_set[k].rank);
      out[k].worth += of_set[k].worth / sets;
    }
  }
  return out;
}

} // namespace zeph_test
