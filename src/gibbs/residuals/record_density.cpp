#include "gibbs/residuals/record_density.h"

#include "gibbs/residuals/density_sums.h"
#include "gibbs/scan/scan_records.h"
#include "listing/listing_rows.h"
#include "numerics/column_view.h"
#include "numerics/growing_rows.h"
#include "numerics/truncated_normals.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr std::string_view routine = "record_density";
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double log_two_pi = 1.8378770664093454836;

double root_weight(const scan_records& r, std::int32_t t, std::int32_t irec) {
  return r.work.values.weighted ? static_cast<double>(r.design.WV_SQRT_M(t, irec)) : 1.0;
}

// log(exp(a) + exp(b))
double log_add(double a, double b) {
  const double top = std::max(a, b);
  return top == -infinity ? top : top + std::log1p(std::exp(std::min(a, b) - top));
}

// Traits whose value is the observation itself.
std::int32_t exact_traits(const model_records& m, const design_store& d, std::int32_t irec) {
  std::int32_t mask = 0;
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    if (!trait_present(d.ISIT_M(irec), t, m.nt)) continue;
    const std::int32_t kind = m.MODEL(t).TRAIT_TYPE;
    bool seen = kind == trait_gaussian;
    if (kind == trait_censored) {
      const std::int32_t code = d.CENS_M(t, irec);
      seen = code != -1 && code != 1 && code != 2;
    }
    if (seen) mask |= trait_bit(t, m.nt);
  }
  return mask;
}

// Index of the form, from 0.
std::int32_t form_index(scan_records& r, std::int32_t exact, std::int32_t latent) {
  std::vector<density_form>& forms = r.work.density.forms;
  for (std::size_t k = 0; k < forms.size(); ++k)
    if (forms[k].exact == exact && forms[k].latent == latent) return static_cast<std::int32_t>(k);
  density_form& x = append_row(r.report, forms, "forms", routine);
  x.exact = exact;
  x.latent = latent;
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    if (trait_present(exact, t, r.model.nt)) x.g.push_back(t);
    if (trait_present(latent, t, r.model.nt)) x.l.push_back(t);
  }
  x.groups.resize(static_cast<std::size_t>(r.sampler.G));
  const auto g = static_cast<std::int64_t>(x.g.size()), l = static_cast<std::int64_t>(x.l.size());
  for (density_conditional& c : x.groups) {
    allocate(r.report, c.inverse, "inverse", routine, g, g);
    allocate(r.report, c.coefficient, "coefficient", routine, g, l);
    allocate(r.report, c.covariance, "covariance", routine, l, l);
  }
  return static_cast<std::int32_t>(forms.size()) - 1;
}

density_form& form_of(scan_records& r, std::int32_t exact, std::int32_t latent) {
  return r.work.density.forms[static_cast<std::size_t>(form_index(r, exact, latent))];
}

// R of group h swept on the exact traits.
void prepare_group(scan_records& r, const density_form& x, density_conditional& c, std::int32_t h) {
  residual_conditional& given = r.work.density.given;
  set_matrix(given, r.sampler.RCOV.unchecked_slice(h));
  c.log_constant = -0.5 * log_two_pi * static_cast<double>(x.g.size());
  for (const std::int32_t t : x.g) c.log_constant -= 0.5 * std::log(sweep_trait(given, t));
  for (std::size_t i = 0; i < x.g.size(); ++i)
    for (std::size_t j = 0; j < x.g.size(); ++j)
      c.inverse(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) =
          covariance_given(given, x.g[i], x.g[j]);
  for (std::size_t k = 0; k < x.l.size(); ++k) {
    for (std::size_t i = 0; i < x.g.size(); ++i)
      c.coefficient(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(k) + 1) =
          coefficient_given(given, x.l[k], x.g[i]);
    for (std::size_t i = 0; i < x.l.size(); ++i)
      c.covariance(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(k) + 1) =
          covariance_given(given, x.l[i], x.l[k]);
  }
  c.prepared = true;
}

const density_conditional& conditional_of(scan_records& r, density_form& form, std::int32_t h) {
  density_conditional& c = form.groups[static_cast<std::size_t>(h - 1)];
  if (!c.prepared) prepare_group(r, form, c, h);
  return c;
}

