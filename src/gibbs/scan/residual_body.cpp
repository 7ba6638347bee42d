#include "gibbs/scan/residual_body.h"

#include "gibbs/residuals/fast_residual_pass.h"
#include "gibbs/scan/level_draws.h"
#include "gibbs/scan/scan_groups.h"
#include "input/structures.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <vector>

namespace zeph {
namespace {

group_form& form_of(residual_form& fast, std::int32_t g) {
  return fast.groups[static_cast<std::size_t>(g - 1)];
}
const group_form& form_of(const residual_form& fast, std::int32_t g) {
  return fast.groups[static_cast<std::size_t>(g - 1)];
}

// Equations of all levels of a group, from its base on: levels times stride.
std::int64_t equations_of(const equation_layout& layout, std::int32_t g) {
  return std::int64_t{layout.NGR(g, 1)} * layout.group(g).stride;
}

// Rows of a level beyond NGR(g,2) belong to traits that the model in force leaves out.
bool active(const design_slot& slot, std::int32_t places) { return slot.place <= places; }

// e -= Z x over the elements of one slot that lie in records lo..hi of block b
void subtract_slot(const design_slot& slot, column_view<const double> x, column_view<double> e,
                   std::int64_t lo, std::int64_t hi) {
  // element i of the slot is record i: no list of records to read
  if (slot.every_record) {
    const auto row = view_of(slot.row);
    if (slot.ones) {
      for (std::int64_t i = lo; i < hi; ++i) e[i] -= x[row[i]];
    } else {
      const auto z = view_of(slot.z);
      for (std::int64_t i = lo; i < hi; ++i) e[i] -= z[i] * x[row[i]];
    }
    return;
  }
  // first(b+1) .. first(b+2)-1: the elements in records of block b
  const std::int64_t block = lo / records_of_block;
  const std::int64_t from = slot.first(block + 1), to = slot.first(block + 2);
  const auto row = view_of(slot.row), rec = view_of(slot.rec);
  if (slot.ones) {
    for (std::int64_t k = from; k < to; ++k) e[rec[k]] -= x[row[k]];
  } else {
    const auto z = view_of(slot.z);
    for (std::int64_t k = from; k < to; ++k) e[rec[k]] -= z[k] * x[row[k]];
  }
}

// sums += Z' w over the elements of one slot in records lo..hi; w(0) is record lo. Record i adds to
// partial sum i mod 4: sums itself, or `partial`, whose three rows are `apart` elements long
// (apart = 0: no partial sums). walk_records adds them up.
void add_slot(const design_slot& slot, column_view<const double> w, column_view<double> sums,
              column_view<double> partial, std::int64_t apart, std::int64_t lo, std::int64_t hi) {
  const auto row = view_of(slot.row);
  const auto z = slot.ones ? column_view<const double>() : view_of(slot.z);
  if (slot.every_record) {
    std::int64_t i = lo;
    if (apart > 0) {
      // four neighbours add to four arrays, so that no addition waits for the one before it
      const auto s1 = partial.part(0, apart), s2 = partial.part(apart, apart),
                 s3 = partial.part(2 * apart, apart);
      for (; i + 4 <= hi; i += 4) {
        const auto v = w.part(i - lo, 4);
        sums[row[i]] += z ? z[i] * v[0] : v[0];
        s1[row[i + 1]] += z ? z[i + 1] * v[1] : v[1];
        s2[row[i + 2]] += z ? z[i + 2] * v[2] : v[2];
        s3[row[i + 3]] += z ? z[i + 3] * v[3] : v[3];
      }
    }
    if (z) {
      for (; i < hi; ++i) sums[row[i]] += z[i] * w[i - lo];
    } else {
      for (; i < hi; ++i) sums[row[i]] += w[i - lo];
    }
    return;
  }
  const std::int64_t block = lo / records_of_block;
  std::int64_t k = slot.first(block + 1);
  const std::int64_t to = slot.first(block + 2);
  const auto rec = view_of(slot.rec);
  w = w.numbered_from(lo); // w[rec] is that of the record
  if (apart > 0) {
    const auto s1 = partial.part(0, apart), s2 = partial.part(apart, apart),
               s3 = partial.part(2 * apart, apart);
    for (; k + 4 <= to; k += 4) {
      sums[row[k]] += z ? z[k] * w[rec[k]] : w[rec[k]];
      s1[row[k + 1]] += z ? z[k + 1] * w[rec[k + 1]] : w[rec[k + 1]];
      s2[row[k + 2]] += z ? z[k + 2] * w[rec[k + 2]] : w[rec[k + 2]];
      s3[row[k + 3]] += z ? z[k + 3] * w[rec[k + 3]] : w[rec[k + 3]];
    }
  }
  if (z) {
    for (; k < to; ++k) sums[row[k]] += z[k] * w[rec[k]];
  } else {
    for (; k < to; ++k) sums[row[k]] += w[rec[k]];
  }
}

// Columns of classes that every record has, taken out of the residuals together.
struct class_columns {
  static constexpr int most = 4;
  column_view<const std::int32_t> row[most];
  column_view<const double> x[most];
  int n = 0;

