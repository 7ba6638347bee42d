#include "input/class_effect_covariates.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/growing_rows.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace zeph {
namespace {

constexpr std::string_view integers_file = "RCDATA_I";
constexpr std::string_view routine = "FETOCV";

// What the user's list is checked against.
struct user_list {
  const model_records& m;
  const equation_layout& layout;
  std::string_view file; // that the list is from
  reporting& report;

  [[noreturn]] void refuse(std::string_view item, std::initializer_list<std::int64_t> at, std::int32_t value,
                           std::string_view rule) const {
    illegal_input(report, file, item, at, std::to_string(value), rule);
  }
};

// ---- the user's list

void say_list(reporting& report, std::string_view label, const std::vector<std::int32_t>& list) {
  column_line line;
  line.X(1).T(1).A(label, 60);
  for (const std::int32_t number : list) line.I(number, 11);
  say(report, line.str());
}

void tell_list(const directives& asked, reporting& report) {
  say(report);
  say_label(report, "  Variables in relation to Class-effect solutions  ");
  say_label(report, "  used as covariates                               ");
  for (const fetocv_entry& entry : asked.FETOCV) {
    say(report);
    say_count(report, "  Trait no. .......................................", entry.trait);
    say_count(report, "  Effect no. in model .............................", entry.effect);
    say_count(report, "  No.of covariates ................................", entry.ncv);
    say_list(report, "  Covariates ......................................", entry.CVNO);
    say_list(report, "  Associated-Cov ..................................", entry.ACVNO);
  }
  say(report);
  say_count(report, "  Standardize option ..............................", asked.stdef);
}

// ---- sources

// Finds the effect of entry i among the "fixed", then among the random effects.
void find_effect(const user_list& list, std::int64_t i, class_effect_source& x) {
  const model_records& m = list.m;
  if (x.trait < 1 || x.trait > m.nt) list.refuse("FETOCV%trait", {i}, x.trait, "1.." + std::to_string(m.nt));
  const trait_record& trait = m.MODEL(x.trait);
  if (x.feno < 1 || x.feno > trait.n_ef)
    list.refuse("FETOCV%effect", {i}, x.feno, "1.." + std::to_string(trait.n_ef));
  const std::int32_t number = trait.EF_INP(x.feno);
  for (std::int32_t j = 1; j <= trait.n_f; ++j)
    if (trait.f_ef_inp(j) == number) {
      x.ef_type = source_kind::fixed_effect;
      x.ef_no_w = j;
    }
  for (std::int32_t j = 1; j <= trait.n_r; ++j)
    if (trait.r_ef_inp(j) == number) {
      x.ef_type = source_kind::random_effect;
      x.ef_no_w = j;
    }
  if (x.ef_type == source_kind::none)
    list.refuse("FETOCV%effect", {i}, x.feno, "a class effect of the trait, no regression");
}

// The group of effect or regression j of trait t, of factor j.
std::int32_t find_group(const equation_layout& layout, group_kind kind, std::int32_t t, std::int32_t j) {
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    const equation_group& group = layout.group(g);
    if (group.kind != kind) continue;
    if (kind == group_kind::plain_regressions) return g;
    if (group.number == j && (kind == group_kind::random_factor || group.trait == t)) return g;
  }
  return 0;
}

void place_fixed(const user_list& list, std::int64_t i, class_effect_source& x) {
  const model_records& m = list.m;
  const trait_record& trait = m.MODEL(x.trait);
  if (!trait.INTERCEPT(x.ef_no_w)) list.refuse("FETOCV%effect", {i}, x.feno, "an effect that has equations");
  x.ef_rci = trait.f_ef_rci(x.ef_no_w);
  x.levels = m.NLEV(x.trait, x.ef_no_w);
  x.first = m.NBEGF(x.trait, x.ef_no_w) + std::int64_t{1};
  x.step = 1;
  x.group = find_group(list.layout, group_kind::fixed_effect, x.trait, x.ef_no_w);
}

