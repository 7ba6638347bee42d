// The row sampler of residual matrices with covariances held at zero, against direct draws. Where one trait,
// the centre, has free covariances with all others and these have none with each other, the density
//   |R|^-(df+p+1)/2 exp(-tr(S R^-1)/2) over the free elements
// falls into independent parts: the p - 1 others' variances are S_ii/chi-square(df + p - 3), the centre's
// variance given them q/chi-square(df), q = S_cc - S_co S_oo^-1 S_oc, and its regressions on them normal with
// mean S_oo^-1 S_oc and covariance q/chi-square(df) S_oo^-1, the same chi-square (from |R| = R_cc.o * product
// of R_ii, and the Jacobian R_ii of each covariance R_ci = b_i R_ii). S may have any elements between the
// others. Limit of |z| 4.5, error probability 7e-6 a quantity.
#include "gibbs/matrices/residual_parts.h"

#include "gibbs/prior_case.h"

namespace zeph_test {
namespace {

struct star_case : prior_case {
  std::int32_t nt, p, centre; // traits; those of the star, 1..p; its centre
  dense_matrix S;             // nt x nt, with the prior
  residual_parts parts;

  star_case(std::int32_t traits, std::int32_t of_star, std::int32_t c)
      : prior_case(description(traits), 4, false), nt(traits), p(of_star), centre(c), S(traits) {
    m.NORCOV.take(nt * nt, 2);
    m.n_norcov = 0;
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j < i; ++j)
        if (i > p || (i != centre && j != centre)) {
          ++m.n_norcov;
          m.NORCOV(m.n_norcov, 1) = i;
          m.NORCOV(m.n_norcov, 2) = j;
        }
    find_residual_parts(m, f.asked, parts, work.matrices.draw, run.report);
    number_sequence numbers(77);
    dense_matrix B(nt);
    for (double& x : B.cells) x = numbers.between(-1.0, 1.0);
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j)
        for (std::int32_t k = 1; k <= nt; ++k)
          S(i, j) += 5.0 * B(i, k) * B(j, k) + (i == j && k == 1 ? 3 : 0);
  }
  static described_model description(std::int32_t traits) {
    std::vector<double> R;
    for (std::int32_t i = 0; i < traits * traits; ++i) R.push_back(i % (traits + 1) == 0 ? 1.0 : 0.0);
    return prior_description(std::vector<std::int32_t>(static_cast<std::size_t>(traits), 1), 4, 2, R);
  }
  double chi_square(double df) {
    std::gamma_distribution<double> gamma(df / 2.0, 2.0);
    return gamma(engine);
  }

  // Elements of the star: variance, and covariance with the centre, of each trait.
  std::vector<double> functions(const dense_matrix& R) const {
    std::vector<double> out;
    for (std::int32_t i = 1; i <= p; ++i) {
      out.push_back(R(i, i));
      if (i != centre) out.push_back(R(i, centre));
    }
    if (nt > p) out.push_back(R(nt, nt));
    return out;
  }

