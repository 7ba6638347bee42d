#include "prepare/parts/pedigree_inverse.h"

#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <tuple>

namespace zeph::prepare {

namespace {

// What the trace of ancestors touches, together in memory.
struct ancestor {
  std::int32_t sire = -1; // index from 0; -1: unknown or a group
  std::int32_t dam = -1;
  std::int32_t generation = 0; // 0: no known parent; else 1 + that of the later parent
  double d = 1.0;              // Mendelian variance
  double l = 0.0;              // L(i,j) of the animal i being traced
};

std::vector<ancestor> ancestors_of(const pedigree& ped) {
  std::vector<ancestor> anc(from0(ped.n_animals()));
  for (std::size_t a = 0; a < anc.size(); ++a) {
    anc[a].sire = std::max(ped.sire[a], 0) - 1;
    anc[a].dam = std::max(ped.dam[a], 0) - 1;
    for (const std::int32_t p : {anc[a].sire, anc[a].dam})
      if (p >= 0) anc[a].generation = std::max(anc[a].generation, anc[from0(p)].generation + 1);
  }
  return anc;
}

// The earliest animal with the same two parents, for every animal with two known parents; else the animal
// itself.
std::vector<std::int32_t> first_full_sibs(const std::vector<ancestor>& anc) {
  std::vector<std::int32_t> order(anc.size());
  std::iota(order.begin(), order.end(), 0);
  const auto parents = [&](std::int32_t a) {
    const ancestor& x = anc[from0(a)];
    return std::minmax(x.sire, x.dam);
  };
  std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) {
    const auto pa = std::pair<std::int32_t, std::int32_t>(parents(a));
    const auto pb = std::pair<std::int32_t, std::int32_t>(parents(b));
    return std::tie(pa, a) < std::tie(pb, b);
  });
  std::vector<std::int32_t> first(anc.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    const auto a = from0(order[k]);
    const bool sib = k > 0 && anc[a].sire >= 0 && anc[a].dam >= 0 &&
                     std::pair<std::int32_t, std::int32_t>(parents(order[k - 1])) ==
                         std::pair<std::int32_t, std::int32_t>(parents(order[k]));
    first[a] = sib ? first[from0(order[k - 1])] : order[k];
  }
  return first;
}

double variance_given_parents(const ancestor& x, std::span<const double> f) {
  double d = 1.0;
  for (const std::int32_t p : {x.sire, x.dam})
    if (p >= 0) d -= 0.25 * (1.0 + (f.empty() ? 0.0 : f[from0(p)]));
  return d;
}

// Sum over ancestors j of L(i,j)^2 D(j), less 1, for an animal with two known parents. Ancestors wait by
// generation, latest first, so each is reached from all its progeny before its own parents are. l is 0 before
// and after.
double trace_inbreeding(std::vector<ancestor>& anc, std::size_t i,
                        std::vector<std::vector<std::int32_t>>& waiting) {
  constexpr std::size_t ahead = 6;
  double sum = anc[i].d;
  const auto reach = [&](std::int32_t p, double l) {
    if (p < 0) return;
    ancestor& x = anc[from0(p)];
    if (x.l == 0.0) waiting[from0(x.generation)].push_back(p);
    x.l += l;
  };
  reach(anc[i].sire, 0.5);
  reach(anc[i].dam, 0.5);
  for (auto g = from0(anc[i].generation); g-- > 0;) {
    const std::vector<std::int32_t>& row = waiting[g];
    for (std::size_t k = 0; k < row.size(); ++k) {
      if (k + ahead < row.size()) { // memory is the bottleneck: parents needed soon are asked for now
        const ancestor& soon = anc[from0(row[k + ahead])];
        __builtin_prefetch(&anc[from0(std::max(soon.sire, 0))], 1);
        __builtin_prefetch(&anc[from0(std::max(soon.dam, 0))], 1);
      }
      ancestor& x = anc[from0(row[k])];
      const double l = x.l;
      x.l = 0.0;
      sum += l * l * x.d;
      reach(x.sire, 0.5 * l);
      reach(x.dam, 0.5 * l);
    }
    waiting[g].clear();
  }
  return std::max(sum - 1.0, 0.0);
}

} // namespace