void place_random(const user_list& list, std::int64_t i, class_effect_source& x) {
  const model_records& m = list.m;
  const trait_record& trait = m.MODEL(x.trait);
  const std::int32_t k = trait.r_ef_matno(x.ef_no_w);
  x.ef_rci = trait.r_ef_rci(x.ef_no_w);
  for (std::int32_t c = 1; k > 0 && c <= m.RMAT(k).n_cont; ++c) {
    const structure_record& factor = m.RMAT(k);
    if (factor.CONT_T_NO(c) != x.trait || factor.CONT_EFF_RCI(c) != x.ef_rci) continue;
    x.levels = m.NRALEV(k);
    x.step = factor.n_rc;
    // equation of level l: NBEGRA + (l-1) n_rc + row, row = CONT_POS + CONT_RC - 1
    x.first = std::int64_t{m.NBEGRA(k)} + factor.CONT_POS(c) + factor.CONT_RC(c) - 1;
    x.group = find_group(list.layout, group_kind::random_factor, 0, k);
    if (factor.CONT_POS(c) + factor.CONT_RC(c) - 1 <= factor.n_rc) return;
    break; // CONT_LC: it names one level, not a row of each
  }
  list.refuse("FETOCV%effect", {i}, x.feno, "a random effect that contributes to a factor");
}

// ---- regressions

// Place in the reals of the covariable with this input number; 0: no regression has it.
std::int32_t place_of_covariable(const model_records& m, std::int32_t number) {
  for (std::int32_t t = 1; t <= m.nt; ++t)
    for (std::int32_t j = 1; j <= m.MODEL(t).n_reg; ++j)
      if (m.MODEL(t).REG_INP(j) == number) return m.MODEL(t).REG_RCI(j);
  return 0;
}

turned_regression turned(const model_records& m, const equation_layout& layout, std::int32_t t,
                         std::int32_t j) {
  const trait_record& trait = m.MODEL(t);
  const bool nested = trait.REG_TYPE(j) == 1;
  turned_regression x;
  x.trait = t;
  x.regression = j;
  x.base_rci = trait.REG_RCI(j);
  x.first = m.NBEGREG(t, j) + 1;
  x.last = nested ? m.NBEGREG(t, j) + m.NLEV(t, trait.REG_N_EF_INP(j)) : x.first;
  x.group = find_group(layout, nested ? group_kind::nested_regression : group_kind::plain_regressions, t, j);
  return x;
}

// The regressions whose covariable is the c-th of entry i; there may be none.
void find_regressions(const user_list& list, const fetocv_entry& entry, std::int64_t i, std::int64_t c,
                      class_effect_source& source) {
  const model_records& m = list.m;
  const auto at = static_cast<std::size_t>(c - 1);
  const std::int32_t cv = entry.CVNO[at], acv = entry.ACVNO[at];
  std::int32_t base = 0;
  if (acv > 0) {
    base = place_of_covariable(m, acv);
    if (base < 1 || base > m.n_real)
      list.refuse("FETOCV%ACVNO", {i, c}, acv, "the number of a covariable of a regression, or 0");
  }
  for (std::int32_t t = 1; t <= m.nt; ++t)
    for (std::int32_t j = 1; j <= m.MODEL(t).n_reg; ++j) {
      const std::int32_t type = m.MODEL(t).REG_TYPE(j);
      if ((type != 0 && type != 1) || m.MODEL(t).REG_INP(j) != cv) continue;
      if (m.MODEL(t).REG_MIXTURE(j))
        list.refuse("FETOCV%CVNO", {i, c}, cv, "no covariable of a mixture regression");
      turned_regression& x =
          append_row(list.report, source.regressions, "REGRM", routine, turned(m, list.layout, t, j));
      x.cv_no = cv;
      x.acv_no = acv;
      if (base > 0) x.base_rci = base;
    }
}

void resolve(const user_list& list, const fetocv_entry& entry, std::int64_t i, class_effect_source& x) {
  if (entry.ncv < 0) list.refuse("FETOCV%ncv", {i}, entry.ncv, ">= 0");
  x.trait = entry.trait;
  x.feno = entry.effect;
  find_effect(list, i, x);
  if (x.ef_type == source_kind::fixed_effect)
    place_fixed(list, i, x);
  else
    place_random(list, i, x);
  if (x.ef_rci < 1 || x.ef_rci > list.m.iv_50)
    list.refuse("FETOCV%effect", {i}, x.feno, "an effect with a place in the data record");
  for (std::int32_t c = 1; c <= entry.ncv; ++c) find_regressions(list, entry, i, c, x);
}