// Bounds of y_t that its observation allows; on: component of an indicator.
void bounds_of(const scan_records& r, std::int32_t irec, std::int32_t t, bool on, double& low, double& high) {
  const design_store& d = r.design;
  low = -infinity;
  high = infinity;
  bool positive = on;
  switch (r.model.MODEL(t).TRAIT_TYPE) {
  case trait_censored:
    if (d.CENS_M(t, irec) != -1) low = static_cast<double>(d.Y_MMIN(t, irec));
    if (d.CENS_M(t, irec) != 1) high = static_cast<double>(d.Y_MMAX(t, irec));
    return;
  case trait_categorical: {
    std::int64_t c = 0;
    for (const category_record& x : r.categories.catstr) {
      ++c;
      if (x.trait != t) continue;
      const std::int32_t k = r.categories.catobs(c, irec);
      if (k > 1) low = x.thr(k - 1);
      if (k < x.ncat_t) high = x.thr(k);
    }
    return;
  }
  case trait_liability:
    positive = d.Y_M(t, irec) > 0.0F;
    break;
  case trait_sequence:
    positive = d.CURE_Y[static_cast<std::size_t>(t - 1)](irec) != 0;
    break;
  case trait_cured:
    positive = r.work.density.can_fail(t) != 0;
    break;
  default: // an indicator
    break;
  }
  (positive ? low : high) = 0.0;
}

// log p of record irec for residuals work.e and fitted values work.fitted in group h; components: bit k of
// the k-th indicator.
double log_density_in(scan_records& r, std::int32_t irec, density_form& form, std::int32_t h,
                      std::uint32_t components, std::int32_t points) {
  density_work& work = r.work.density;
  const density_conditional& c = conditional_of(r, form, h);
  double quadratic = 0;
  for (std::size_t i = 0; i < form.g.size(); ++i)
    for (std::size_t j = 0; j < form.g.size(); ++j)
      quadratic += work.e(form.g[i]) * work.e(form.g[j]) *
                   c.inverse(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1);
  double log_p = c.log_constant - 0.5 * quadratic;
  if (r.work.values.weighted) log_p += work.log_roots(irec);
  const auto n = static_cast<std::int32_t>(form.l.size());
  for (std::int32_t k = 1; k <= n; ++k) {
    const std::int32_t t = form.l[static_cast<std::size_t>(k - 1)];
    const auto place = std::find(work.indicators.begin(), work.indicators.end(), t) - work.indicators.begin();
    const bool on = place < std::ssize(work.indicators) && ((components >> place) & 1U) != 0;
    work.mean(k) = 0;
    for (std::size_t i = 0; i < form.g.size(); ++i)
      work.mean(k) += c.coefficient(static_cast<std::int64_t>(i) + 1, k) * work.e(form.g[i]);
    double low = 0, high = 0;
    bounds_of(r, irec, t, on, low, high);
    const double root = root_weight(r, t, irec);
    work.low(k) = root * (low - work.fitted(t));
    work.high(k) = root * (high - work.fitted(t));
  }
  return log_p + log_box_probability(work.box, n, work.mean.data(), c.covariance.data(), n, work.low.data(),
                                     work.high.data(), points);
}

// work.e, work.fitted: values of the record with these components of its indicators.
void choose_components(scan_records& r, const record_entries& entries, std::int32_t irec,
                       std::uint32_t components) {
  density_work& work = r.work.density;
  const design_store& d = r.design;
  std::copy(r.work.values.res.begin(), r.work.values.res.end(), work.e.begin());
  std::copy(r.work.values.fitted.begin(), r.work.values.fitted.end(), work.fitted.begin());
  for (std::size_t k = 0; k < work.indicators.size(); ++k) {
    const double z = (components >> k) & 1U ? 1.0 : 0.0;
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
      if (d.XD6_M(j, irec) != work.indicators[k] || !entry_active(entries, irec, j)) continue;
      const std::int32_t u = d.XD2_M(j, irec);
      const double part = (z - d.ZD_M(j, irec)) * r.sampler.sol(d.XD1_M(j, irec));
      work.fitted(u) += part;
      work.e(u) -= root_weight(r, u, irec) * part;
    }
  }
}

