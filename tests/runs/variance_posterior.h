// Exact posterior of two variances by quadrature: y = X b + Z u + e with
// u ~ N(0, K su), e ~ N(0, I se), flat b. The density of (su, se) given y is
//   prior x prod over i of (su d_i + se)^-1/2 exp(-z_i^2 / 2 (su d_i + se)),
// d and z the eigenvalues and rotated contrasts of P Z K Z' P, P the projector
// on what X leaves over; the places of X itself (d = 0, z = 0) don't count.
#pragma once

#include "runs/dense_solution.h"

#include <algorithm>
#include <functional>

namespace zeph_test {

// A flat prior, or inverse Wishart of order 1: s^-(df+2)/2 exp(-(df-2) mean / 2s).
struct variance_prior {
  double df = 0.0, mean = 0.0;
  double log_density(double s) const {
    return df > 2.0 ? -0.5 * (df + 2.0) * std::log(s) - 0.5 * (df - 2.0) * mean / s : 0.0;
  }
};

class variance_posterior {
public:
  // X: n x p of full rank by rows; K: n x n covariance of Z u at su = 1
  variance_posterior(const std::vector<double>& y, const square& X, const dense_matrix& K,
                     variance_prior of_u, variance_prior of_e)
      : n(y.size()), p(X.at(0).size()), prior_u(of_u), prior_e(of_e) {
    rotate(y, projector(X), K);
    lay_grid();
  }

  // Posterior mean of f(su, se).
  double mean(const std::function<double(double, double)>& f) const {
    double sum = 0.0;
    for (const point& q : points) sum += q.weight * f(q.su, q.se);
    return sum;
  }
  double sd(const std::function<double(double, double)>& f) const {
    const double m = mean(f);
    return std::sqrt(mean([&](double u, double e) { return (f(u, e) - m) * (f(u, e) - m); }));
  }
  // Bound x with P(f <= x) as near to share as the grid allows, and that P.
  std::pair<double, double> quantile(const std::function<double(double, double)>& f, double share) const {
    std::vector<std::pair<double, double>> values; // value, weight
    for (const point& q : points) values.emplace_back(f(q.su, q.se), q.weight);
    std::sort(values.begin(), values.end());
    double sum = 0.0;
    for (std::size_t i = 0; i < values.size();) { // points of one value belong together
      const double value = values[i].first;
      double step = 0.0;
      for (; i < values.size() && values[i].first <= value * (1.0 + 1e-12); ++i) step += values[i].second;
      // half of a point's cell lies below it
      if (sum + 0.5 * step >= share) return {value, sum + 0.5 * step};
      sum += step;
    }
    return {values.back().first, 1.0};
  }

private:
  struct point {
    double su, se, weight;
  };

  dense_matrix projector(const square& X) const {
    dense_matrix XX(static_cast<std::int64_t>(p)), P(static_cast<std::int64_t>(n));
    for (std::size_t i = 0; i < p; ++i)
      for (std::size_t j = 0; j < p; ++j)
        for (const auto& row : X) XX(at(i), at(j)) += row[i] * row[j];
    const dense_matrix C = dense_inverse(XX).inverse;
    for (std::size_t r = 0; r < n; ++r)
      for (std::size_t s = 0; s < n; ++s) {
        P(at(r), at(s)) = r == s ? 1.0 : 0.0;
        for (std::size_t i = 0; i < p; ++i)
          for (std::size_t j = 0; j < p; ++j) P(at(r), at(s)) -= X[r][i] * C(at(i), at(j)) * X[s][j];
      }
    return P;
  }
  static std::int64_t at(std::size_t i) { return static_cast<std::int64_t>(i) + 1; }

  void rotate(const std::vector<double>& y, const dense_matrix& P, const dense_matrix& K) {
    dense_matrix KP(P.n), S(P.n);
    for (std::int64_t i = 1; i <= P.n; ++i)
      for (std::int64_t j = 1; j <= P.n; ++j)
        for (std::int64_t k = 1; k <= P.n; ++k) KP(i, j) += K(i, k) * P(k, j);
    for (std::int64_t i = 1; i <= P.n; ++i)
      for (std::int64_t j = 1; j <= P.n; ++j)
        for (std::int64_t k = 1; k <= P.n; ++k) S(i, j) += P(i, k) * KP(k, j);
    const int order = static_cast<int>(n), room = 40 * order;
    std::vector<double> work(static_cast<std::size_t>(room));
    d.resize(n);
    int info = 0;
    dsyev_("V", "U", &order, S.cells.data(), &order, d.data(), work.data(), &room, &info);
    EXPECT_EQ(info, 0);
    std::vector<double> rest(n, 0.0);
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) rest[i] += P(at(i), at(j)) * y[j];
    z.assign(n, 0.0);
    for (std::size_t k = 0; k < n; ++k) {
      d[k] = std::max(d[k], 0.0);
      for (std::size_t i = 0; i < n; ++i) z[k] += S.cells[k * n + i] * rest[i];
    }
  }

  // of log su and log se, so with the factor su se
  double log_density(double log_su, double log_se) const {
    const double su = std::exp(log_su), se = std::exp(log_se);
    double sum = log_su + log_se + 0.5 * static_cast<double>(p) * log_se;
    for (std::size_t k = 0; k < n; ++k) {
      const double v = su * d[k] + se;
      sum -= 0.5 * (std::log(v) + z[k] * z[k] / v);
    }
    return sum + prior_u.log_density(su) + prior_e.log_density(se);
  }

  // First where the mass lies, then an even grid there; beyond it the density
  // is below exp(-32) of its peak.
  void lay_grid() {
    constexpr int coarse = 90, fine = 420;
    constexpr double low = -12.0, high = 12.0, step = (high - low) / coarse;
    double peak = -HUGE_VAL, box[4] = {high, low, high, low};
    std::vector<double> value;
    for (int i = 0; i <= coarse; ++i)
      for (int j = 0; j <= coarse; ++j) {
        value.push_back(log_density(low + i * step, low + j * step));
        peak = std::max(peak, value.back());
      }
    for (int i = 0; i <= coarse; ++i)
      for (int j = 0; j <= coarse; ++j) {
        if (value[static_cast<std::size_t>(i * (coarse + 1) + j)] < peak - 32.0) continue;
        box[0] = std::min(box[0], low + (i - 1) * step), box[1] = std::max(box[1], low + (i + 1) * step);
        box[2] = std::min(box[2], low + (j - 1) * step), box[3] = std::max(box[3], low + (j + 1) * step);
      }
    double total = 0.0;
    for (int i = 0; i <= fine; ++i)
      for (int j = 0; j <= fine; ++j) {
        const double u = box[0] + (box[1] - box[0]) * i / fine, e = box[2] + (box[3] - box[2]) * j / fine;
        const double weight = std::exp(log_density(u, e) - peak);
        total += weight;
        points.push_back({std::exp(u), std::exp(e), weight});
      }
    for (point& q : points) q.weight /= total;
  }

  std::size_t n, p;
  variance_prior prior_u, prior_e;
  std::vector<double> d, z;
  std::vector<point> points;
};

} // namespace zeph_test
