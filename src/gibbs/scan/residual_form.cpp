#include "gibbs/scan/residual_form.h"

#include "gibbs/scan/record_product.h"
#include "gibbs/scan/scan_records.h"
#include "input/class_effect_covariates.h"
#include "input/structures.h"
#include "numerics/growing_rows.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <bit>

namespace zeph {
namespace {

constexpr std::string_view routine = "residual_form";
constexpr std::int32_t few_levels = 32;                       // below: no search for levels that are alike
constexpr std::int32_t levels_of_class = 4;                   // fewer levels a class on average: none is kept
constexpr std::int64_t most_products = std::int64_t{1} << 20; // residual products by mask, elements
constexpr std::int64_t term_allowance = std::int64_t{1} << 26; // bytes of terms beyond the design's own

bool is_random(const equation_group& group) { return group.kind == group_kind::random_factor; }

// Equations of a group from its base on: levels times stride.
std::int64_t extent_of(const equation_layout& layout, std::int32_t g) {
  return std::int64_t{layout.NGR(g, 1)} * layout.group(g).stride;
}

// An entry that takes part in some model of the run.
bool takes_part(const design_store& d, std::int32_t e, std::int32_t irec) { return d.XD2_M(e, irec) > 0; }

// Two groups that share equations would each miss the other's changes in E.
bool ranges_are_disjoint(const equation_layout& layout) {
  std::vector<std::pair<std::int64_t, std::int64_t>> ranges;
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    if (extent_of(layout, g) > 0)
      ranges.emplace_back(layout.group(g).base, layout.group(g).base + extent_of(layout, g));
  std::sort(ranges.begin(), ranges.end());
  for (std::size_t i = 1; i < ranges.size(); ++i)
    if (ranges[i].first < ranges[i - 1].second) return false;
  return true;
}

// True when every entry's equation is the one that its group, level and place
// name, so that columns of levels can take the place of rows of entries.
bool entries_are_regular(const model_records& model, const equation_layout& layout,
                         const design_store& design, const directives& asked) {
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t e = 1; e <= design.M_M(irec); ++e) {
      if (!takes_part(design, e, irec)) {
        if (solves(asked.analysis_type)) return false;
        continue;
      }
      const std::int32_t g = design.XD3_M(e, irec), level = design.XD4_M(e, irec),
                         place = design.XD5_M(e, irec);
      if (g < 1 || g > layout.ngroups || level < 1 || level > layout.NGR(g, 1)) return false;
      const equation_group& group = layout.group(g);
      if (place < 1 || place > group.stride || design.XD2_M(e, irec) > model.nt) return false;
      if (design.XD1_M(e, irec) != group.base + (level - 1) * group.stride + place) return false;
      if ((design.XD7_M(e, irec) != 0) != is_random(group)) return false;
    }
  return true;
}

// Finds the slot of each entry of a record, in the order of the entries.
struct slot_finder {
  struct place_of_slot {
    std::int64_t last = 0;  // record that used the slot last
    std::int64_t next = -1; // slot of the same kind for one more entry of a record
  };
  std::vector<std::vector<std::int64_t>> heads;   // per group: trait x place -> slot, -1
  std::vector<std::vector<place_of_slot>> places; // per group, per slot
  reporting& report;