// log p of one record; can_fail of the work says which subjects' kind 7 counts.
double record_density(scan_records& r, const directives& asked, std::int32_t irec) {
  density_work& work = r.work.density;
  const std::int32_t nt = r.model.nt, exact = work.exact(irec);
  const record_entries entries = entries_of(r, asked.analysis_type);
  take_record(entries, r.work.values, irec);
  std::int32_t latent = r.design.ISIT_M(irec) & ~exact, last = 0;
  work.indicators.clear();
  for (std::int32_t t = 1; t <= nt; ++t) {
    const std::int32_t kind = r.model.MODEL(t).TRAIT_TYPE;
    if (kind == trait_mixture) last = t;
    if (!trait_present(latent, t, nt)) continue;
    if (kind == trait_mixture) work.indicators.push_back(t);
    if (kind == trait_sequence && work.can_fail(t) == 0) latent &= ~trait_bit(t, nt);
  }
  density_form& form = form_of(r, exact, latent);
  const bool chooses = r.sampler.G > 1 && !work.indicators.empty() && work.indicators.back() == last;
  const std::uint32_t choices = 1U << work.indicators.size();
  double total = -infinity;
  for (std::uint32_t c = 0; c < choices; ++c) {
    choose_components(r, entries, irec, c);
    const std::int32_t h =
        chooses ? 1 + static_cast<std::int32_t>(c >> (work.indicators.size() - 1)) : r.design.IRESG_M(irec);
    const double x = log_density_in(r, irec, form, h, c, asked.sampler.density_points);
    if (std::isnan(x)) return x;
    total = choices == 1 ? x : log_add(total, x);
  }
  return total;
}

// True where trait t7 has an event in records first..last.
bool has_event(const design_store& d, std::int32_t t7, std::int32_t first, std::int32_t last) {
  for (std::int32_t i = first; i <= last; ++i)
    if (d.CURE_Y[static_cast<std::size_t>(t7 - 1)](i) != 0) return true;
  return false;
}

// log p of the sequence of records first..last, over the statuses of its pairs.
double sequence_density(scan_records& r, const directives& asked, std::int32_t first, std::int32_t last) {
  density_work& work = r.work.density;
  const std::uint32_t choices = 1U << work.cured.size();
  double total = -infinity;
  for (std::uint32_t c = 0; c < choices; ++c) {
    bool possible = true;
    for (std::size_t k = 0; k < work.cured.size(); ++k) {
      const std::int32_t t8 = work.cured[k], t7 = r.model.MODEL(t8).link1;
      work.can_fail(t8) = work.can_fail(t7) = ((c >> k) & 1U) != 0;
      possible = possible && (work.can_fail(t8) != 0 || !has_event(r.design, t7, first, last));
    }
    if (!possible) continue;
    double x = 0;
    for (std::int32_t i = first; i <= last; ++i) x += record_density(r, asked, i);
    if (std::isnan(x)) return x;
    total = log_add(total, x);
  }
  return total;
}

// Log p of record irec by its kept residuals; all its present traits are seen exactly.
double seen_density(scan_records& r, std::int32_t irec, std::int32_t form) {
  density_work& work = r.work.density;
  const mat<double>& E = *r.work.values.kept;
  density_form& x = work.forms[static_cast<std::size_t>(form)];
  const density_conditional& c = conditional_of(r, x, r.design.IRESG_M(irec));
  double quadratic = 0; // e'R^-1 e
  const auto n = static_cast<std::int64_t>(x.g.size());
  for (std::int64_t i = 1; i <= n; ++i) {
    const std::int32_t t = x.g[static_cast<std::size_t>(i - 1)];
    const double e = root_weight(r, t, irec) * E(irec, t);
    double row = 0;
    for (std::int64_t j = 1; j < i; ++j) row += c.inverse(i, j) * work.e(j);
    quadratic += e * (c.inverse(i, i) * e + 2.0 * row);
    work.e(i) = e;
  }
  const double log_p = c.log_constant - 0.5 * quadratic;
  return r.work.values.weighted ? log_p + work.log_roots(irec) : log_p;
}

// The records one by one, none of a sequence; returns the sum.
double score_records(scan_records& r, const directives& asked) {
  const density_work& work = r.work.density;
  const bool kept = r.work.values.kept != nullptr;
  density_store& store = r.sampler.density;
  double sum = 0;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const std::int32_t form = kept ? work.seen_form(irec) : -1;
    const double x = form >= 0 ? seen_density(r, irec, form) : record_density(r, asked, irec);
    add_density(store, irec, x);
    sum += x;
  }
  return sum;
}

constexpr std::int64_t units_at_once = 512;