  bool add(const design_slot& slot, column_view<const double> solutions) {
    if (n == most || !slot.every_record || !slot.ones) return false;
    row[n] = view_of(slot.row);
    x[n++] = solutions;
    return true;
  }
  // e_i -= x1(r1_i) + x2(r2_i): two columns in one walk, each residual loaded and stored once
  void subtract(column_view<double> e, std::int64_t lo, std::int64_t hi) const {
    int k = 0;
    for (; k + 2 <= n; k += 2) {
      const auto r1 = row[k], r2 = row[k + 1];
      const auto x1 = x[k], x2 = x[k + 1];
      for (std::int64_t i = lo; i < hi; ++i) e[i] = e[i] - x1[r1[i]] - x2[r2[i]];
    }
    if (k == n) return;
    const auto r1 = row[k];
    const auto x1 = x[k];
    for (std::int64_t i = lo; i < hi; ++i) e[i] -= x1[r1[i]];
  }
};

// e -= Z_left x and sums += Z_entered' e for two columns of classes in one walk: the residuals of a
// record are touched once between two groups. Partial sums as in add_slot.
void pass_on(column_view<const std::int32_t> left, column_view<const double> x,
             column_view<const std::int32_t> entered, column_view<double> e, column_view<double> sums,
             column_view<double> partial, std::int64_t apart, std::int64_t lo, std::int64_t hi) {
  std::int64_t i = lo;
  if (apart > 0) {
    const auto s1 = partial.part(0, apart), s2 = partial.part(apart, apart),
               s3 = partial.part(2 * apart, apart);
    for (; i + 4 <= hi; i += 4) {
      // e = e - Z_left x of four records, then each into the partial sum of its remainder
      const double e0 = e[i] - x[left[i]], e1 = e[i + 1] - x[left[i + 1]];
      const double e2 = e[i + 2] - x[left[i + 2]], e3 = e[i + 3] - x[left[i + 3]];
      e[i] = e0, e[i + 1] = e1, e[i + 2] = e2, e[i + 3] = e3;
      sums[entered[i]] += e0;
      s1[entered[i + 1]] += e1;
      s2[entered[i + 2]] += e2;
      s3[entered[i + 3]] += e3;
    }
  }
  for (; i < hi; ++i) {
    const double rest = e[i] - x[left[i]];
    e[i] = rest;
    sums[entered[i]] += rest;
  }
}

// The one column of a group, when it is of classes that every record has; else null.
const design_slot* lone_class(const group_form& group, std::int32_t places) {
  if (group.slots.size() != 1 || !active(group.slots[0], places)) return nullptr;
  return group.slots[0].every_record && group.slots[0].ones ? &group.slots[0] : nullptr;
}

// R^-1 of record irec (from 1), nt x nt, without weights: in the solver that of the record's pattern (the
// swept one among the sources of covariables), with sampling that of its residual group.
column_view<const double> residual_inverse(const design_store& design, const sampler_store& sampler,
                                           const residual_inverses& inverses, const residual_form& fast,
                                           const directives& asked, scan_stage stage, std::int64_t irec) {
  const std::int32_t h = design.IRESG_M(irec);
  if (!solves(asked.analysis_type)) return slice_of(sampler.RCOVI, h);
  const std::int64_t elements = inverses.by_pattern.extent(1) * inverses.by_pattern.extent(2);
  if (stage == scan_stage::sources) return {&fast.swept_inverse(1, 1, fast.mask_of(irec) + 1, h), elements};
  return {&inverses.by_pattern(1, 1, design.C_ISIT_M(irec), h), elements};
}

// W(:,t) = row t of R^-1 e for records lo+1..hi, one matrix for all. Elements 0
// of the inverse are skipped: e of a missing trait may be no number.
void weigh_alike(const model_records& model, const design_store& design, const sampler_store& sampler,
                 const residual_inverses& inverses, residual_form& fast, const directives& asked,
                 scan_stage stage, std::int32_t t, std::int64_t lo, std::int64_t hi) {
  const auto inverse = residual_inverse(design, sampler, inverses, fast, asked, stage, 1);
  const std::int64_t n = hi - lo;
  const auto w = col_of(fast.W, t); // w = sum over u of (R^-1)_tu e_u
  std::fill_n(w.part(0, n).unchecked(), n, 0.0);
  for (std::int32_t u = 1; u <= model.nt; ++u) {
    const double c = inverse[(t - 1) + (u - 1) * model.nt];
    if (c == 0.0) continue;
    const column_view<const double> e = col_of(fast.E, u).part(lo, n);
    for (std::int64_t i = 0; i < n; ++i) w[i] += c * e[i];
  }
}

// The same where groups, patterns or weights give each record its own inverse.
void weigh_each(const model_records& model, const design_store& design, const sampler_store& sampler,
                const residual_inverses& inverses, residual_form& fast, const directives& asked,
                scan_stage stage, std::int32_t t, bool weights, std::int64_t lo, std::int64_t hi) {
  const std::int32_t nt = model.nt;
  const auto w = col_of(fast.W, t);
  for (std::int64_t i = lo; i < hi; ++i) {
    // row t: every nt-th element from t on
    const auto inverse = residual_inverse(design, sampler, inverses, fast, asked, stage, i + 1)
                             .part(t - 1, std::int64_t{nt} * (nt - 1) + 1);
    const auto root = col_of(design.WV_SQRT_M, i + 1);
    // w_i = w_t c_tt e_t + w_t^1/2 sum over u of c_tu w_u^1/2 e_u, weights where the model has them
    double others = 0.0, own = 0.0;
    for (std::int32_t u = 1; u <= nt; ++u) {
      const double c = inverse[std::int64_t{u - 1} * nt];
      if (c == 0.0) continue;
      const double e = col_of(fast.E, u)[i];
      if (u == t)
        own = c * e;
      else
        others += weights ? c * static_cast<double>(root(u)) * e : c * e;
    }
    w[i - lo] = weights
                    ? static_cast<double>(design.WV_M(t, i + 1)) * own + static_cast<double>(root(t)) * others
                    : own + others;
  }
}

// Brings the change of the group left last into E and sums Z' R^-1 e of group g
// (0: none) into RHS, in one walk over blocks of records.
void walk_records(const model_records& model, const equation_layout& layout, const design_store& design,
                  sampler_store& sampler, const residual_inverses& inverses, residual_form& fast,
                  const directives& asked, scan_stage stage, std::int32_t g) {
  const bool weights = model.has_weights();
  const std::int64_t nobs = design.nobs;
  const std::int32_t left = fast.pending;
  const group_form* entered = g > 0 ? &form_of(fast, g) : nullptr;
  const std::int64_t extent = g > 0 ? equations_of(layout, g) : 0;
  const auto sums = g > 0 ? part_of(sampler.RHS, layout.group(g).base, extent) : column_view<double>();
  const std::int64_t apart = extent <= most_partial ? extent : 0;
  const auto partial = part_of(fast.partial, 0, (n_partial_sums - 1) * apart);
  const column_view<const double> change = view_of(fast.change);
  if (apart > 0) std::fill_n(partial.unchecked(), (n_partial_sums - 1) * apart, 0.0);
  // One trait and one matrix: R^-1 is a number, and RHS = R^-1 (Z'e) is scaled after the sums. With one
  // column of classes on either side, leaving and entering are one walk over the residuals.
  const bool plain_scale = fast.one_matrix && model.nt == 1;
  const design_slot *from = nullptr, *to = nullptr;
  if (plain_scale && left > 0 && g > 0) {
    from = lone_class(form_of(fast, left), layout.NGR(left, 2));
    to = lone_class(*entered, layout.NGR(g, 2));
  }
  // a block of records at a time, so that its residuals stay in the near caches: e -= Z_left change, then
  // W = R^-1 e, then RHS += Z_entered' W
  for (std::int64_t lo = 0; lo < nobs; lo += records_of_block) {
    const std::int64_t hi = std::min(lo + records_of_block, nobs);
    if (from != nullptr && to != nullptr) {
      pass_on(view_of(from->row), change, view_of(to->row), col_of(fast.E, 1), sums, partial, apart, lo, hi);
      continue;
    }
    if (left > 0)
      for (const design_slot& slot : form_of(fast, left).slots)
        if (active(slot, layout.NGR(left, 2)))
          subtract_slot(slot, change, col_of(fast.E, slot.trait), lo, hi);
    if (entered == nullptr) continue;
    if (!plain_scale)
      for (const std::int32_t t : entered->traits) {
        if (fast.one_matrix)
          weigh_alike(model, design, sampler, inverses, fast, asked, stage, t, lo, hi);
        else
          weigh_each(model, design, sampler, inverses, fast, asked, stage, t, weights, lo, hi);
      }
    for (const design_slot& slot : entered->slots) {
      if (!active(slot, layout.NGR(g, 2))) continue;
      const auto w = plain_scale ? col_of(fast.E, slot.trait).part(lo, hi - lo)
                                 : col_of(fast.W, slot.trait).part(0, hi - lo);
      add_slot(slot, w, sums, partial, apart, lo, hi);
    }
  }
  fast.pending = 0;
  if (apart > 0) // sums += partial sums 2 to 4
    for (std::int64_t q = 0; q < n_partial_sums - 1; ++q)
      for (std::int64_t i = 0; i < extent; ++i) sums[i] += partial[q * apart + i];
  if (g > 0 && plain_scale) { // one trait, one matrix: Z'e times R^-1
    const double c = residual_inverse(design, sampler, inverses, fast, asked, stage, 1)[0];
    for (std::int64_t i = 0; i < extent; ++i) sums[i] *= c;
  }
}

// z of the changing slots from ZD_M: mixture indicators and covariables made from solutions.
void read_changing_coefficients(const design_store& design, residual_form& fast) {
  for (group_form& group : fast.groups)
    for (design_slot& slot : group.slots) {
      if (!slot.changing) continue;
      for (std::int64_t k = 1; k <= slot.row.size(); ++k)
        slot.z(k) = design.ZD_M(slot.entry(k), slot.every_record ? k : slot.rec(k) + 1);
    }
}

// The same while E holds the residuals with the old coefficients: E -= (new - old) sol.
void move_changing_coefficients(const equation_layout& layout, const design_store& design,
                                const sampler_store& sampler, residual_form& fast) {
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    for (design_slot& slot : form_of(fast, g).slots) {
      if (!slot.changing) continue;
      const bool taken = active(slot, layout.NGR(g, 2));
      const auto x = part_of(sampler.sol, layout.group(g).base, equations_of(layout, g));
      const auto e = col_of(fast.E, slot.trait);
      for (std::int64_t k = 1; k <= slot.row.size(); ++k) {
        const std::int64_t rec = slot.every_record ? k : slot.rec(k) + 1;
        // e = y - z_old b becomes y - z b
        const double z = design.ZD_M(slot.entry(k), rec);
        if (taken) e(rec) -= (z - slot.z(k)) * x[slot.row(k)];
        slot.z(k) = z;
      }
    }
}

// Record of element k (from 0) of a slot, from 0.
std::int64_t record_of(const design_slot& slot, std::int64_t k) {
  return slot.every_record ? k : slot.rec(k + 1);
}

// Element (t,u) of the weighted residual inverse of record irec (from 1).
double weighted_inverse(const model_records& model, const design_store& design, const sampler_store& sampler,
                        const residual_inverses& inverses, const record_values& values,
                        const residual_form& fast, const directives& asked, scan_stage stage,
                        std::int64_t irec, std::int32_t t, std::int32_t u) {
  const double c =
      residual_inverse(design, sampler, inverses, fast, asked, stage, irec)[(t - 1) + (u - 1) * model.nt];
  if (!values.weighted) return c;
  if (t == u) return c * static_cast<double>(design.WV_M(t, irec));
  return c * static_cast<double>(design.WV_SQRT_M(t, irec)) * static_cast<double>(design.WV_SQRT_M(u, irec));
}

// Adds the products of two slots (or of one with itself) to the blocks of the levels in which they meet.
void add_slot_products(const model_records& model, const design_store& design, const sampler_store& sampler,
                       const residual_inverses& inverses, const record_values& values,
                       const residual_form& fast, const directives& asked, scan_stage stage,
                       const equation_group& group, const design_slot& a, const design_slot& b,
                       mat<double>& DI) {
  const std::int64_t n = a.row.size(), m = b.row.size();
  const bool same = &a == &b, alike = fast.one_matrix;
  // element (place of a, place of b) of the packed block, from 0
  const std::int32_t element = ihmij(a.place, b.place, 0) - 1;
  const double c1 = alike && design.nobs > 0 ? weighted_inverse(model, design, sampler, inverses, values,
                                                                fast, asked, stage, 1, a.trait, b.trait)
                                             : 0.0;
  const auto row_a = view_of(a.row), row_b = view_of(b.row);
  // a group of one level sums in a register
  double* one_level = DI.extent(2) == 1 ? &col_of(DI, 1)[element] : nullptr;
  double sum = 0.0;
  for (std::int64_t k = 0, l = 0; k < n && l < m;) {
    const std::int64_t rec = record_of(a, k), other = record_of(b, l); // both ascending: a merge
    if (rec != other) {
      ++(rec < other ? k : l);
      continue;
    }
    const std::int64_t level = one_level ? 0 : row_a[k] / group.stride;
    if (one_level || level == row_b[l] / group.stride) {
      double z = (a.ones ? 1.0 : a.z(k + 1)) * (b.ones ? 1.0 : b.z(l + 1));
      if (!same && row_a[k] == row_b[l]) z *= 2.0; // one equation twice: the cross term is twice in z z'
      z *= alike ? c1
                 : weighted_inverse(model, design, sampler, inverses, values, fast, asked, stage, rec + 1,
                                    a.trait, b.trait);
      if (one_level)
        sum += z;
      else
        col_of(DI, level + 1)[element] += z;
    }
    ++k, ++l;
  }
  if (one_level) *one_level += sum;
}

// DI(g) = D of all levels, summed over the records.
void sum_blocks(scan_records& r, const directives& asked, scan_stage stage, std::int32_t g) {
  // each pair of slots once, a slot with itself included: D is symmetric and stored packed
  mat<double>& DI = r.layout.DI_of(g);
  DI.fill(0.0);
  const std::vector<design_slot>& slots = form_of(r.work.fast, g).slots;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (!active(slots[i], r.layout.NGR(g, 2))) continue;
    for (std::size_t k = 0; k <= i; ++k)
      if (active(slots[k], r.layout.NGR(g, 2)))
        add_slot_products(r.model, r.design, r.sampler, r.work.inverses, r.work.values, r.work.fast, asked,
                          stage, r.layout.group(g), slots[i], slots[k], DI);
  }
}

// DI(g) = D of all levels, RHS += D sol, then DI += GIF a(l,l).
void complete_blocks(const model_records& model, equation_layout& layout, const relationship_store& relations,
                     sampler_store& sampler, const residual_form& fast, std::int32_t g) {
  const group_form& form = form_of(fast, g);
  const equation_group& group = layout.group(g);
  const std::int32_t levels = layout.NGR(g, 1), n = layout.NGR(g, 2);
  const bool random = group.kind == group_kind::random_factor;
  const bool identity = random && is_identity(model.RMAT(group.number));
  for (std::int32_t l = 1; l <= levels; ++l) {
    const auto block = col_of(layout.DI_of(g), l).part(0, std::int64_t{n} * (n + 1) / 2);
    if (!form.changing) level_block(sampler, form, n, l, block);
    // e lacks the level's own part too: Z_l'R^-1 e + D_l b_l is its right-hand side
    const std::int64_t e0 = group.base + (l - 1) * group.stride;
    const auto rhs = part_of(sampler.RHS, e0, n);
    const auto sol = part_of(sampler.sol, e0, n);
    std::int64_t element = 0;
    for (std::int32_t i = 0; i < n; ++i) // rhs += D sol, D packed
      for (std::int32_t j = 0; j <= i; ++j, ++element) {
        rhs[i] += block[element] * sol[j];
        if (j < i) rhs[j] += block[element] * sol[i];
      }
    if (!random) continue;
    const double a = identity ? 1.0 : relations.of(group.number).diag(l);
    element = 0; // block += G^-1 a(l,l)
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) block[element++] += sampler.GIF(i, j, group.number) * a;
  }
}