  slot_finder(const equation_layout& layout, std::int32_t nt, reporting& to) : report(to) {
    allocate_rows(report, heads, "slot%head", routine, layout.ngroups);
    allocate_rows(report, places, "slot%place", routine, layout.ngroups);
    for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
      std::vector<std::int64_t>& kinds = heads[static_cast<std::size_t>(g - 1)];
      allocate_rows(report, kinds, "slot%head", routine, layout.group(g).stride * nt);
      std::fill(kinds.begin(), kinds.end(), -1);
    }
  }
  void forget_records() {
    for (std::vector<place_of_slot>& group : places)
      for (place_of_slot& p : group) p.last = 0;
  }
  // Slot of entry e of record irec; makes one in `form` when there is none yet.
  design_slot& find(group_form& form, const design_store& d, std::int32_t nt, std::int32_t irec,
                    std::int32_t e) {
    const auto g = static_cast<std::size_t>(d.XD3_M(e, irec) - 1);
    const auto kind = static_cast<std::size_t>((d.XD5_M(e, irec) - 1) * nt + d.XD2_M(e, irec) - 1);
    // several entries of one trait and place in a record: a chain of slots, the k-th entry in the k-th slot
    std::int64_t* link = &heads[g][kind];
    while (*link >= 0 && places[g][static_cast<std::size_t>(*link)].last == irec)
      link = &places[g][static_cast<std::size_t>(*link)].next;
    // the chain ends before a slot that this record has not used: one more
    if (*link < 0) {
      *link = static_cast<std::int64_t>(form.slots.size());
      const std::int64_t made = *link;
      design_slot& slot = append_row(report, form.slots, "slots", routine);
      slot.trait = d.XD2_M(e, irec);
      slot.place = d.XD5_M(e, irec);
      append_row(report, places[g], "slot%place", routine).last = irec; // may move what `link` points into
      return form.slots[static_cast<std::size_t>(made)];
    }
    places[g][static_cast<std::size_t>(*link)].last = irec;
    return form.slots[static_cast<std::size_t>(*link)];
  }
};

group_form& form_of(residual_form& form, std::int32_t g) {
  return form.groups[static_cast<std::size_t>(g - 1)];
}

struct slot_size {
  std::int64_t count = 0;
};

// First walk over the entries: finds the slots of each group and counts their elements.
void size_slots(const model_records& model, const equation_layout& layout, const design_store& design,
                residual_form& fast, reporting& report, const directives& asked, slot_finder& finder,
                std::vector<std::vector<slot_size>>& sizes) {
  allocate_rows(report, sizes, "slot%size", routine, layout.ngroups);
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t e = 1; e <= design.M_M(irec); ++e) {
      if (!takes_part(design, e, irec)) continue;
      group_form& group = form_of(fast, design.XD3_M(e, irec));
      design_slot& slot = finder.find(group, design, model.nt, irec, e);
      std::vector<slot_size>& counts = sizes[static_cast<std::size_t>(design.XD3_M(e, irec) - 1)];
      while (counts.size() < group.slots.size()) append_row(report, counts, "slot%size", routine);
      ++counts[static_cast<std::size_t>(&slot - group.slots.data())].count;
      // z is stored where it is not 1 throughout, or may come to differ from 1
      if (coefficient_changes(layout, design, asked, irec, e)) slot.changing = group.changing = true;
      if (slot.changing || design.ZD_M(e, irec) != 1.0) slot.ones = false;
    }
}

// A slot that every record has needs no list of records; one whose coefficients are all 1 no coefficients.
void allocate_slots(const design_store& design, residual_form& fast, reporting& report,
                    std::vector<std::vector<slot_size>>& sizes) {
  const std::int64_t nobs = design.nobs;
  const std::int64_t blocks = (nobs + records_of_block - 1) / records_of_block;
  for (std::size_t g = 0; g < fast.groups.size(); ++g)
    for (std::size_t s = 0; s < fast.groups[g].slots.size(); ++s) {
      design_slot& slot = fast.groups[g].slots[s];
      // count = nobs: at most one element a record, hence element i is record i
      const std::int64_t count = sizes[g][s].count;
      slot.every_record = count == nobs;
      allocate(report, slot.row, "slot%row", routine, count);
      if (!slot.ones) allocate(report, slot.z, "slot%z", routine, count);
      if (slot.changing) allocate(report, slot.entry, "slot%entry", routine, count);
      if (slot.every_record) continue;
      allocate(report, slot.rec, "slot%rec", routine, count);
      allocate(report, slot.first, "slot%first", routine, blocks + 1);
    }
}