void allocate_source(const model_records& m, class_effect_source& x, reporting& report) {
  const std::int64_t n = static_cast<std::int64_t>(x.regressions.size());
  allocate(report, x.HCSOL, "HCSOL", routine, x.levels);
  allocate(report, x.FE_LEV, "regrnfe_m", routine, m.nobs());
  allocate(report, x.entry, "regrn_m", routine, n, m.nobs());
  allocate(report, x.base, "regrnacv_m", routine, n, m.nobs());
}

// ---- test prints

void print_sources(const covariate_store& store, reporting& report) {
  for (const class_effect_source& x : store.FETOCVRC) {
    const auto ncv = static_cast<std::int64_t>(x.regressions.size());
    say(report, free_row()
                    .text("        fetocvrc(i)%trait, feno, trait_no, ef_type, ef_no_w, ncv")
                    .i(x.trait)
                    .i(x.feno)
                    .i(x.trait)
                    .i(static_cast<std::int32_t>(x.ef_type))
                    .i(x.ef_no_w)
                    .i(ncv)
                    .str());
    free_row pairs;
    pairs.text("        cv_no, arn-cv_no");
    for (const turned_regression& t : x.regressions) pairs.i(t.cv_no).i(t.acv_no);
    say(report, pairs.str());
  }
}

// One line: a value of each turned regression with its source.
template <class Value>
void print_row(const covariate_store& store, std::string_view label, reporting& report, Value value) {
  free_row row;
  row.text(label);
  for (const class_effect_source& x : store.FETOCVRC)
    for (const turned_regression& t : x.regressions) row.i(value(x, t));
  say(report, row.str());
}

void print_links(const covariate_store& store, reporting& report) {
  using source = class_effect_source;
  using turn = turned_regression;
  print_row(store, "        fetocv(:)%fe_m=", report, [](const source& x, const turn&) { return x.group; });
  print_row(store, "        regrncv_rci(:)=", report, [](const source&, const turn& t) { return t.cv_no; });
  print_row(store, "        regrnacv_rci(:)=", report,
            [](const source&, const turn& t) { return t.base_rci; });
  print_row(store, "        regrnfe_rci(:)=", report, [](const source& x, const turn&) { return x.ef_rci; });
  print_row(store, "        regrntrait_no(:)=", report, [](const source&, const turn& t) { return t.trait; });
  print_row(store, "        regrn_m(:)=", report, [](const source&, const turn& t) { return t.regression; });
  print_row(store, "        regrnacv_m(:)=", report, [](const source&, const turn& t) { return t.acv_no; });
  print_row(store, "        regrnfe_m(:)=", report, [](const source& x, const turn&) { return x.trait; });
  print_row(store, "        regrnfeno_m(:)=", report, [](const source& x, const turn&) { return x.feno; });
}

void print_regressions(const model_records& m, const covariate_store& store, reporting& report) {
  say(report, "        regrn, trait_no reg_no reg_type ef_rci ef_no_w group_no neq");
  std::int32_t n = 0;
  for (const class_effect_source& x : store.FETOCVRC)
    for (const turned_regression& t : x.regressions)
      say(report, free_row()
                      .i(++n)
                      .i(t.trait)
                      .i(t.regression)
                      .i(m.MODEL(t.trait).REG_TYPE(t.regression))
                      .i(x.ef_rci)
                      .i(x.ef_no_w)
                      .i(t.group)
                      .i(t.first)
                      .str());
}

// Per group its mark, the kind of effect that it is as a source, and how many
// regressions in it are turned.
void print_groups(const equation_layout& layout, const covariate_store& store, reporting& report) {
  say(report, "        group  ef_type reg_rn no-PED_regrn");
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    std::int32_t type = 0, turned_here = 0;
    for (const class_effect_source& x : store.FETOCVRC) {
      if (x.group == g) type = static_cast<std::int32_t>(x.ef_type);
      for (const turned_regression& t : x.regressions) turned_here += t.group == g;
    }
    say(report, free_row().i(g).i(type).i(store.feeds(g) ? 1 : 0).i(turned_here).str());
  }
}

// ---- refresh