// Equation `equation` of another group goes to 0: its records' residuals take its
// part back.
void restrict_elsewhere(const equation_layout& layout, residual_form& fast, std::int32_t equation,
                        double sol) {
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    const std::int64_t row = equation - std::int64_t{1} - layout.group(g).base;
    if (row < 0 || row >= equations_of(layout, g)) continue;
    // e += z sol of every record that has the equation
    for (const design_slot& slot : form_of(fast, g).slots) {
      if (!active(slot, layout.NGR(g, 2))) continue;
      const auto e = col_of(fast.E, slot.trait);
      for (std::int64_t k = 1; k <= slot.row.size(); ++k)
        if (slot.row(k) == row) e[record_of(slot, k - 1)] += (slot.ones ? 1.0 : slot.z(k)) * sol;
    }
  }
}

// The last group with equations.
std::int32_t last_group(const equation_layout& layout) {
  std::int32_t g = layout.ngroups;
  while (g > 1 && (layout.NGR(g, 1) == 0 || layout.NGR(g, 2) == 0)) --g;
  return g;
}

#ifdef ZEPH_DEBUG_VIEWS
// Debug builds: at fixed intervals, E with all changes of the groups before is compared with y - Z b
// computed from scratch; a difference beyond rounding ends the process.
void check_residuals(const model_records& model, const equation_layout& layout, const design_store& design,
                     const sampler_store& sampler, residual_form& fast, const directives& asked,
                     const round_state& state) {
  constexpr std::int64_t rounds_between = 100;
  constexpr double most_drift = 1e-9;
  if (state.iround % rounds_between != 0) return;
  mat<double>& E = fast.E;
  const std::vector<double> kept(E.begin(), E.end());
  for (std::int64_t lo = 0; lo < design.nobs; lo += records_of_block)
    fresh_residuals(model, layout, design, sampler, fast, asked, lo,
                    std::min(lo + records_of_block, std::int64_t{design.nobs}));
  double drift = 0.0, scale = 1.0; // largest difference, largest residual (at least 1)
  for (std::size_t i = 0; i < kept.size(); ++i) {
    drift = std::max(drift, std::fabs(kept[i] - E.data()[i]));
    scale = std::max(scale, std::fabs(kept[i]));
  }
  if (drift > most_drift * scale) {
    fmt::print(stderr, "residuals drifted by {} in round {}\n", drift, state.iround);
    std::abort();
  }
  std::copy(kept.begin(), kept.end(), E.begin());
}
#else
void check_residuals(const model_records&, const equation_layout&, const design_store&, const sampler_store&,
                     residual_form&, const directives&, const round_state&) {}