// Second walk, in the same order: elements into the slots that the first walk found.
void fill_slots(const model_records& model, const equation_layout& layout, const design_store& design,
                residual_form& fast, slot_finder& finder, std::vector<std::vector<slot_size>>& sizes) {
  for (std::vector<slot_size>& group : sizes)
    for (slot_size& size : group) size.count = 0;
  finder.forget_records();
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t e = 1; e <= design.M_M(irec); ++e) {
      if (!takes_part(design, e, irec)) continue;
      const std::int32_t g = design.XD3_M(e, irec);
      group_form& group = form_of(fast, g);
      design_slot& slot = finder.find(group, design, model.nt, irec, e);
      const std::int64_t k =
          ++sizes[static_cast<std::size_t>(g - 1)][static_cast<std::size_t>(&slot - group.slots.data())]
                .count;
      // equation of the group, from 0: (level-1) stride + place-1
      slot.row(k) = static_cast<std::int32_t>(design.XD1_M(e, irec) - 1 - layout.group(g).base);
      if (!slot.ones) slot.z(k) = design.ZD_M(e, irec);
      if (slot.changing) slot.entry(k) = e;
      if (!slot.every_record) slot.rec(k) = irec - 1;
    }
}

// first(b+1): elements of the slot before record block b (b from 0), from 0.
void mark_blocks(residual_form& form, std::int64_t nobs) {
  const std::int64_t blocks = (nobs + records_of_block - 1) / records_of_block;
  for (group_form& group : form.groups)
    for (design_slot& slot : group.slots) {
      if (slot.every_record) continue;
      std::int64_t k = 0;
      for (std::int64_t b = 0; b <= blocks; ++b) {
        while (k < slot.rec.size() && slot.rec(k + 1) < b * records_of_block) ++k;
        slot.first(b + 1) = k;
      }
    }
}

// Slots by trait: a walk over a group touches the residuals of one trait after the other.
void order_slots(residual_form& form) {
  for (group_form& group : form.groups) {
    std::stable_sort(group.slots.begin(), group.slots.end(),
                     [](const design_slot& a, const design_slot& b) { return a.trait < b.trait; });
    for (const design_slot& slot : group.slots)
      if (group.traits.empty() || group.traits.back() != slot.trait) group.traits.push_back(slot.trait);
  }
}

void build_slots(const model_records& model, const equation_layout& layout, const design_store& design,
                 residual_form& fast, reporting& report, const directives& asked) {
  slot_finder finder(layout, model.nt, report);
  std::vector<std::vector<slot_size>> sizes;
  size_slots(model, layout, design, fast, report, asked, finder, sizes);
  allocate_slots(design, fast, report, sizes);
  fill_slots(model, layout, design, fast, finder, sizes);
  mark_blocks(fast, design.nobs);
  order_slots(fast);
}

// ---- sums of coefficient products ----

// Calls take(group, level, term, product) for each pair of entries of a record
// that meet in one level. In runs whose residual matrices stay, a product is
// whole and its term has no traits.
template <class Take>
void for_each_product(const model_records& model, const design_store& design, const sampler_store& sampler,
                      residual_inverses& inverses, const residual_form& fast, const directives& asked,
                      Take&& take) {
  const bool weights = model.has_weights();
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec) {
    bool of_sources = false; // riff is that of the sources of covariables
    if (fast.constant_R) make_riff(model, design, sampler, inverses, irec, asked.analysis_type, weights);
    for (std::int32_t i = 1; i <= design.M_M(irec); ++i) {
      if (!takes_part(design, i, irec)) continue;
      if (fast.constant_R && scans_in_two_stages(asked) &&
          design.covariates.feeds(design.XD3_M(i, irec)) != of_sources) {
        of_sources = !of_sources;
        of_sources ? make_swept_riff(model, design, sampler, inverses, irec, asked.analysis_type, weights)
                   : make_riff(model, design, sampler, inverses, irec, asked.analysis_type, weights);
      }
      for (std::int32_t k = 1; k <= i; ++k) {
        if (design.XD3_M(k, irec) != design.XD3_M(i, irec) || design.XD4_M(k, irec) != design.XD4_M(i, irec))
          continue;
        if (!takes_part(design, k, irec)) continue;
        // element (place_i, place_k) of the level's packed block
        block_term term;
        term.element = ihmij(design.XD5_M(i, irec), design.XD5_M(k, irec), 0) - 1;
        double product;
        if (fast.constant_R) {
          product = record_product(design, inverses.riff, irec, i, k);
        } else {
          // R changes in the run: the product without R^-1, of which element (ti,tj) of group h comes later
          term.ti = std::max(design.XD2_M(i, irec), design.XD2_M(k, irec));
          term.tj = std::min(design.XD2_M(i, irec), design.XD2_M(k, irec));
          term.h = design.IRESG_M(irec);
          product = design.ZD_M(i, irec) * design.ZD_M(k, irec);
          if (i != k && design.XD1_M(i, irec) == design.XD1_M(k, irec)) product *= 2.0;
          if (weights)
            product *= term.ti == term.tj ? static_cast<double>(design.WV_M(term.ti, irec))
                                          : static_cast<double>(design.WV_SQRT_M(term.ti, irec)) *
                                                static_cast<double>(design.WV_SQRT_M(term.tj, irec));
        }
        take(design.XD3_M(i, irec), design.XD4_M(i, irec), term, product);
      }
    }
  }
}

