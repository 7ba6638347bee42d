// Two runs of one prepared directory round by round, one with the plain body of
// the scan and one with the fast body: what they leave agrees to rounding.
#pragma once

#include "control/run_driver.h"
#include "gibbs/scan/gibscan.h"
#include "listing/stops.h"
#include "support/scratch_directory.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace zeph_test {

// Largest difference of two rows of numbers as a share of the larger of the
// largest size and `least`.
inline double share_apart(const double* a, const double* b, std::int64_t n, double least = 0.0) {
  double apart = 0.0, size = least;
  for (std::int64_t i = 0; i < n; ++i) {
    apart = std::max(apart, std::fabs(a[i] - b[i]));
    size = std::max({size, std::fabs(a[i]), std::fabs(b[i])});
    if (!std::isfinite(a[i]) || !std::isfinite(b[i])) return std::numeric_limits<double>::infinity();
  }
  return size > 0.0 ? apart / size : apart;
}

struct body_run {
  explicit body_run(const std::string& path, bool plain) : r(listing, path) {
    try {
      zeph::start_run(r);
      started = true;
    } catch (const zeph::run_stop&) {}
    if (plain) r.work.body = zeph::scan_body::plain;
  }
  // False when the run stopped.
  bool round() {
    zeph::scan_records records = zeph::records_of(r);
    ++r.state.iround;
    try {
      zeph::GIBSCAN(records, r.asked, r.state, r.counts, r.files);
    } catch (const zeph::run_stop&) {
      return false;
    }
    return true;
  }
  std::ostringstream listing;
  zeph::run r;
  bool started = false;
};

struct bodies_apart {
  bool ran = false; // both runs started and made all rounds
  bool fast = false;
  bool samples_alike = false; // gib.samples of both runs are the same bytes
  double rhs = 0.0, sol = 0.0, matrices = 0.0, sums = 0.0;
  double lik = 0.0;          // of the values in py,
  std::size_t densities = 0; // of which there are so many
};

inline std::string bytes_in(const scratch_directory& directory, const char* name) {
  return directory.has(name) ? directory.read(name) : "";
}

// Last values of the rows of py.
inline std::vector<double> densities_in(const scratch_directory& directory) {
  std::istringstream rows(bytes_in(directory, "py"));
  std::vector<double> out;
  for (std::string row; std::getline(rows, row);) out.push_back(std::stod(row.substr(row.rfind(' '))));
  return out;
}

// `rounds` rounds of both; right-hand sides by group after the first round,
// solutions, matrices, observations and sums of squares after each.
inline bodies_apart compare_bodies(const scratch_directory& prepared, const std::string& files, int rounds) {
  bodies_apart out;
  const scratch_directory one, two;
  one.take_files_of(prepared / files);
  two.take_files_of(prepared / files);
  body_run plain(one.path(), true), fast(two.path(), false);
  if (!plain.started || !fast.started) return out;
  for (int round = 1; round <= rounds; ++round) {
    const bool a = plain.round(), b = fast.round();
    EXPECT_EQ(a, b) << plain.listing.str() << fast.listing.str();
    if (!a || !b) return out;
    zeph::sampler_store &p = plain.r.sampler, &q = fast.r.sampler;
    const zeph::equation_layout& layout = plain.r.layout;
    for (std::int32_t g = 1; g <= layout.ngroups && round == 1; ++g) {
      if (plain.r.design.covariates.feeds(g)) continue; // the second stage has filled them again
      const std::int64_t base = layout.group(g).base, n = layout.NGR(g, 1) * layout.group(g).stride;
      out.rhs = std::max(out.rhs, share_apart(p.RHS.data() + base, q.RHS.data() + base, n));
    }
    out.sol = std::max(out.sol, share_apart(p.sol.data(), q.sol.data(), p.sol.size()));
    out.sums = std::max(out.sums, share_apart(p.sscp.data(), q.sscp.data(), p.sscp.size()));
    for (const auto member : {&zeph::sampler_store::GIF, &zeph::sampler_store::RCOV})
      out.matrices =
          std::max(out.matrices, share_apart((p.*member).data(), (q.*member).data(), (p.*member).size()));
    for (std::int64_t i = 0; i < plain.r.design.Y_M.size(); ++i) {
      const double y = static_cast<double>(plain.r.design.Y_M.data()[i]);
      const double x = static_cast<double>(fast.r.design.Y_M.data()[i]);
      if (std::isfinite(y) && std::fabs(x - y) > 1e-6 * (std::fabs(y) + 1.0)) out.sums = 1.0;
    }
    EXPECT_EQ(plain.r.sources.marsaglia.saved.U, fast.r.sources.marsaglia.saved.U) << "round " << round;
  }
  out.ran = true;
  out.samples_alike = bytes_in(one, "gib.samples") == bytes_in(two, "gib.samples");
  const std::vector<double> p = densities_in(one), q = densities_in(two);
  EXPECT_EQ(p.size(), q.size());
  out.densities = p.size();
  for (std::size_t i = 0; i < std::min(p.size(), q.size()); ++i)
    if (p[i] != q[i]) out.lik = std::max(out.lik, share_apart(&p[i], &q[i], 1)); // two infinities are alike
  out.fast = fast.r.work.body == zeph::scan_body::fast;
  return out;
}

} // namespace zeph_test