#endif

const factor_move& factor_move_of(const scan_records& r, std::int32_t g) {
  return r.work.moves.factors[static_cast<std::size_t>(r.layout.group(g).number - 1)];
}

// True when the draws of group g leave what its move needs; a pass over the records makes it where levels
// meet.
bool leaves_sums(const scan_records& r, const round_state& state, std::int32_t g) {
  return factor_moves_now(r, state, g) && !factor_move_of(r, g).meets;
}

// False for the last group, unless restrictions or a pass over the records for its move need its change: the
// residual pass that follows makes the residuals from scratch from the solutions. Larger blocks keep it in
// any case.
bool keeps_change(const scan_records& r, const round_state& state, std::int32_t g) {
  return g != last_group(r.layout) || r.sampler.n_IREST > 0 || r.layout.NGR(g, 2) > largest_unrolled_order ||
         (factor_moves_now(r, state, g) && factor_move_of(r, g).meets);
}

// D of level l of a group whose blocks are complete: DI less GIF a(l,l) where the sums change.
void block_of_data(const scan_records& r, const group_form& form, std::int32_t g, std::int32_t l,
                   column_view<double> D) {
  const equation_group& group = r.layout.group(g);
  const std::int32_t n = r.layout.NGR(g, 2);
  if (!form.changing) {
    level_block(r.sampler, form, n, l, D);
    return;
  }
  const double a = is_identity(r.model.RMAT(group.number)) ? 1.0 : r.relations.of(group.number).diag(l);
  const double* block = r.layout.DI_of(g).unchecked_col(l);
  std::int64_t element = 0;
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= i; ++j, ++element)
      D[element] = block[element] - r.sampler.GIF(i, j, group.number) * a;
}