bool same_term(const block_term& a, const block_term& b) {
  return a.element == b.element && a.ti == b.ti && a.tj == b.tj && a.h == b.h;
}

std::int64_t term_index(const std::vector<block_term>& terms, const block_term& term) {
  for (std::size_t k = 0; k < terms.size(); ++k)
    if (same_term(terms[k], term)) return static_cast<std::int64_t>(k);
  return -1;
}

// Sums of coefficient products by level for each distinct term of a group; where they would take more room
// than allowed, or coefficients change, the group sums D over its records in each round.
void build_terms(scan_records& r, const directives& asked) {
  residual_form& form = r.work.fast;
  // first the distinct terms of each group, to size the sums
  for_each_product(r.model, r.design, r.sampler, r.work.inverses, r.work.fast, asked,
                   [&](std::int32_t g, std::int32_t, const block_term& term, double) {
                     group_form& group = form_of(form, g);
                     if (!group.changing && term_index(group.terms, term) < 0)
                       append_row(r.report, group.terms, "terms", routine, term);
                   });
  // bytes: about what the records themselves take, 36 an entry, and some more
  std::int64_t room = term_allowance + std::int64_t{36} * r.design.m * r.design.nobs;
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g) {
    group_form& group = form_of(form, g);
    const std::int64_t terms = static_cast<std::int64_t>(group.terms.size()), levels = r.layout.NGR(g, 1);
    if (group.changing || terms * levels * 8 > room) {
      group.changing = true; // many groups of records: cheaper summed again than kept
      group.terms.clear();
      continue;
    }
    room -= terms * levels * 8;
    std::sort(group.terms.begin(), group.terms.end(),
              [](const block_term& a, const block_term& b) { return a.element < b.element; });
    allocate(r.report, group.sums, "sums", routine, levels, terms);
  }
  for_each_product(r.model, r.design, r.sampler, r.work.inverses, r.work.fast, asked,
                   [&](std::int32_t g, std::int32_t level, const block_term& term, double product) {
                     group_form& group = form_of(form, g);
                     if (!group.changing) group.sums(level, term_index(group.terms, term) + 1) += product;
                   });
}

// ---- levels that are alike ----

// One step of a multiplicative hash, 2^64 over the golden ratio; equal bits give equal hashes.
std::uint64_t mixed(std::uint64_t h, double x) {
  h ^= std::bit_cast<std::uint64_t>(x);
  h *= 0x9E3779B97F4A7C15U;
  return h ^ (h >> 29);
}

// Diagonal element of level l of group g: of the relationship inverse, 1 for
// identity, 0 for what has no prior.
double diagonal_of(const model_records& model, const equation_layout& layout,
                   const relationship_store& relations, std::int32_t g, std::int32_t l) {
  const equation_group& group = layout.group(g);
  if (!is_random(group)) return 0.0;
  return is_identity(model.RMAT(group.number)) ? 1.0 : relations.of(group.number).diag(l);
}

