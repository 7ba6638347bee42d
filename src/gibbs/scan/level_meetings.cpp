#include "gibbs/scan/level_meetings.h"

#include "gibbs/scan/record_product.h"
#include "gibbs/scan/residual_form.h"
#include "listing/stops.h"
#include "numerics/growing_rows.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace zeph {
namespace {

constexpr std::string_view routine = "level_meetings";

bool takes_part(const design_store& d, std::int32_t e, std::int32_t irec) { return d.XD2_M(e, irec) > 0; }

double root_weight(const design_store& d, std::int32_t t, std::int32_t irec, bool weighted) {
  return weighted ? static_cast<double>(d.WV_SQRT_M(t, irec)) : 1.0;
}

// True where the product of two entries of group g can change in the run.
bool group_moves(const model_records& model, const equation_layout& layout, const design_store& design,
                 const sampler_store& sampler, const directives& asked, std::int32_t g) {
  if (sampler.G > 1 && model.has_type(trait_mixture)) return true;
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t e = 1; e <= design.M_M(irec); ++e)
      if (design.XD3_M(e, irec) == g && coefficient_changes(layout, design, asked, irec, e)) return true;
  return false;
}

bool alike(const residual_element& a, const residual_element& b) {
  return std::tie(a.ti, a.tj, a.h, a.pattern) == std::tie(b.ti, b.tj, b.h, b.pattern);
}

std::int32_t element_index(group_meetings& group, const residual_element& x, reporting& report) {
  for (std::size_t k = 0; k < group.elements.size(); ++k)
    if (alike(group.elements[k], x)) return static_cast<std::int32_t>(k);
  append_row(report, group.elements, "elements", routine, x);
  return static_cast<std::int32_t>(group.elements.size()) - 1;
}

// Calls take(i, k) for each pair of entries of a record in one group, entry i of the later level.
template <class Take> void for_each_meeting(const design_store& d, std::int32_t irec, Take&& take) {
  for (std::int32_t i = 1; i <= d.M_M(irec); ++i)
    for (std::int32_t k = 1; k <= d.M_M(irec); ++k)
      if (d.XD3_M(k, irec) == d.XD3_M(i, irec) && d.XD4_M(k, irec) < d.XD4_M(i, irec) &&
          takes_part(d, i, irec) && takes_part(d, k, irec))
        take(i, k);
}

void keep_link(const design_store& d, const directives& asked, bool weighted, std::int32_t irec,
               std::int32_t i, std::int32_t k, std::int32_t row, group_meetings& group, reporting& report) {
  const std::int32_t t = d.XD2_M(i, irec), u = d.XD2_M(k, irec);
  residual_element x;
  x.ti = std::max(t, u);
  x.tj = std::min(t, u);
  x.h = d.IRESG_M(irec);
  x.pattern = solves(asked.analysis_type) ? d.C_ISIT_M(irec) : 0;
  level_link link;
  link.level = d.XD4_M(i, irec);
  link.place = d.XD5_M(i, irec) - 1;
  link.row = row;
  link.element = element_index(group, x, report);
  link.v = d.ZD_M(i, irec) * d.ZD_M(k, irec) * root_weight(d, t, irec, weighted) *
           root_weight(d, u, irec, weighted);
  append_row(report, group.links, "links", routine, link);
}

// Equal pairs become one with the sum of their products.
void merge_links(std::vector<level_link>& links) {
  const auto key = [](const level_link& x) { return std::tie(x.level, x.place, x.row, x.element); };
  std::stable_sort(links.begin(), links.end(),
                   [&](const level_link& a, const level_link& b) { return key(a) < key(b); });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < links.size(); ++i) {
    if (kept > 0 && key(links[kept - 1]) == key(links[i]))
      links[kept - 1].v += links[i].v;
    else
      links[kept++] = links[i];
  }
  links.resize(kept);
  links.shrink_to_fit();
}

// first(l): links of the levels before l
template <class Link>
void mark_levels(const std::vector<Link>& links, std::int32_t levels, vec<std::int64_t>& first,
                 reporting& report) {
  allocate(report, first, "first", routine, std::int64_t{levels} + 1);
  std::int64_t k = 0;
  for (std::int32_t l = 1; l <= levels + 1; ++l) {
    while (k < static_cast<std::int64_t>(links.size()) && links[static_cast<std::size_t>(k)].level < l) ++k;
    first(l) = k;
  }
}

} // namespace

void find_level_meetings(const model_records& model, const equation_layout& layout,
                         const design_store& design, const sampler_store& sampler, const directives& asked,
                         level_meetings& meetings, reporting& report) {
  const bool weighted = model.has_weights();
  allocate_rows(report, meetings.groups, "groups", routine, layout.ngroups);
  std::vector<logical> moves(static_cast<std::size_t>(layout.ngroups), 0);
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    moves[static_cast<std::size_t>(g - 1)] = group_moves(model, layout, design, sampler, asked, g);
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for_each_meeting(design, irec, [&](std::int32_t i, std::int32_t k) {
      const std::int32_t g = design.XD3_M(i, irec);
      group_meetings& group = meetings.groups[static_cast<std::size_t>(g - 1)];
      const auto row = static_cast<std::int32_t>(design.XD1_M(k, irec) - 1 - layout.group(g).base);
      if (moves[static_cast<std::size_t>(g - 1)] != 0)
        append_row(report, group.moving, "moving", routine,
                   moving_link{design.XD4_M(i, irec), design.XD5_M(i, irec) - 1, row, irec, i, k});
      else
        keep_link(design, asked, weighted, irec, i, k, row, group, report);
    });
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    group_meetings& group = meetings.groups[static_cast<std::size_t>(g - 1)];
    merge_links(group.links);
    std::stable_sort(group.moving.begin(), group.moving.end(),
                     [](const moving_link& a, const moving_link& b) { return a.level < b.level; });
    group.inverse.resize(group.elements.size());
    if (!group.links.empty()) mark_levels(group.links, layout.NGR(g, 1), group.first, report);
    if (!group.moving.empty()) mark_levels(group.moving, layout.NGR(g, 1), group.first, report);
  }
}

const group_meetings* meetings_of(level_meetings& meetings, std::int32_t g, const sampler_store& sampler,
                                  const residual_inverses& inverses, const directives& asked) {
  if (meetings.groups.empty()) return nullptr;
  group_meetings& group = meetings.groups[static_cast<std::size_t>(g - 1)];
  if (!group.any()) return nullptr;
  for (std::size_t k = 0; k < group.elements.size(); ++k) {
    const residual_element& x = group.elements[k];
    group.inverse[k] = solves(asked.analysis_type) ? inverses.by_pattern(x.ti, x.tj, x.pattern, x.h)
                                                   : sampler.RCOVI(x.ti, x.tj, x.h);
  }
  return &group;
}

double moving_value(const moving_link& link, const design_store& d, const sampler_store& sampler,
                    bool weighted) {
  const std::int32_t t = d.XD2_M(link.entry, link.record), u = d.XD2_M(link.other, link.record);
  return sampler.RCOVI(t, u, d.IRESG_M(link.record)) * d.ZD_M(link.entry, link.record) *
         d.ZD_M(link.other, link.record) * root_weight(d, t, link.record, weighted) *
         root_weight(d, u, link.record, weighted);
}

} // namespace zeph