// Group 1 when its regressions are mixture distances, which sample_level draws again while they break
// their rule.
bool mixture_rule_holds(const equation_layout& layout, const level_work& work, std::int32_t g) {
  return g == 1 && layout.group(g).kind == group_kind::plain_regressions && !work.distances.empty();
}

// Room for what the moves of factors are made from.
void allocate_level_sums(const scan_records& r, level_sums& sums) {
  sums.ready = true;
  std::int64_t order = 0, squares = 0, larger = 0, columns = 0;
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g) {
    const equation_group& group = r.layout.group(g);
    if (group.kind != group_kind::random_factor) continue;
    const factor_move& move = factor_move_of(r, g);
    if (!move.moves) continue;
    const std::int64_t n = group.stride;
    if (move.meets) {
      columns = std::max(columns, n * static_cast<std::int64_t>(form_of(r.work.fast, g).slots.size()));
      continue;
    }
    const std::int64_t in_line = std::min<std::int64_t>(n, largest_unrolled_order);
    order = std::max(order, n);
    squares = std::max(squares, in_line * (in_line + 1) / 2 * form_of(r.work.fast, g).class_diag.size());
    if (n > in_line) larger = std::max(larger, equations_of(r.layout, g));
  }
  if (columns > 0) {
    allocate(r.report, sums.columns, "columns", "residual_body", columns * records_of_block);
    allocate(r.report, sums.scaled, "scaled", "residual_body", 2 * records_of_block);
  }
  if (order == 0) return;
  const std::int64_t packed = order * (order + 1) / 2;
  allocate(r.report, sums.H, "H", "residual_body", order * order);
  allocate(r.report, sums.products, "products", "residual_body", packed * packed);
  allocate(r.report, sums.squares, "squares", "residual_body", squares);
  allocate(r.report, sums.rhs, "rhs", "residual_body", larger);
  allocate(r.report, sums.level, "level", "residual_body", 2 * packed);
}