// Level of each class, first of its kind; empty when the levels have too little in common.
std::vector<std::int32_t> find_classes(const model_records& model, const equation_layout& layout,
                                       const relationship_store& relations, reporting& report, std::int32_t g,
                                       group_form& group) {
  const std::int32_t levels = layout.NGR(g, 1);
  const std::int64_t terms = static_cast<std::int64_t>(group.terms.size());
  std::vector<std::int32_t> first;
  std::vector<std::int32_t> table;
  const std::size_t places = std::bit_ceil(static_cast<std::size_t>(levels));
  allocate_rows(report, table, "class_table", routine, static_cast<std::int64_t>(places));
  std::fill(table.begin(), table.end(), -1);
  const std::size_t wrap = table.size() - 1;
  allocate(report, group.level_class, "level_class", routine, levels);
  for (std::int32_t l = 1; l <= levels; ++l) {
    const double diag = diagonal_of(model, layout, relations, g, l);
    // a level by its diagonal element of the relationship inverse and all its sums, compared bit by bit
    std::uint64_t h = mixed(0, diag);
    for (std::int64_t k = 1; k <= terms; ++k) h = mixed(h, group.sums(l, k));
    std::size_t at = static_cast<std::size_t>(h) & wrap; // open addressing, one step at a time
    for (;; at = (at + 1) & wrap) {
      if (table[at] < 0) break;
      const std::int32_t other = first[static_cast<std::size_t>(table[at])];
      bool alike = diagonal_of(model, layout, relations, g, other) == diag;
      for (std::int64_t k = 1; k <= terms && alike; ++k) alike = group.sums(l, k) == group.sums(other, k);
      if (alike) break;
    }
    if (table[at] < 0) {
      // too many classes for their blocks to pay: give up
      if (static_cast<std::int64_t>(first.size() + 1) * levels_of_class > levels) return {};
      table[at] = static_cast<std::int32_t>(first.size());
      append_row(report, first, "class_level", routine, l);
    }
    group.level_class(l) = table[at];
  }
  return first;
}

// sums(c,:) and the diagonal element of each class, from the first of its levels
void keep_classes(const model_records& model, const equation_layout& layout,
                  const relationship_store& relations, reporting& report, std::int32_t g, group_form& group,
                  const std::vector<std::int32_t>& first) {
  const std::int64_t terms = static_cast<std::int64_t>(group.terms.size());
  const std::int64_t classes = static_cast<std::int64_t>(first.size());
  const std::int64_t packed = std::int64_t{layout.group(g).stride} * (layout.group(g).stride + 1) / 2;
  mat<double> sums;
  allocate(report, sums, "sums", routine, classes, terms);
  allocate(report, group.class_diag, "class_diag", routine, classes);
  allocate(report, group.class_data, "class_data", routine, classes * (2 * packed + 1));
  for (std::int64_t c = 1; c <= classes; ++c) {
    const std::int32_t l = first[static_cast<std::size_t>(c - 1)];
    for (std::int64_t k = 1; k <= terms; ++k) sums(c, k) = group.sums(l, k);
    group.class_diag(c) = diagonal_of(model, layout, relations, g, l);
  }
  group.sums = std::move(sums);
}

// Levels that share all sums and their diagonal element, for groups small enough to be drawn in line.
void build_classes(const model_records& model, const equation_layout& layout,
                   const relationship_store& relations, residual_form& fast, reporting& report,
                   const directives& asked) {
  if (!samples_solutions(asked.analysis_type)) return;
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    group_form& group = form_of(fast, g);
    if (group.changing || layout.NGR(g, 1) < few_levels || layout.group(g).stride > largest_unrolled_order)
      continue;
    const std::vector<std::int32_t> first = find_classes(model, layout, relations, report, g, group);
    if (first.empty())
      group.level_class.release();
    else
      keep_classes(model, layout, relations, report, g, group, first);
  }
}

// ---- links ----

