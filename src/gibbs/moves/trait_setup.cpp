#include "gibbs/moves/trait_setup.h"

#include "gibbs/scan/scan_records.h"
#include "input/structures.h"

#include <algorithm>
#include <string_view>

namespace zeph {
namespace {

// Places of the factors' levels: the trait that has entries there.
struct row_owners {
  static constexpr std::int32_t nobody = 0, shared = -1;
  std::vector<std::vector<std::int32_t>> owner; // [k-1][row-1]
};

row_owners find_owners(const scan_records& r) {
  row_owners found;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k)
    found.owner.emplace_back(static_cast<std::size_t>(r.model.RMAT(k).n_rc), row_owners::nobody);
  const design_store& d = r.design;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
      const std::int32_t k = d.XD7_M(j, irec), t = d.XD2_M(j, irec);
      if (k == 0 || t <= 0) continue;
      std::int32_t& owner =
          found.owner[static_cast<std::size_t>(k - 1)][static_cast<std::size_t>(d.XD5_M(j, irec) - 1)];
      if (owner != t) owner = owner == row_owners::nobody ? t : row_owners::shared;
    }
  return found;
}

// True where an entry of trait t in factor k is in a row with entries of other traits too.
bool shares_a_row(const scan_records& r, const row_owners& rows, std::int32_t t) {
  const design_store& d = r.design;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
      const std::int32_t k = d.XD7_M(j, irec);
      if (k > 0 && d.XD2_M(j, irec) == t &&
          rows.owner[static_cast<std::size_t>(k - 1)][static_cast<std::size_t>(d.XD5_M(j, irec) - 1)] ==
              row_owners::shared)
        return true;
    }
  return false;
}

bool has_mixture_entry(const design_store& d, std::int32_t t) {
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
      if (d.XD2_M(j, irec) == t && d.XD6_M(j, irec) > 0) return true;
  return false;
}

void take_rows(const scan_records& r, const row_owners& rows, trait_move& trait) {
  trait.rows.assign(static_cast<std::size_t>(r.model.nramat), {});
  for (std::size_t k = 0; k < trait.rows.size(); ++k)
    for (std::size_t i = 0; i < rows.owner[k].size(); ++i)
      if (rows.owner[k][i] == trait.t) trait.rows[k].push_back(static_cast<std::int32_t>(i) + 1);
}

void add_range(trait_move& trait, std::int32_t first_less_one, std::int32_t n) {
  for (std::int32_t i = 1; i <= n; ++i) trait.equations.push_back(first_less_one + i);
}

// Plain and nested regressions and class effects.
void take_equations(const model_records& m, trait_move& trait) {
  const trait_record& x = m.MODEL(trait.t);
  for (std::int32_t j = 1; j <= x.n_reg; ++j) {
    if (x.REG_TYPE(j) == 0) add_range(trait, m.NBEGREG(trait.t, j), 1);
    if (x.REG_TYPE(j) == 1) add_range(trait, m.NBEGREG(trait.t, j), m.NLEV(trait.t, x.REG_N_EF_INP(j)));
  }
  for (std::int32_t j = 1; j <= x.n_f; ++j)
    if (x.INTERCEPT(j)) add_range(trait, m.NBEGF(trait.t, j), m.NLEV(trait.t, j));
}

// Equations of the fixed part that records of the trait have entries in, less those restricted to 0.
std::int64_t count_equations_with_records(const scan_records& r, std::int32_t t) {
  const design_store& d = r.design;
  std::vector<std::int32_t> met;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
      if (d.XD7_M(j, irec) == 0 && d.XD2_M(j, irec) == t) met.push_back(d.XD1_M(j, irec));
  std::ranges::sort(met);
  met.erase(std::unique(met.begin(), met.end()), met.end());
  for (std::int32_t k = 1; k <= r.sampler.n_IREST; ++k) std::erase(met, r.sampler.IREST(k));
  return static_cast<std::int64_t>(met.size());
}

// Why the trait's rows of the factors can't be scaled; empty: they can.
std::string_view fault_of_rows(const scan_records& r, const round_state& state, const row_owners& rows,
                               const trait_move& trait) {
  if (shares_a_row(r, rows, trait.t)) return "a row of a random factor is shared with another trait";
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    if (trait.rows[static_cast<std::size_t>(k - 1)].empty()) continue;
    const structure_record& factor = r.model.RMAT(k);
    if (is_pedigree(factor) && factor.L_RAM) return "reduced animal model";
    if (has_parent_groups(factor)) return "phantom parent groups";
    if (!state.matopd(k)) return "a matrix is not drawn";
  }
  return {};
}

// The same of an ordered trait's categories and residual covariances, which are found here.
std::string_view fault_of_categories(const scan_records& r, const directives& asked, const round_state& state,
                                     trait_move& trait) {
  const auto& all = r.categories.catstr;
  const auto found = std::ranges::find(all, trait.t, &category_record::trait);
  if (found == all.end() || found->ncat_t < 3) return "fewer than three categories";
  trait.c = static_cast<std::int32_t>(found - all.begin()) + 1;
  const auto in_the_highest = [&] {
    for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec)
      if (r.categories.catobs(trait.c, irec) >= found->ncat_t - 1) return true;
    return false;
  };
  if (!in_the_highest()) return "no records in the two highest categories";
  if (!state.matopd(r.model.nramat + 1)) return "a matrix is not drawn";
  free_part part = free_part_of(r.model, trait.t, r.report);
  if (part.held && !asked.sampler.exact) return "a residual covariance is held at zero";
  trait.part = std::move(part.traits);
  trait.free = part.free;
  return {};
}

trait_move describe(const scan_records& r, const directives& asked, const round_state& state,
                    const row_owners& rows, std::int32_t t) {
  trait_move trait;
  trait.t = t;
  take_equations(r.model, trait);
  take_rows(r, rows, trait);
  trait.n_t = count_equations_with_records(r, t);
  if (!samples_matrices(asked.analysis_type)) trait.why = "matrices as given";
  if (trait.why.empty()) trait.why = fault_of_rows(r, state, rows, trait);
  if (trait.why.empty() && (r.model.MODEL(t).L_MIX_TRAIT || has_mixture_entry(r.design, t)))
    trait.why = "mixtures";
  if (trait.why.empty() && r.model.MODEL(t).TRAIT_TYPE == trait_categorical)
    trait.why = fault_of_categories(r, asked, state, trait);
  trait.moves = trait.why.empty();
  return trait;
}

} // namespace

void find_traits(scan_records& r, const directives& asked, const round_state& state) {
  move_store& moves = r.work.moves;
  moves.traits.clear();
  if (!r.model.has_type(trait_categorical) && !r.model.has_type(trait_liability)) return;
  const row_owners rows = find_owners(r);
  std::int32_t inner = 0; // most inner categories of a trait that moves
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    const std::int32_t kind = r.model.MODEL(t).TRAIT_TYPE;
    if (kind != trait_categorical && kind != trait_liability) continue;
    moves.traits.push_back(describe(r, asked, state, rows, t));
    const trait_move& trait = moves.traits.back();
    if (trait.moves && kind == trait_categorical)
      inner = std::max(inner, r.categories.catstr[static_cast<std::size_t>(trait.c - 1)].ncat_t - 2);
  }
  if (inner > 0) allocate_threshold_work(r.report, moves.thresholds, inner);
}

} // namespace zeph