// H and products of group g with blocks of larger order: rhs as it was before the draws.
void sum_by_levels(scan_records& r, std::int32_t g) {
  level_sums& sums = r.work.fast.moved;
  const group_form& form = form_of(r.work.fast, g);
  const equation_group& group = r.layout.group(g);
  const std::int64_t n = r.layout.NGR(g, 2), packed = n * (n + 1) / 2, stride = group.stride;
  std::fill_n(sums.H.data(), n * n, 0.0);
  std::fill_n(sums.products.data(), packed * packed, 0.0);
  const auto D = part_of(sums.level, 0, packed), squares = part_of(sums.level, packed, packed);
  for (std::int32_t l = 1; l <= r.layout.NGR(g, 1); ++l) {
    block_of_data(r, form, g, l, D);
    const auto u = part_of(r.sampler.sol, group.base + (l - 1) * stride, n);
    const auto rhs = part_of(sums.rhs, (l - 1) * stride, n);
    for (std::int64_t i = 0, k = 0; i < n; ++i) {
      for (std::int64_t j = 0; j < n; ++j) sums.H(i * n + j + 1) += rhs[i] * u[j];
      for (std::int64_t j = 0; j <= i; ++j, ++k) squares[k] = u[i] * u[j];
    }
    for (std::int64_t k = 0; k < packed; ++k) {
      if (D[k] == 0.0) continue;
      const auto row = part_of(sums.products, k * packed, packed);
      for (std::int64_t m = 0; m < packed; ++m) row[m] += D[k] * squares[m];
    }
  }
}

// W(:,t) = row t of R^-1 e of records lo+1..hi, the traits of a group.
void weigh_block(scan_records& r, const directives& asked, const group_form& form, std::int64_t lo,
                 std::int64_t hi) {
  for (const std::int32_t t : form.traits) {
    if (r.work.fast.one_matrix)
      weigh_alike(r.model, r.design, r.sampler, r.work.inverses, r.work.fast, asked, scan_stage::all, t, lo,
                  hi);
    else
      weigh_each(r.model, r.design, r.sampler, r.work.inverses, r.work.fast, asked, scan_stage::all, t,
                 r.model.has_weights(), lo, hi);
  }
}