// Links of level l: those to levels before it, then those to levels after it, each in the order of the file.
void build_links(const model_records& model, const relationship_store& relations, residual_form& fast,
                 reporting& report, const directives& asked) {
  allocate_rows(report, fast.links, "links", routine, model.nramat);
  for (std::int32_t k = 1; k <= model.nramat && samples_solutions(asked.analysis_type); ++k) {
    if (is_identity(model.RMAT(k))) continue;
    // a smaller model may bring a level's block down to the orders that are written out
    if (!has_several_models(asked.analysis_type) && model.RMAT(k).n_rc > largest_unrolled_order) continue;
    const relationship_rows& rows = relations.of(k);
    link_form& links = fast.links[static_cast<std::size_t>(k - 1)];
    const std::int64_t levels = rows.diag.size();
    allocate(report, links.before, "links%before", routine, levels);
    allocate(report, links.after, "links%after", routine, levels);
    allocate(report, links.col, "links%col", routine, rows.col.size());
    allocate(report, links.val, "links%val", routine, rows.val.size());
    std::int64_t at = 0;
    for (std::int64_t l = 1; l <= levels; ++l)
      for (const bool later : {false, true}) // two walks over the row: levels before l, then after l
        for (std::int64_t node = rows.start(l); node < rows.start(l + 1); ++node) {
          if ((rows.col(node) > l) != later) continue;
          ++(later ? links.after : links.before)(l);
          links.col(++at) = rows.col(node) - 1;
          links.val(at) = rows.val(node);
        }
  }
}

// ---- residuals ----

// The distinct masks of the records, and room for what the residual pass sums by mask and group.
void build_masks(const model_records& model, const design_store& design, const sampler_store& sampler,
                 residual_form& fast, reporting& report) {
  const std::int64_t nt = model.nt, packed = nt * (nt + 1) / 2, G = sampler.G;
  allocate(report, fast.mask_of, "mask_of", routine, design.nobs);
  std::vector<std::pair<std::int32_t, std::int32_t>> known; // mask, index; ascending by mask
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec) {
    const std::int32_t mask = design.ISIT_M(irec);
    auto at = std::lower_bound(known.begin(), known.end(), std::pair{mask, std::int32_t{-1}});
    if (at == known.end() || at->first != mask) {
      // too much room for sums by mask: by_masks stays false
      if (static_cast<std::int64_t>(known.size() + 1) * packed * G > most_products) return;
      const auto index = at - known.begin();
      make_room(report, known, "masks", routine);
      known.insert(known.begin() + index, {mask, static_cast<std::int32_t>(known.size())});
      at = known.begin() + index;
      mask_form& made = append_row(report, fast.masks, "masks", routine);
      made.mask = mask;
      for (std::int32_t t = 1; t <= nt; ++t)
        (trait_present(mask, t, model.nt) ? made.present : made.missing).push_back(t);
    }
    fast.mask_of(irec) = at->second;
  }
  const std::int64_t masks = static_cast<std::int64_t>(fast.masks.size());
  allocate(report, fast.products, "products", routine, packed, masks, G);
  // per mask and group: nt^2 coefficients and the set-up of the draw of its missing traits
  allocate(report, fast.conditional, "conditional", routine, nt * nt + gmn_size(model.nt), masks, G);
  allocate(report, fast.counts, "counts", routine, masks, G);
  allocate(report, fast.prepared, "prepared", routine, masks * G);
  allocate(report, fast.largest, "largest", routine, nt);
  fast.counts_move = G > 1 && model.has_type(trait_mixture);
  count_masks(design, fast);
  fast.by_masks = true;
}

void allocate_work(const model_records& model, const equation_layout& layout, const design_store& design,
                   residual_form& fast, reporting& report) {
  const std::int64_t nt = model.nt;
  std::int64_t longest = 0;
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) longest = std::max(longest, extent_of(layout, g));
  allocate(report, fast.E, "E", routine, design.nobs, nt);
  allocate(report, fast.change, "change", routine, longest);
  allocate(report, fast.W, "W", routine, records_of_block, nt);
  allocate(report, fast.weighed, "weighed", routine, nt);
  allocate(report, fast.partial, "partial", routine, (n_partial_sums - 1) * most_partial);
  std::size_t terms = 0;
  for (const group_form& group : fast.groups) terms = std::max(terms, group.terms.size());
  allocate(report, fast.multipliers, "multipliers", routine, static_cast<std::int64_t>(terms));
  allocate(report, fast.normals, "normals", routine, records_of_block * nt);
  allocate(report, fast.square_done, "square_done", routine, model.nramat);
  allocate(report, fast.square, "square", routine,
           std::int64_t{largest_unrolled_order} * (largest_unrolled_order + 1) / 2, model.nramat);
}