std::vector<double> inbreeding_of(const pedigree& ped) {
  std::vector<ancestor> anc = ancestors_of(ped);
  std::vector<double> f(anc.size(), 0.0);
  const std::vector<std::int32_t> first = first_full_sibs(anc);
  std::int32_t last_generation = 0;
  for (const ancestor& x : anc) last_generation = std::max(last_generation, x.generation);
  std::vector<std::vector<std::int32_t>> waiting(from0(last_generation) + 1);
  for (std::size_t i = 0; i < anc.size(); ++i) {
    anc[i].d = variance_given_parents(anc[i], f);
    if (anc[i].sire < 0 || anc[i].dam < 0) continue;
    const auto sib = from0(first[i]);
    f[i] = sib == i ? trace_inbreeding(anc, i, waiting) : f[sib];
  }
  return f;
}

std::vector<double> mendelian_variance_of(const pedigree& ped, std::span<const double> f) {
  const std::vector<ancestor> anc = ancestors_of(ped);
  std::vector<double> d(anc.size());
  for (std::size_t a = 0; a < anc.size(); ++a) d[a] = variance_given_parents(anc[a], f);
  return d;
}

std::int32_t level_of(const pedigree& ped, std::int32_t parent, group_place place) {
  if (parent == 0) return 0;
  if (place == group_place::after_animals) return parent > 0 ? parent : ped.n_animals() - parent;
  return parent > 0 ? parent + ped.n_groups() : -parent;
}

namespace {

// What one animal adds, i >= j: 1/d at (a,a), -1/(2d) at (a,p) of each parent p, 1/(4d) at (p,q) of each
// pair.
struct contribution {
  std::array<matrix_element, 6> element;
  std::size_t n = 0;
};

void add_element(contribution& c, std::int32_t i, std::int32_t j, double v) {
  c.element[c.n++] = {std::max(i, j), std::min(i, j), v};
}

contribution contribution_of(const pedigree& ped, std::size_t a, double d, group_place place) {
  contribution c;
  const std::int32_t animal = level_of(ped, static_cast<std::int32_t>(a) + 1, place);
  const std::int32_t s = level_of(ped, ped.sire[a], place);
  const std::int32_t m = level_of(ped, ped.dam[a], place);
  const double b = 1.0 / d;
  add_element(c, animal, animal, b);
  for (const std::int32_t p : {s, m}) {
    if (p == 0) continue;
    add_element(c, animal, p, -0.5 * b);
    add_element(c, p, p, 0.25 * b);
  }
  // (s,m) represents both (s,m) and (m,s), which fall together on the diagonal when the parents are one
  if (s != 0 && m != 0) add_element(c, s, m, s == m ? 0.5 * b : 0.25 * b);
  return c;
}

// Stable distribution of the elements by one of their indices, 1..n.
void distribute(const std::vector<matrix_element>& from, std::vector<matrix_element>& to,
                std::int32_t matrix_element::*index, std::int32_t n) {
  std::vector<std::size_t> begin(from0(n) + 2, 0);
  for (const matrix_element& e : from) ++begin[from0(e.*index) + 1];
  std::partial_sum(begin.begin(), begin.end(), begin.begin());
  for (const matrix_element& e : from) to[begin[from0(e.*index)]++] = e;
}

// Elements of one place follow each other: they become one.
void merge_equal(std::vector<matrix_element>& element) {
  std::size_t n = 0;
  for (const matrix_element& e : element) {
    if (n > 0 && element[n - 1].i == e.i && element[n - 1].j == e.j)
      element[n - 1].v += e.v;
    else
      element[n++] = e;
  }
  element.resize(n);
  element.shrink_to_fit();
}

} // namespace