// HCSOL, mef and sd of one source.
void centre(const vec<double>& sol, class_effect_source& x) {
  const auto solution = [&](std::int32_t l) { return sol(x.first + (l - 1) * x.step); };
  double sum = 0, squares = 0;
  for (std::int32_t l = 1; l <= x.levels; ++l) sum += solution(l);
  x.mef = sum / x.levels;
  for (std::int32_t l = 1; l <= x.levels; ++l) {
    x.HCSOL(l) = solution(l) - x.mef;
    squares += x.HCSOL(l) * x.HCSOL(l);
  }
  // s.d. with divisor levels - 1; never below least_deviation, since the coefficients are divided by it
  x.sd = x.levels > 1 ? std::sqrt(squares / (x.levels - 1)) : 0.0;
  x.sd = std::max(x.sd, least_deviation);
}

} // namespace

void FETOCV(const model_records& m, const equation_layout& layout, const directives& asked,
            std::string_view list_file, design_store& design, reporting& report) {
  tell_list(asked, report);
  covariate_store& store = design.covariates;
  store.stdef = asked.stdef;
  allocate_rows(report, store.FETOCVRC, "FETOCVRC", routine, static_cast<std::int64_t>(asked.FETOCV.size()));
  const user_list list{m, layout, list_file, report};
  for (std::size_t i = 0; i < asked.FETOCV.size(); ++i)
    resolve(list, asked.FETOCV[i], static_cast<std::int64_t>(i) + 1, store.FETOCVRC[i]);
  allocate(report, store.gfetocv, "gfetocv", routine, layout.ngroups);
  for (class_effect_source& x : store.FETOCVRC) {
    allocate_source(m, x, report);
    store.gfetocv(x.group) = 1;
  }
  if (asked.test_level <= 1) return;
  print_sources(store, report);
  print_links(store, report);
  print_regressions(m, store, report);
  print_groups(layout, store, report);
}

void keep_covariates(std::int64_t r, const vec<std::int32_t>& IINP, const vec<float>& RINP,
                     design_store& design, reporting& report) {
  for (class_effect_source& x : design.covariates.FETOCVRC) {
    const std::int32_t level = IINP(x.ef_rci);
    if (level > x.levels)
      illegal_input(report, integers_file, "level of covariable source", {r, x.trait, x.feno},
                    std::to_string(level), "at most " + std::to_string(x.levels));
    x.FE_LEV(r) = level;
    std::int32_t c = 0;
    for (const turned_regression& t : x.regressions) {
      ++c;
      for (std::int32_t e = 1; e <= design.M_M(r); ++e) {
        if (design.XD7_M(e, r) != 0 || design.XD1_M(e, r) < t.first || design.XD1_M(e, r) > t.last) continue;
        const float base = RINP(t.base_rci);
        if (!std::isfinite(base))
          illegal_input(report, "RCDATA_R", "associated covariable", {r, t.trait, t.regression},
                        std::isnan(base) ? "NaN" : (base > 0 ? "Infinity" : "-Infinity"), "a finite number");
        // where the coefficient is in the record, and the covariable that it multiplies
        x.entry(c, r) = e;
        x.base(c, r) = base;
      }
    }
  }
}

void refresh_covariates(const vec<double>& sol, design_store& design) {
  const bool scaled = design.covariates.stdef != 0;
  for (class_effect_source& x : design.covariates.FETOCVRC) {
    if (x.levels > 0) centre(sol, x);
    const std::int64_t n = static_cast<std::int64_t>(x.regressions.size());
    for (std::int32_t r = 1; r <= design.nobs; ++r) {
      const std::int32_t level = x.FE_LEV(r);
      for (std::int64_t c = 1; c <= n; ++c) {
        const std::int32_t e = x.entry(c, r);
        if (e == 0) continue;
        // z = covariable times the centred solution of the record's level, over the s.d. where asked for; 0
        // without a level
        double z = level > 0 ? static_cast<double>(x.base(c, r)) * x.HCSOL(level) : 0.0;
        if (scaled) z /= x.sd;
        design.ZD_M(e, r) = z;
      }
    }
  }
}

bool is_turned(const covariate_store& covariates, std::int32_t e) {
  for (const class_effect_source& x : covariates.FETOCVRC)
    for (const turned_regression& t : x.regressions)
      if (e >= t.first && e <= t.last) return true;
  return false;
}

} // namespace zeph