// True when R^-1 is one matrix for all records: no weights, and one group (in the solver one pattern too).
bool shares_one_matrix(const model_records& model, const design_store& design, const sampler_store& sampler,
                       const directives& asked) {
  if (model.has_weights()) return false;
  if (!solves(asked.analysis_type)) return sampler.G == 1;
  // solver: R_oo^-1 depends on the pattern of the record and on its group
  for (std::int32_t irec = 2; irec <= design.nobs; ++irec)
    if (design.C_ISIT_M(irec) != design.C_ISIT_M(1) || design.IRESG_M(irec) != design.IRESG_M(1) ||
        design.ISIT_M(irec) != design.ISIT_M(1))
      return false;
  return true;
}

// What the sources of covariables use in analysis type 0, by mask and group.
void invert_masks(const model_records& model, const sampler_store& sampler, residual_inverses& inverses,
                  residual_form& fast, reporting& report) {
  const std::int32_t nt = model.nt, masks = static_cast<std::int32_t>(fast.masks.size());
  allocate(report, fast.swept_inverse, "swept_inverse", routine, nt, nt, masks, sampler.G);
  for (std::int32_t h = 1; h <= sampler.G; ++h)
    for (std::int32_t k = 1; k <= masks; ++k)
      invert_observed(inverses.swept, sampler.RCOV.unchecked_slice(h),
                      fast.masks[static_cast<std::size_t>(k - 1)].mask, &fast.swept_inverse(1, 1, k, h));
}

} // namespace

void count_masks(const design_store& design, residual_form& form) {
  form.counts.fill(0);
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    // mixtures move records between groups: counted again each round then
    ++form.counts(form.mask_of(irec) + 1, design.IRESG_M(irec));
}

bool coefficient_changes(const equation_layout& layout, const design_store& design, const directives& asked,
                         std::int32_t irec, std::int32_t e) {
  if (design.XD6_M(e, irec) > 0) return true;
  if (!scans_in_two_stages(asked)) return false;
  const group_kind kind = layout.group(design.XD3_M(e, irec)).kind;
  // only regressions on solutions change: their coefficient is that of the data times a solution
  if (kind != group_kind::plain_regressions && kind != group_kind::nested_regression) return false;
  return is_turned(design.covariates, design.XD1_M(e, irec));
}

bool build_residual_form(scan_records& r, const directives& asked) {
  residual_form& form = r.work.fast;
  form = residual_form{};
  if (!ranges_are_disjoint(r.layout) || !entries_are_regular(r.model, r.layout, r.design, asked))
    return false;
  form.constant_R = !samples_matrices(asked.analysis_type);
  form.one_matrix = shares_one_matrix(r.model, r.design, r.sampler, asked);
  allocate_rows(r.report, form.groups, "groups", routine, r.layout.ngroups);
  // mixtures move records between residual groups: sums by group would have to follow each move
  if (r.sampler.G > 1 && r.model.has_type(trait_mixture))
    for (group_form& group : form.groups) group.changing = true;
  // in this order: columns of the design, sums of products, levels that are alike, links, masks
  build_slots(r.model, r.layout, r.design, r.work.fast, r.report, asked);
  build_terms(r, asked);
  build_classes(r.model, r.layout, r.relations, r.work.fast, r.report, asked);
  build_links(r.model, r.relations, r.work.fast, r.report, asked);
  build_masks(r.model, r.design, r.sampler, r.work.fast, r.report);
  if (solves(asked.analysis_type) && scans_in_two_stages(asked)) {
    if (!form.by_masks) return false;
    invert_masks(r.model, r.sampler, r.work.inverses, r.work.fast, r.report);
  }
  allocate_work(r.model, r.layout, r.design, r.work.fast, r.report);
  return true;
}

} // namespace zeph