std::vector<matrix_element> a_inverse(const pedigree& ped, std::span<const double> f, group_place place,
                                      message_log& log) {
  constexpr double smallest = 1e-12; // a Mendelian variance below is rounding
  const std::vector<double> d = mendelian_variance_of(ped, f);
  std::vector<matrix_element> element;
  bool good = true;
  for (std::size_t a = 0; a < d.size(); ++a)
    if (d[a] < smallest) {
      good = false;
      add_error(
          log, {ped.file, static_cast<int>(ped.line[a]), 0},
          fmt::format("the parents of \"{}\" are completely inbred: it has no Mendelian variance, and the "
                      "relationship matrix no inverse",
                      shown(ped.identification[a])),
          "no variance " + ped.file);
    }
  if (!good) return element;

  element.reserve(6 * d.size());
  for (std::size_t a = 0; a < d.size(); ++a) {
    const contribution c = contribution_of(ped, a, d[a], place);
    element.insert(element.end(), c.element.begin(), c.element.begin() + static_cast<std::ptrdiff_t>(c.n));
  }
  const std::int32_t n = ped.n_animals() + ped.n_groups();
  std::vector<matrix_element> by_column(element.size());
  distribute(element, by_column, &matrix_element::j, n);
  distribute(by_column, element, &matrix_element::i, n);
  merge_equal(element);
  return element;
}

std::vector<std::int32_t> parents_of_levels(const pedigree& ped, group_place place) {
  const auto n = from0(ped.n_animals() + ped.n_groups());
  std::vector<std::int32_t> sire_dam(2 * n, 0);
  for (std::size_t a = 0; a < ped.sire.size(); ++a) {
    const auto level = from0(level_of(ped, static_cast<std::int32_t>(a) + 1, place) - 1);
    const auto parent_level = [&](std::int32_t parent) {
      const std::int32_t l = level_of(ped, parent, place);
      return parent < 0 ? -l : l;
    };
    sire_dam[2 * level] = parent_level(ped.sire[a]);
    sire_dam[2 * level + 1] = parent_level(ped.dam[a]);
  }
  return sire_dam;
}

std::vector<double> relationship_block(const pedigree& ped, std::span<const double> f,
                                       std::span<const std::int32_t> animals) {
  const std::size_t n = animals.size();
  std::vector<double> block(n * n);
  std::vector<std::uint8_t> named(from0(ped.n_animals()), 0);
  for (const std::int32_t a : animals) named[from1(a)] = 1;
  std::vector<std::int32_t> number;
  const pedigree part = pruned(ped, connected_to_data(ped, named), number);
  std::vector<ancestor> anc = ancestors_of(part);
  for (std::size_t a = 0; a < number.size(); ++a)
    if (number[a] > 0) {
      ancestor& x = anc[from1(number[a])];
      x.d = 1.0;
      for (const std::int32_t p : {ped.sire[a], ped.dam[a]})
        if (p > 0) x.d -= 0.25 * (1.0 + (f.empty() ? 0.0 : f[from1(p)]));
    }

  std::vector<double> x(anc.size());
  for (std::size_t c = 0; c < n; ++c) {
    std::fill(x.begin(), x.end(), 0.0);
    x[from1(number[from1(animals[c])])] = 1.0;
    for (std::size_t a = anc.size(); a-- > 0;) // x = D T' e
      if (x[a] != 0.0) {
        for (const std::int32_t p : {anc[a].sire, anc[a].dam})
          if (p >= 0) x[from0(p)] += 0.5 * x[a];
        x[a] *= anc[a].d;
      }
    for (std::size_t a = 0; a < anc.size(); ++a) // x = T x
      for (const std::int32_t p : {anc[a].sire, anc[a].dam})
        if (p >= 0) x[a] += 0.5 * x[from0(p)];
    for (std::size_t r = 0; r < n; ++r) block[c * n + r] = x[from1(number[from1(animals[r])])];
  }
  return block;
}

} // namespace zeph::prepare