  dense_matrix direct_draw(double df, double df_alone) {
    std::vector<std::int32_t> o;
    for (std::int32_t i = 1; i <= p; ++i)
      if (i != centre) o.push_back(i);
    const auto n = static_cast<std::int32_t>(o.size());
    const auto of = [&](std::int32_t i) { return o[static_cast<std::size_t>(i - 1)]; };
    dense_matrix S_oo(n);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= n; ++j) S_oo(i, j) = S(of(i), of(j));
    const dense_matrix V = dense_inverse(S_oo).inverse, L = factor(V, n);
    dense_matrix R(nt);
    double q = S(centre, centre);
    std::vector<double> b(static_cast<std::size_t>(n));
    for (std::int32_t i = 1; i <= n; ++i) {
      R(of(i), of(i)) = S(of(i), of(i)) / chi_square(df + p - 3);
      for (std::int32_t j = 1; j <= n; ++j) b[static_cast<std::size_t>(i - 1)] += V(i, j) * S(of(j), centre);
      q -= b[static_cast<std::size_t>(i - 1)] * S(of(i), centre);
    }
    const double g = q / chi_square(df);
    R(centre, centre) = g;
    std::vector<double> z(static_cast<std::size_t>(n));
    for (double& x : z) x = normal();
    for (std::int32_t i = 1; i <= n; ++i) {
      double b_i = b[static_cast<std::size_t>(i - 1)];
      for (std::int32_t j = 1; j <= i; ++j)
        b_i += std::sqrt(g) * L(i, j) * z[static_cast<std::size_t>(j - 1)];
      R(of(i), centre) = b_i * R(of(i), of(i));
      R(centre, centre) += b_i * b_i * R(of(i), of(i));
    }
    if (nt > p) R(nt, nt) = S(nt, nt) / chi_square(df_alone);
    return R;
  }

  // Means and mean squared deviations of all elements: chain less direct draws, in batches of 200.
  void hold(std::int64_t n_records, std::int64_t prior_df, double df, double df_alone) {
    dense_matrix R(nt);
    for (std::int32_t i = 1; i <= nt; ++i) R(i, i) = 1.0;
    mat<double> W;
    W.take(nt, nt);
    const auto round = [&] {
      for (std::int32_t i = 1; i <= nt; ++i)
        for (std::int32_t j = 1; j <= nt; ++j) W(i, j) = S(i, j);
      draw_residual_parts(run.report, sources, parts, R.cells.data(), n_records, prior_df, W,
                          work.matrices.draw);
      for (std::int32_t i = 1; i <= nt; ++i)
        for (std::int32_t j = 1; j <= nt; ++j) R(i, j) = W(i, j);
    };
    std::vector<double> middle(functions(R).size());
    for (int k = 0; k < 20000; ++k) {
      const std::vector<double> x = functions(direct_draw(df, df_alone));
      for (std::size_t i = 0; i < x.size(); ++i) middle[i] += x[i] / 20000;
    }
    for (int k = 0; k < 100; ++k) round();
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j < i; ++j)
        EXPECT_TRUE((i <= p && (i == centre || j == centre)) || (R(i, j) == 0.0 && R(j, i) == 0.0));

    constexpr int batches = 150, length = 200;
    std::vector<double> sum(2 * middle.size()), squares(sum.size());
    for (int b = 0; b < batches; ++b) {
      std::vector<double> batch(sum.size());
      for (int k = 0; k < length; ++k) {
        round();
        add(batch, functions(R), middle, 1.0 / length);
        add(batch, functions(direct_draw(df, df_alone)), middle, -1.0 / length);
      }
      for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += batch[i], squares[i] += batch[i] * batch[i];
    }
    for (std::size_t i = 0; i < sum.size(); ++i) {
      const double mean = sum[i] / batches, variance = squares[i] / batches - mean * mean;
      EXPECT_LT(std::fabs(mean) / std::sqrt(variance / batches), 4.5)
          << (i % 2 == 0 ? "mean " : "variance ") << i / 2;
    }
  }
  static void add(std::vector<double>& to, const std::vector<double>& x, const std::vector<double>& middle,
                  double c) {
    for (std::size_t i = 0; i < x.size(); ++i) {
      to[2 * i] += c * (x[i] - middle[i]);
      to[2 * i + 1] += c * (x[i] - middle[i]) * (x[i] - middle[i]);
    }
  }
};

TEST(draw_residual_parts, of_three_traits_without_one_covariance_is_that_of_direct_draws) {
  star_case(3, 3, 2).hold(9, 8, 9 + 8, 0);
}
TEST(draw_residual_parts, of_three_traits_under_a_flat_prior_is_that_of_direct_draws) {
  star_case(3, 3, 1).hold(18, 0, 18 - 3 - 1, 0);
}
TEST(draw_residual_parts, of_four_traits_around_one_is_that_of_direct_draws) {
  star_case(4, 4, 3).hold(12, 9, 12 + 9, 0);
}
// The degrees of freedom of a part are those of its own order: 8 + 9 - 4 + 3, and 8 + 9 - 4 + 1 of trait 4.
TEST(draw_residual_parts, beside_a_trait_alone_is_that_of_direct_draws) {
  star_case(4, 3, 2).hold(8, 9, 16, 14);
}
TEST(draw_residual_parts, beside_a_trait_alone_under_a_flat_prior_is_that_of_direct_draws) {
  star_case(4, 3, 2).hold(20, 0, 20 - 3 - 1, 20 - 1 - 1);
}

} // namespace
} // namespace zeph_test
