#include "gibbs/moves/trait_scaling.h"

#include "gibbs/scan/scan_records.h"

#include <algorithm>

namespace zeph {
namespace {

// Rows of factor k in the model in force.
std::int32_t rows_in_force(const scan_records& r, std::int32_t k) {
  return r.layout.NGR(r.layout.group_of_factor(k, r.model.nramat), 2);
}

bool is_row_of(const trait_move& trait, std::int32_t k, std::int32_t row) {
  const std::vector<std::int32_t>& rows = trait.rows[static_cast<std::size_t>(k - 1)];
  return std::ranges::find(rows, row) != rows.end();
}

} // namespace

scale_terms terms_of_factors(const scan_records& r, const directives& asked, const trait_move& trait) {
  scale_terms sum;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    const std::int32_t p = rows_in_force(r, k);
    const factor_prior prior = prior_of_factor(r.model, asked, k, p);
    for (std::int32_t i = 1; i <= p; ++i) {
      if (!is_row_of(trait, k, i)) continue;
      sum.m -= static_cast<double>(prior.nu); // the uniform prior: nu = -(p + 1)
      for (std::int32_t j = 1; j <= p; ++j) {
        const double x = prior.weight * r.model.RMAT(k).COV_MAT(j, i) * r.sampler.GIF(i, j, k);
        (is_row_of(trait, k, j) ? sum.c2 : sum.c1) += x;
      }
    }
  }
  return sum;
}

void scale_solutions(scan_records& r, const trait_move& trait, double c) {
  for (const std::int32_t e : trait.equations) r.sampler.sol(e) *= c;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    const std::int32_t p = rows_in_force(r, k), stride = r.model.RMAT(k).n_rc;
    for (std::int32_t i = 1; i <= p; ++i) {
      if (!is_row_of(trait, k, i)) continue;
      for (std::int32_t l = 0; l < r.model.NRALEV(k); ++l)
        r.sampler.sol(r.model.NBEGRA(k) + std::int64_t{l} * stride + i) *= c;
      for (std::int32_t j = 1; j <= p; ++j) {
        r.sampler.GIF(i, j, k) /= c;
        r.sampler.GIF(j, i, k) /= c;
      }
    }
  }
}

void read_residuals(scan_records& r, const directives& asked, std::int32_t t, std::int32_t lo,
                    std::int32_t hi, trait_residuals& x) {
  record_values& values = r.work.values;
  const latent_work& latent = r.work.latent;
  const std::int32_t nt = r.model.nt, n = hi - lo;
  if (values.kept == nullptr || values.weighted || r.sampler.G > 1) {
    const record_entries entries = entries_of(r, asked.analysis_type);
    for (std::int32_t i = 0; i < n; ++i) {
      take_record(entries, values, lo + i + 1);
      const auto at = static_cast<std::size_t>(i);
      x.e[at] = values.res(t);
      x.mean[at] = mean_of_residual(latent, values.res.data(), nt, t, r.design.IRESG_M(lo + i + 1));
    }
    return;
  }
  // the same coefficients for all records: column by column
  std::copy_n(values.kept->unchecked_col(t) + lo, n, x.e.begin());
  std::fill_n(x.mean.begin(), n, 0.0);
  for (std::int32_t u = 1; u <= nt; ++u) {
    if (u == t) continue;
    const double c = latent.coefficient(u, t, 1);
    const double* e = values.kept->unchecked_col(u) + lo;
    for (std::int32_t i = 0; i < n; ++i) x.mean[static_cast<std::size_t>(i)] += c * e[i];
  }
}

} // namespace zeph