// The same for records of one trait without missing values, groups or weights.
double score_single(scan_records& r) {
  density_store& store = r.sampler.density;
  const density_conditional& c = conditional_of(r, r.work.density.forms.front(), 1);
  const column_view<const double> e = col_of(*r.work.values.kept, 1);
  const double constant = c.log_constant, half_inverse = 0.5 * c.inverse(1, 1);
  double sum = 0, x[units_at_once];
  for (std::int64_t first = 0; first < r.design.nobs; first += units_at_once) {
    const std::int64_t n = std::min(units_at_once, r.design.nobs - first);
    for (std::int64_t i = 0; i < n; ++i) x[i] = constant - half_inverse * e[first + i] * e[first + i];
    for (std::int64_t i = 0; i < n; ++i) sum += x[i];
    add_densities(store, first, x, n);
  }
  return sum;
}

// log of the product of the roots of the weights of its traits seen exactly
double log_roots_of(const scan_records& r, std::int32_t irec, std::int32_t exact) {
  double sum = 0;
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (trait_present(exact, t, r.model.nt)) sum += std::log(root_weight(r, t, irec));
  return sum;
}

// Calls take(first, last) for each unit in order.
template <class Take> void for_each_unit(const design_store& d, Take&& take) {
  std::int32_t first = 1;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    if (d.SEQ_M.allocated() && d.SEQ_M(irec) > 0) continue;
    take(first, irec);
    first = irec + 1;
  }
}

} // namespace

void prepare_densities(scan_records& r, const directives& asked) {
  density_work& work = r.work.density;
  const std::int32_t nt = r.model.nt;
  allocate(r.report, work.exact, "exact", routine, r.design.nobs);
  allocate_conditional(r.report, work.given, nt, routine);
  allocate_box_work(r.report, work.box, nt, routine);
  for (vec<double>* x : {&work.e, &work.fitted, &work.mean, &work.low, &work.high})
    allocate(r.report, *x, "values", routine, nt);
  allocate(r.report, work.can_fail, "can_fail", routine, nt);
  work.can_fail.fill(1);
  for (std::int32_t t = 1; t <= nt; ++t)
    if (r.model.MODEL(t).TRAIT_TYPE == trait_cured) work.cured.push_back(t);
  if (r.work.values.weighted) allocate(r.report, work.log_roots, "log_roots", routine, r.design.nobs);
  allocate(r.report, work.seen_form, "seen_form", routine, r.design.nobs);
  int most = 0;
  bool all_seen = true;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const std::int32_t exact = exact_traits(r.model, r.design, irec), latent = r.design.ISIT_M(irec) & ~exact;
    work.exact(irec) = exact;
    work.seen_form(irec) = latent == 0 ? form_index(r, exact, 0) : -1;
    all_seen = all_seen && latent == 0;
    if (r.work.values.weighted) work.log_roots(irec) = log_roots_of(r, irec, exact);
    most = std::max(most, std::popcount(static_cast<std::uint32_t>(latent)));
  }
  work.single = nt == 1 && all_seen && work.forms.size() == 1 && work.forms[0].exact != 0 &&
                r.sampler.G == 1 && !r.work.values.weighted;
  density_store& store = r.sampler.density;
  std::int64_t units = 0;
  for_each_unit(r.design, [&](std::int32_t, std::int32_t) { ++units; });
  allocate(r.report, store.position, "density%position", routine, units);
  for (vec<double>* x : {&store.top, &store.sum, &store.mean, &store.ss})
    allocate(r.report, *x, "density", routine, units);
  std::int64_t u = 0;
  for_each_unit(r.design, [&](std::int32_t first, std::int32_t) {
    store.position(++u) = r.design.OBS_POS_M.allocated() ? r.design.OBS_POS_M(first) : first;
  });
  store.without = most > 2 && asked.sampler.density_points == 0;
  if (!store.without) return;
  say(r.report);
  say(r.report, "The data have no density: a record has three and more latent values.");
  say(r.report, "The word density of the file sampler gives the number of points for it.");
}

double score_units(scan_records& r, const directives& asked) {
  density_store& store = r.sampler.density;
  for (density_form& form : r.work.density.forms)
    for (density_conditional& c : form.groups) c.prepared = false;
  ++store.samples;
  double sum = 0;
  if (r.design.SEQ_M.allocated()) {
    std::int64_t u = 0;
    for_each_unit(r.design, [&](std::int32_t first, std::int32_t last) {
      const double x = sequence_density(r, asked, first, last);
      add_density(store, ++u, x);
      sum += x;
    });
  } else {
    sum = r.work.density.single && r.work.values.kept != nullptr ? score_single(r) : score_records(r, asked);
  }
  store.total += sum;
  return -sum;
}

} // namespace zeph
