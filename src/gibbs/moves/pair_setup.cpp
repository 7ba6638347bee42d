#include "gibbs/moves/pair_setup.h"

#include "input/structures.h"
#include "numerics/growing_rows.h"

#include <algorithm>
#include <tuple>

namespace zeph {
namespace {

constexpr std::string_view routine = "find_pairs";

// One entry of a record: trait, place of the level, coefficient.
struct record_entry {
  std::int32_t trait = 0, place = 0;
  double z = 0;
  auto key() const { return std::tie(trait, place, z); }
  bool operator<(const record_entry& x) const { return key() < x.key(); }
  bool operator==(const record_entry& x) const { return key() == x.key(); }
};

// What a record has of one factor: the first n entries, in one level (0: nothing).
struct record_part {
  std::vector<record_entry> entries; // design.m
  std::int32_t n = 0, level = 0;
  auto end() { return entries.begin() + n; }
};

bool may_pair(const structure_record& factor) {
  const structure_kind kind = structure_of(factor);
  if (kind == structure_kind::unknown || kind == structure_kind::group_mixture) return false;
  if (kind == structure_kind::pedigree && (factor.L_RAM || has_parent_groups(factor))) return false;
  return factor.n_rc > 0 && (kind == structure_kind::identity || row_of(kind).has_related_sum);
}

// False where the entries of factor k are in several levels, or a coefficient can change.
bool take_part(const design_store& d, std::int32_t irec, std::int32_t k, record_part& part) {
  part.n = part.level = 0;
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
    if (d.XD7_M(j, irec) != k || d.XD2_M(j, irec) <= 0) continue;
    if (part.n > 0 && d.XD4_M(j, irec) != part.level) return false;
    if (d.XD6_M(j, irec) > 0) return false;
    part.level = d.XD4_M(j, irec);
    part.entries[static_cast<std::size_t>(part.n++)] = {d.XD2_M(j, irec), d.XD5_M(j, irec), d.ZD_M(j, irec)};
  }
  return true;
}

// The order of a record's entries does not matter.
bool equal_entries(record_part& a, record_part& b) {
  if (a.n != b.n) return false;
  if (std::equal(a.entries.begin(), a.end(), b.entries.begin())) return true;
  std::sort(a.entries.begin(), a.end());
  std::sort(b.entries.begin(), b.end());
  return std::equal(a.entries.begin(), a.end(), b.entries.begin());
}

// False where one of the two levels has another partner already.
bool join(pair_move& pair, std::int32_t l, std::int32_t m) {
  if (pair.partner(l) == 0 && pair.back(m) == 0) {
    pair.partner(l) = m;
    pair.back(m) = l;
  }
  return pair.partner(l) == m && pair.back(m) == l;
}

// Joins the levels of the pair; false at the first record that parts them. a, b: work. A pair that meets in
// no record is none.
bool records_pair(const design_store& d, pair_move& pair, record_part& a, record_part& b) {
  bool any = false;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    if (!take_part(d, irec, pair.k, a) || !take_part(d, irec, pair.other, b) || !equal_entries(a, b))
      return false;
    if (a.n == 0) continue;
    if (!join(pair, a.level, b.level)) return false;
    any = true;
  }
  return any;
}

void allocate_pair_work(pair_work& w, std::int32_t p, reporting& report) {
  for (mat<double>* x : {&w.Q, &w.X, &w.uu, &w.uw, &w.ww, &w.B[0], &w.B[1], &w.C[0], &w.C[1], &w.UU, &w.UW,
                         &w.WU, &w.WW, &w.L, &w.G, &w.inverse})
    allocate(report, *x, "pair%work", routine, p, p);
  allocate(report, w.sums, "sums", routine, std::int64_t{3} * p * p + 2 * p);
}

} // namespace

void find_pairs(const model_records& model, const design_store& design, std::vector<pair_move>& pairs,
                reporting& report) {
  record_part a, b;
  for (record_part* part : {&a, &b}) allocate_rows(report, part->entries, "entries", routine, design.m);
  for (std::int32_t k = 1; k <= model.nramat; ++k)
    for (std::int32_t other = k + 1; other <= model.nramat; ++other) {
      const structure_record &u = model.RMAT(k), &w = model.RMAT(other);
      if (u.n_rc != w.n_rc || !may_pair(u) || !may_pair(w)) continue;
      pair_move pair;
      pair.k = k;
      pair.other = other;
      allocate(report, pair.partner, "partner", routine, model.NRALEV(k));
      allocate(report, pair.back, "back", routine, model.NRALEV(other));
      if (!records_pair(design, pair, a, b)) continue;
      allocate_pair_work(pair.work, u.n_rc, report);
      append_row(report, pairs, "pairs", routine, std::move(pair));
    }
}

} // namespace zeph