// Sum of x y over n elements, by four partial sums.
double dot(const double* x, const double* y, std::int64_t n) {
  double sums[4] = {};
  std::int64_t i = 0;
  for (; i + 4 <= n; i += 4)
    for (int q = 0; q < 4; ++q) sums[q] += x[i + q] * y[i + q];
  for (; i < n; ++i) sums[0] += x[i] * y[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// x(v,i) = z u_v of the level that column `slot` of group g has in record lo+1+i, 0 without one; v from 0,
// p rows of records_of_block elements.
void gather_column(const scan_records& r, std::int32_t g, const design_slot& slot, std::int64_t lo,
                   std::int64_t hi, double* x) {
  const std::int32_t p = r.layout.NGR(g, 2);
  const double* u = r.sampler.sol.data() + r.layout.group(g).base - (slot.place - 1);
  const std::int64_t block = lo / records_of_block;
  if (!slot.every_record) std::fill_n(x, p * records_of_block, 0.0);
  const std::int64_t from = slot.every_record ? lo : slot.first(block + 1);
  const std::int64_t to = slot.every_record ? hi : slot.first(block + 2);
  for (std::int64_t k = from; k < to; ++k) {
    const std::int64_t i = record_of(slot, k) - lo;
    const double z = slot.ones ? 1.0 : slot.z(k + 1);
    const double* own = u + slot.row(k + 1);
    for (std::int32_t v = 0; v < p; ++v) x[v * records_of_block + i] = z * own[v];
  }
}

// K of two columns in a block of n records: x and y those of gather_column, for places qx and qy; c the
// elements of the residual inverse by record, null: c1 for all. scaled: work of a block.
void add_pair(const double* x, const double* y, const double* c, double c1, std::int64_t n, std::int32_t p,
              std::int32_t qx, std::int32_t qy, double* scaled, mat<double>& K) {
  for (std::int32_t i = 0; i < p; ++i) {
    const double* row = x + i * records_of_block;
    if (c != nullptr) {
      for (std::int64_t k = 0; k < n; ++k) scaled[k] = c[k] * row[k];
      row = scaled;
    }
    for (std::int32_t j = 0; j < (x == y ? i + 1 : p); ++j) {
      const double sum = (c != nullptr ? 1.0 : c1) * dot(row, y + j * records_of_block, n);
      const std::int32_t at = (qx - 1) * p + i + 1, other = (qy - 1) * p + j + 1;
      K(at, other) += sum;
      if (x != y || i != j) K(other, at) += sum; // the pair both ways round
    }
  }
}

// H and K of group g, whose levels meet in records: E is up to date with its change. H = sum of X'R^-1 e and
// K = sum of X'R^-1 X over the records, X with a column z u_v for row v of each column of the group.
void sum_by_columns(scan_records& r, const directives& asked, std::int32_t g, factor_sums& sums) {
  residual_form& fast = r.work.fast;
  const std::int32_t p = r.layout.NGR(g, 2);
  const group_form& form = form_of(fast, g);
  const std::int64_t size = std::int64_t{p} * records_of_block; // of one column
  double* columns = fast.moved.columns.data();
  double *c = fast.moved.scaled.data(), *scaled = c + records_of_block;
  clear_sums(sums, p);
  const auto inverse = [&](std::int64_t rec, const design_slot& a, const design_slot& b) {
    return weighted_inverse(r.model, r.design, r.sampler, r.work.inverses, r.work.values, fast, asked,
                            scan_stage::all, rec + 1, a.trait, b.trait);
  };
  for (std::int64_t lo = 0; lo < r.design.nobs; lo += records_of_block) {
    const std::int64_t hi = std::min(lo + records_of_block, std::int64_t{r.design.nobs}), n = hi - lo;
    weigh_block(r, asked, form, lo, hi);
    for (std::size_t a = 0; a < form.slots.size(); ++a) {
      const design_slot& slot = form.slots[a];
      if (!active(slot, p)) continue;
      double* x = columns + static_cast<std::int64_t>(a) * size;
      gather_column(r, g, slot, lo, hi, x);
      for (std::int32_t v = 0; v < p; ++v)
        sums.H(slot.place, v + 1) += dot(col_of(fast.W, slot.trait).unchecked(), x + v * records_of_block, n);
      for (std::size_t b = 0; b <= a; ++b) {
        const design_slot& other = form.slots[b];
        if (!active(other, p)) continue;
        const double c1 = fast.one_matrix ? inverse(lo, slot, other) : 0.0;
        for (std::int64_t k = 0; k < n && !fast.one_matrix; ++k) c[k] = inverse(lo + k, slot, other);
        add_pair(x, columns + static_cast<std::int64_t>(b) * size, fast.one_matrix ? nullptr : c, c1, n, p,
                 slot.place, other.place, scaled, sums.K);
      }
    }
  }
}

// products of levels with classes: D of the class times its sum of squares.
void sum_by_classes(const group_form& form, std::int64_t n, level_sums& sums) {
  const std::int64_t packed = n * (n + 1) / 2;
  for (std::int64_t c = 0; c < form.class_diag.size(); ++c) {
    const auto D = part_of(form.class_data, c * (2 * packed + 1), packed); // L and a(l,l) follow it
    const auto squares = part_of(sums.squares, c * packed, packed);
    for (std::int64_t k = 0; k < packed; ++k)
      for (std::int64_t m = 0; m < packed; ++m) sums.products(k * packed + m + 1) += D[k] * squares[m];
  }
}

// K[(q,v),(q',v')] = sum of D_qq' u_v u_v', and H = sum of Z'R^-1 e u' with e after the draws:
// sum of (rhs - D u) u'.
void expand_sums(const level_sums& from, std::int32_t n, factor_sums& sums) {
  const std::int32_t packed = n * (n + 1) / 2;
  const auto product = [&](std::int32_t q, std::int32_t q2, std::int32_t v, std::int32_t v2) {
    return from.products((ihmij(q, q2, 0) - 1) * packed + ihmij(v, v2, 0));
  };
  for (std::int32_t q = 1; q <= n; ++q)
    for (std::int32_t v = 1; v <= n; ++v) {
      sums.H(q, v) = from.H((q - 1) * n + v);
      for (std::int32_t q2 = 1; q2 <= n; ++q2) {
        sums.H(q, v) -= product(q, q2, q2, v);
        for (std::int32_t v2 = 1; v2 <= n; ++v2)
          sums.K((q - 1) * n + v, (q2 - 1) * n + v2) = product(q, q2, v, v2);
      }
    }
}

} // namespace

scan_body body_of(scan_records& r, const directives& asked) {
  scan_body& body = r.work.body;
  if (body == scan_body::unchosen)
    // the choice is made once a run: both bodies give the same chain, up to rounding
    body = asked.test_level <= 1 && build_residual_form(r, asked) ? scan_body::fast : scan_body::plain;
  return body;
}

void fresh_residuals(const model_records& model, const equation_layout& layout, const design_store& design,
                     const sampler_store& sampler, residual_form& fast, const directives& asked,
                     std::int64_t lo, std::int64_t hi) {
  const std::int32_t nt = model.nt;
  const auto y = view_of(design.Y_M); // nt x nobs
  for (std::int32_t t = 1; t <= nt; ++t) {
    const auto e = col_of(fast.E, t);
    // with sampling Y_M of a missing trait is its imputed residual; the solver leaves it out, e = 0
    if (!solves(asked.analysis_type) && nt == 1)
      for (std::int64_t i = lo; i < hi; ++i) e[i] = static_cast<double>(y[i]);
    else
      for (std::int64_t i = lo; i < hi; ++i) {
        e[i] = static_cast<double>(y[i * nt + t - 1]);
        if (solves(asked.analysis_type) && !trait_present(design.ISIT_M(i + 1), t, nt)) e[i] = 0.0;
      }
    class_columns columns; // up to four columns of classes in one walk over e
    for (std::int32_t g = 1; g <= layout.ngroups; ++g)
      for (const design_slot& slot : form_of(fast, g).slots) {
        if (slot.trait != t || !active(slot, layout.NGR(g, 2))) continue;
        const auto x = part_of(sampler.sol, layout.group(g).base, equations_of(layout, g));
        if (!columns.add(slot, x)) subtract_slot(slot, x, e, lo, hi);
      }
    columns.subtract(e, lo, hi);
  }
}

namespace {

// E still holds when neither y nor coefficients have changed since the last residual pass.
void bring_up_to_date(scan_records& r, const directives& asked, const round_state& state) {
  residual_form& form = r.work.fast;
  read_changing_coefficients(r.design, form);
  form.pending = 0;
  if (form.valid_round == state.iround) return;
  for (std::int64_t lo = 0; lo < r.design.nobs; lo += records_of_block)
    fresh_residuals(r.model, r.layout, r.design, r.sampler, form, asked, lo,
                    std::min(lo + records_of_block, std::int64_t{r.design.nobs}));
}

} // namespace

void residual_body::ready_head(scan_records& r, const directives& asked, const round_state& state) const {
  bring_up_to_date(r, asked, state);
  r.work.fast.valid_round = state.iround;
  values_from_residuals(r.work.values, r.work.fast.E);
}

void residual_body::begin_round(scan_records& r, const directives& asked, const round_state& state,
                                scan_stage stage) const {
  residual_form& form = r.work.fast;
  form.square_done.fill(0);
  if (r.work.moves.on && !form.moved.ready) allocate_level_sums(r, form.moved);
  if (stage == scan_stage::others) {
    // E holds the round's residuals but for the last group's change
    walk_records(r.model, r.layout, r.design, r.sampler, r.work.inverses, r.work.fast, asked, stage, 0);
    move_changing_coefficients(r.layout, r.design, r.sampler, r.work.fast);
  } else {
    bring_up_to_date(r, asked, state);
  }
  // from the first change of a group on E holds only within the round
  form.valid_round = -1;
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g)
    if (form_of(r.work.fast, g).changing && in_stage(r.design, stage, g)) sum_blocks(r, asked, stage, g);
}

void residual_body::enter_group(scan_records& r, const directives& asked, const round_state& state,
                                scan_stage stage, std::int32_t g) const {
  const std::int64_t extent = equations_of(r.layout, g);
  if (extent == 0 || r.layout.NGR(g, 2) == 0) return;
  std::fill_n(part_of(r.sampler.RHS, r.layout.group(g).base, extent).unchecked(), extent, 0.0);
  walk_records(r.model, r.layout, r.design, r.sampler, r.work.inverses, r.work.fast, asked, stage, g);
  check_residuals(r.model, r.layout, r.design, r.sampler, r.work.fast, asked, state);
}

void residual_body::solve_group(scan_records& r, const directives& asked, round_state& state,
                                chain_counts& counts, scan_stage stage, std::int32_t g,
                                solver_sums& sums) const {
  const std::int64_t extent = equations_of(r.layout, g);
  if (extent == 0 || r.layout.NGR(g, 2) == 0) return;
  if (stage == scan_stage::all && samples_solutions(asked.analysis_type) && state.gropd(g) != 0 &&
      r.layout.NGR(g, 2) <= largest_unrolled_order && !mixture_rule_holds(r.layout, r.work.levels, g)) {
    draw_levels(r, asked, g, keeps_change(r, state, g), leaves_sums(r, state, g));
    return;
  }
  // larger blocks, the solver, and draws that may be repeated: change = new less old solutions
  const auto sol = part_of(r.sampler.sol, r.layout.group(g).base, extent);
  const auto change = part_of(r.work.fast.change, 0, extent);
  std::copy_n(sol.unchecked(), extent, change.unchecked());
  complete_blocks(r.model, r.layout, r.relations, r.sampler, r.work.fast, g);
  if (leaves_sums(r, state, g))
    std::copy_n(r.sampler.RHS.data() + r.layout.group(g).base, extent, r.work.fast.moved.rhs.data());
  scan_levels(r, asked, state, counts, stage, g, sums);
  for (std::int64_t i = 0; i < extent; ++i) change[i] = sol[i] - change[i];
}

void residual_body::sum_factor(scan_records& r, const directives& asked, std::int32_t g) const {
  residual_form& fast = r.work.fast;
  const std::int32_t n = r.layout.NGR(g, 2);
  if (factor_move_of(r, g).meets) {
    fast.pending = g;
    walk_records(r.model, r.layout, r.design, r.sampler, r.work.inverses, fast, asked, scan_stage::all, 0);
    std::fill_n(fast.change.data(), equations_of(r.layout, g), 0.0);
    sum_by_columns(r, asked, g, r.work.moves.work.sums);
    return;
  }
  const group_form& form = form_of(fast, g);
  if (n > largest_unrolled_order)
    sum_by_levels(r, g);
  else if (form.level_class.allocated() && n > 1)
    sum_by_classes(form, n, fast.moved);
  expand_sums(fast.moved, n, r.work.moves.work.sums);
}

void residual_body::take_factor(scan_records& r, const round_state& state, std::int32_t g) const {
  residual_form& fast = r.work.fast;
  const std::int32_t k = r.layout.group(g).number;
  take_factor_move(r.work.moves.work, r.layout, r.sampler, g,
                   keeps_change(r, state, g) ? fast.change.data() : nullptr,
                   fast.square_done(k) != 0 ? fast.square.unchecked_col(k) : nullptr);
}

void residual_body::restrict_group(scan_records& r, std::int32_t g) const {
  const std::int64_t base = r.layout.group(g).base;
  const std::int64_t extent = equations_of(r.layout, g);
  for (std::int32_t k = 1; k <= r.sampler.n_IREST; ++k) {
    const std::int64_t e = r.sampler.IREST(k) - std::int64_t{1} - base;
    double& sol = r.sampler.sol(r.sampler.IREST(k));
    // in the group being left: its change is -old; in another: E takes the part back at once
    if (e >= 0 && e < extent && r.layout.NGR(g, 2) > 0) {
      r.work.fast.change(e + 1) -= sol;
    } else if (sol != 0.0) {
      restrict_elsewhere(r.layout, r.work.fast, r.sampler.IREST(k), sol);
    }
    sol = 0;
  }
}

void residual_body::leave_group(scan_records& r, std::int32_t g) const {
  const std::int64_t extent = equations_of(r.layout, g);
  if (extent > 0 && r.layout.NGR(g, 2) > 0) r.work.fast.pending = g;
}

void residual_body::residual_pass(scan_records& r, const directives& asked, const round_state& state,
                                  double& lik) const {
  fast_residual_pass(r, asked, state, lik);
}

void residual_body::ready_values(scan_records& r, const directives& asked) const {
  values_from_residuals(r.work.values, r.work.fast.E);
  if (!solves(asked.analysis_type) && r.work.fast.by_masks) return; // the residual pass has left them there
  for (std::int64_t lo = 0; lo < r.design.nobs; lo += records_of_block)
    fresh_residuals(r.model, r.layout, r.design, r.sampler, r.work.fast, asked, lo,
                    std::min(lo + records_of_block, std::int64_t{r.design.nobs}));
}

} // namespace zeph
