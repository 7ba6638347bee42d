#include "input/data_loading.h"

#include "formats/free_format.h"
#include "formats/sequential_file.h"
#include "input/class_effect_covariates.h"
#include "input/structures.h"
#include "input/trait_kinds.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/column_view.h"
#include "numerics/storage_door.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace zeph {
namespace {

constexpr std::string_view integers_file = "RCDATA_I";
constexpr std::string_view reals_file = "RCDATA_R";

// Traits of the latent kinds are brought near zero when they are read: 0 and 1
// become -0.1 and 0.1, in single precision.
constexpr float latent_scale = 0.2F;
constexpr float latent_shift = -0.1F;

// Bounds of censored observations that are open to one side.
constexpr float below_all = -999999.0F; // kept: the open bounds of censored values are these finite numbers
constexpr float above_all = 999999.0F;

// The current record and the work area of its row.
struct data_record {
  std::int64_t r = 0;         // its number, from 1
  std::int32_t mask = 0;      // present traits
  vec<std::int32_t> IINP;     // iv_50
  vec<float> RINP;            // n_real
  std::vector<bool> scaled;   // nt: observations are of a latent scale
  mat<std::int32_t> freg_grp; // nt x mxreg: group of each regression, 0: none
  vec<std::uint64_t> keys;    // m: equation number, below it the order of building
  std::int32_t entries = 0;   // of the row under construction
};

// What a record is loaded with.
struct loading {
  const model_records& m;
  const equation_layout& layout;
  design_store& design;
  data_record& in;
  reporting& report;
};

std::string range_text(std::int64_t low, std::int64_t high) {
  return std::to_string(low) + ".." + std::to_string(high);
}

void check_range(reporting& report, std::string_view item, std::initializer_list<std::int64_t> indices,
                 std::int64_t value, std::int64_t low, std::int64_t high) {
  if (value < low || value > high)
    illegal_input(report, integers_file, item, indices, std::to_string(value), range_text(low, high));
}

[[noreturn]] void illegal_real(reporting& report, std::string_view item,
                               std::initializer_list<std::int64_t> indices, float value,
                               std::string_view rule) {
  const std::string field = free_row().r4(value).str();
  illegal_input(report, reals_file, item, indices,
                std::string_view(field).substr(field.find_first_not_of(' ')), rule);
}

void check_finite(reporting& report, std::string_view item, std::initializer_list<std::int64_t> indices,
                  float value) {
  if (!std::isfinite(value)) illegal_real(report, item, indices, value, "a finite number");
}

// Group 1 holds all plain regressions; each nested one has a group of its own.
void number_regression_groups(const model_records& m, const equation_layout& layout, data_record& in) {
  std::int32_t group = layout.n_reg0 > 0 ? 1 : 0;
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_reg; ++j) {
      if (m.MODEL(i).REG_TYPE(j) == 0) in.freg_grp(i, j) = 1;
      if (m.MODEL(i).REG_TYPE(j) == 1) in.freg_grp(i, j) = ++group;
    }
}

// A sequence counts its records from 1; the last one has the position negative.
void store_sequence(const model_records& m, const data_record& in, design_store& design, reporting& report) {
  std::int32_t position = 0;
  for (std::int32_t i = 1; i <= m.nt; ++i)
    if (m.MODEL(i).TRAIT_TYPE == trait_sequence) position = in.IINP(m.MODEL(i).SEQ_RCI);
  // after a negative position a sequence begins at 1, after a positive one it continues
  const std::int32_t before = in.r > 1 ? design.SEQ_M(in.r - 1) : -1;
  const std::int64_t expected = before > 0 ? std::int64_t{before} + 1 : 1;
  if (std::abs(std::int64_t{position}) != expected || expected > m.n_cure_seq)
    illegal_input(report, integers_file, "sequence position", {in.r}, std::to_string(position),
                  "positions in order, at most " + std::to_string(m.n_cure_seq) +
                      ", negative on the last record of a sequence");
  design.SEQ_M(in.r) = position;
}

void store_head(const model_records& m, data_record& in, design_store& design, reporting& report) {
  const structure_record& residual = m.residual();
  const std::int64_t r = in.r;
  in.mask = in.IINP(m.iv_50 - 2);
  check_range(report, "mask of traits", {r}, in.mask, 0, (std::int64_t{1} << m.nt) - 1);
  const std::int32_t pattern = in.IINP(m.iv_50 - 1);
  check_range(report, "missing pattern", {r}, pattern, 0, residual.n_pat);
  const std::int32_t group = has_residual_groups(residual) ? in.IINP(residual.HETGR_RCI) : 1;
  check_range(report, "residual group", {r}, group, 1, m.n_groups_residual());

  design.ISIT_M(r) = in.mask;
  design.C_ISIT_M(r) = pattern;
  design.IRESG_M(r) = group;
  if (design.OBS_POS_M.allocated()) design.OBS_POS_M(r) = in.IINP(m.iv_50);
  if (design.SEQ_M.allocated()) store_sequence(m, in, design, report);
  if (m.L_TD) {
    const std::int32_t level = in.IINP(m.RMAT(m.TD_FACTOR).R_EFF_RCI(1));
    check_range(report, "level of TD_FACTOR", {r}, level, 0, m.NRALEV(m.TD_FACTOR));
    design.G_TD_LEVEL(r) = level;
  }
}

// Code of a censored trait and the bounds between which its value lies, by code: -1
// left, 1 right, 2 interval; any other code is a plain observation. They are stored, and
// not tested, of missing traits too, whose values are imputed and not drawn between them.
// Only code 2 needs a place of the upper limit.
void store_bounds(const model_records& m, std::int32_t i, bool present, const data_record& in,
                  design_store& design, reporting& report) {
  const trait_record& trait = m.MODEL(i);
  const float y = in.RINP(trait.Y_RCI);
  const std::int32_t code = in.IINP(trait.CENS_RCI);
  // an observed value is bounded by itself, a censored one on its open side by a far number
  float low = y, high = y;
  if (code == -1) low = below_all;
  if (code == 1) high = above_all;
  if (code == 2) {
    if (trait.UPPER_RCI < 1 || trait.UPPER_RCI > m.n_real)
      illegal_input(report, "MODINF", "MODEL%UPPER_RCI", {i}, std::to_string(trait.UPPER_RCI),
                    range_text(1, m.n_real));
    high = in.RINP(trait.UPPER_RCI);
    if (present && !(high >= low))
      illegal_real(report, "upper limit", {in.r, i}, high, "not below the observation");
  }
  design.CENS_M(i, in.r) = code;
  design.Y_MMIN(i, in.r) = low;
  design.Y_MMAX(i, in.r) = high;
}

void store_observations(const model_records& m, data_record& in, design_store& design, reporting& report) {
  const std::int64_t r = in.r;
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const trait_record& trait = m.MODEL(i);
    const bool present = trait_present(in.mask, i, m.nt);
    float& y = in.RINP(trait.Y_RCI);
    if (present) check_finite(report, "observation", {r, i}, y);
    if (trait.TRAIT_TYPE == trait_sequence)
      design.CURE_Y[static_cast<std::size_t>(i - 1)](r) = present && y > 0.0F;
    if (in.scaled[static_cast<std::size_t>(i - 1)] && present) {
      y *= latent_scale;
      y += latent_shift;
    }
    if (trait.TRAIT_TYPE == trait_censored) store_bounds(m, i, present, in, design, report);
  }
  const std::int32_t first = m.MODEL(1).Y_RCI; // observations are side by side, in trait order
  for (std::int32_t i = 1; i <= m.nt; ++i) design.Y_M(i, r) = in.RINP(first + i - 1);
}

void store_weights(const model_records& m, const data_record& in, design_store& design, reporting& report) {
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    float weight = 1.0F;
    if (m.MODEL(t).WGT_FLAG != 0 && trait_present(in.mask, t, m.nt)) {
      weight = in.RINP(m.MODEL(t).WGT_RCI);
      if (!std::isfinite(weight) || weight < 0.0F)
        illegal_real(report, "weight", {in.r, t}, weight, "a finite number, not negative");
    }
    design.WV_M(t, in.r) = weight;
    design.WV_SQRT_M(t, in.r) = std::sqrt(weight);
  }
}

// One entry of a row: columns 1 to 7 and the coefficient.
struct row_entry {
  std::int64_t equation = 0;
  std::int32_t trait = 0, group = 0;
  std::int64_t level = 0, place = 0;
  std::int32_t type = 0, factor = 0;
  double z = 0;
};

void add_entry(const row_entry& e, const equation_layout& layout, data_record& in, design_store& design,
               reporting& report) {
  check_range(report, "equation", {in.r, in.entries + 1}, e.equation, 1, layout.neq);
  const auto xd = col_of(design.XD, ++in.entries);
  xd[0] = static_cast<std::int32_t>(e.equation);
  xd[1] = e.trait;
  xd[2] = e.group;
  xd[3] = static_cast<std::int32_t>(e.level);
  xd[4] = static_cast<std::int32_t>(e.place);
  xd[5] = e.type;
  xd[6] = e.factor;
  design.ZD(in.entries) = e.z;
}

void add_regressions(const loading& x) {
  for (std::int32_t i = 1; i <= x.m.nt; ++i) {
    if (!trait_present(x.in.mask, i, x.m.nt)) continue;
    const trait_record& trait = x.m.MODEL(i);
    for (std::int32_t j = 1; j <= trait.n_reg; ++j) {
      const std::int32_t kind = trait.REG_TYPE(j);
      if (kind != 0 && kind != 1) continue;
      row_entry e;
      e.trait = i;
      e.group = x.in.freg_grp(i, j);
      e.level = 1;
      if (kind == 1) {
        e.level = x.in.IINP(trait.REG_N_RCI(j));
        check_range(x.report, "level of nested regression", {x.in.r, i, j}, e.level, 1,
                    x.m.NLEV(i, trait.REG_N_EF_INP(j)));
      }
      // NBEG.. are numbers of equations before the block: level l is equation NBEG + l
      e.equation = x.m.NBEGREG(i, j) + e.level;
      e.place = kind == 0 ? e.equation : 1; // plain regressions are equations 1, 2, .. of their group
      if (trait.REG_MIXTURE(j)) e.type = trait.MIX_EQ_TYPE;
      const float value = x.in.RINP(trait.REG_RCI(j));
      check_finite(x.report, "covariable", {x.in.r, i, j}, value);
      e.z = value;
      add_entry(e, x.layout, x.in, x.design, x.report);
    }
  }
}

// Raises `group` for each effect with equations, used in this record or not.
void add_fixed_effects(const loading& x, std::int32_t& group) {
  for (std::int32_t i = 1; i <= x.m.nt; ++i) {
    const trait_record& trait = x.m.MODEL(i);
    for (std::int32_t j = 1; j <= trait.n_f; ++j) {
      if (!trait.INTERCEPT(j)) continue;
      ++group;
      const std::int32_t level = x.in.IINP(trait.f_ef_rci(j));
      if (level <= 0 || !trait_present(x.in.mask, i, x.m.nt)) continue;
      check_range(x.report, "level of fixed effect", {x.in.r, i, j}, level, 1, x.m.NLEV(i, j));
      row_entry e;
      e.equation = std::int64_t{x.m.NBEGF(i, j)} + level;
      e.trait = i;
      e.group = group;
      e.level = level;
      e.place = 1;
      e.z = 1.0;
      add_entry(e, x.layout, x.in, x.design, x.report);
    }
  }
}

// Contribution c of factor k, for a record that has a level of it.
void add_contribution(const loading& x, std::int32_t k, std::int32_t c, std::int32_t level,
                      std::int32_t group) {
  const structure_record& f = x.m.RMAT(k);
  check_range(x.report, "level of random factor", {x.in.r, k, c}, level, 1, x.m.NRALEV(k));
  const std::int64_t first = x.m.NBEGRA(k), order = f.n_rc;
  row_entry e;
  e.trait = f.CONT_T_NO(c);
  e.group = group;
  // (level-1) n_rc + NBEGRA + row, row = CONT_POS + CONT_RC - 1; level and place are taken back from it,
  // since with CONT_LC the row names another level
  e.equation = f.CONT_RC(c) + ((std::int64_t{level} - 1) * order + first + f.CONT_POS(c)) - 1;
  check_range(x.report, "equation of random factor", {x.in.r, k, c}, e.equation, first + 1,
              first + order * x.m.NRALEV(k));
  e.level = (e.equation - first - 1) / order + 1;
  e.place = (e.equation - first - 1) % order + 1;
  e.factor = k;
  e.z = f.CONT_COEFF(c);
  if (f.CONT_RR_EFF(c)) {
    const trait_record& trait = x.m.MODEL(e.trait);
    const float value = x.in.RINP(f.CONT_RR_RCI(c));
    check_finite(x.report, "covariable of random factor", {x.in.r, k, c}, value);
    if (trait.L_MIX_TRAIT)
      e.type = trait.MIX_EQ_TYPE;
    else if (value == 0.0F)
      return; // a missing covariable
    e.z = static_cast<double>(value) * f.CONT_COEFF(c);
  }
  add_entry(e, x.layout, x.in, x.design, x.report);
}

void add_random_factors(const loading& x, std::int32_t group) {
  for (std::int32_t k = 1; k <= x.m.nramat; ++k) {
    const structure_record& f = x.m.RMAT(k);
    ++group;
    for (std::int32_t c = 1; c <= f.n_cont; ++c) {
      const std::int32_t level = x.in.IINP(f.CONT_EFF_RCI(c));
      if (level != 0 && trait_present(x.in.mask, f.CONT_T_NO(c), x.m.nt))
        add_contribution(x, k, c, level, group);
    }
  }
}

// Moves the row built in XD, ZD into the store, by ascending equation number;
// entries of one equation keep the order in which they were built.
void store_row(data_record& in, design_store& design) {
  for (std::int32_t e = 1; e <= in.entries; ++e)
    // equation in the upper half, place in the lower: sorting keeps entries of one equation in order
    in.keys(e) = static_cast<std::uint64_t>(design.XD(1, e)) << 32 | static_cast<std::uint64_t>(e);
  std::sort(in.keys.data(), in.keys.data() + in.entries);

  const std::int64_t r = in.r;
  for (std::int32_t e = 1; e <= in.entries; ++e) {
    const auto from = static_cast<std::int32_t>(in.keys(e) & 0xFFFFFFFFU);
    const auto xd = col_of(design.XD, from);
    design.XD1_M(e, r) = xd[0];
    design.XD2_M(e, r) = xd[1];
    design.XD3_M(e, r) = xd[2];
    design.XD4_M(e, r) = xd[3];
    design.XD5_M(e, r) = xd[4];
    design.XD6_M(e, r) = xd[5];
    design.XD7_M(e, r) = xd[6];
    design.ZD_M(e, r) = design.ZD(from);
  }
  design.M_M(r) = in.entries;
}

void load_record(const loading& x) {
  // masks and groups, observations and their bounds, weights; then the row of equations, sorted
  store_head(x.m, x.in, x.design, x.report);
  store_observations(x.m, x.in, x.design, x.report);
  store_weights(x.m, x.in, x.design, x.report);

  x.in.entries = 0;
  std::int32_t group = (x.layout.n_reg0 > 0 ? 1 : 0) + x.layout.n_reg1;
  add_regressions(x);
  add_fixed_effects(x, group);
  add_random_factors(x, group);
  store_row(x.in, x.design);
  keep_covariates(x.in.r, x.in.IINP, x.in.RINP, x.design, x.report);
}

// The next record of both files: 0, or the code of the first read that failed.
int read_record(sequential_reader& integers, sequential_reader& reals, data_record& in) {
  integers.next();
  reals.next();
  integers.take(in.IINP.data(), in.IINP.size());
  reals.take(in.RINP.data(), in.RINP.size());
  return integers.code() != 0 ? integers.code() : reals.code();
}

// Reads all records; those beyond the model's number are counted, not stored.
// `code` leaves with the code of the read that found no first record, or 0.
std::int64_t load_records(const loading& x, int& code) {
  sequential_reader integers, reals;
  integers.open(path_of(x.report, integers_file));
  reals.open(path_of(x.report, reals_file));
  std::int64_t IREC = 0;
  code = read_record(integers, reals, x.in);
  for (int now = code; now == 0; now = read_record(integers, reals, x.in)) {
    x.in.r = ++IREC;
    if (IREC <= x.m.nobs()) load_record(x);
  }
  return IREC;
}

void allocate_work(const model_records& m, std::int32_t entries, data_record& in, reporting& report) {
  allocate(report, in.freg_grp, "freg_grp", "READTOMXD", m.nt, m.mxreg);
  allocate(report, in.IINP, "iinp", "QVAgib_ALLOC", m.iv_50);
  allocate(report, in.RINP, "rinp", "QVAgib_ALLOC", m.n_real);
  allocate(report, in.keys, "keys", "READTOMXD", entries);
}

} // namespace

std::int64_t largest_record(const model_records& m) {
  std::int64_t entries = 0;
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const trait_record& trait = m.MODEL(i);
    entries += trait.n_reg;
    for (std::int32_t j = 1; j <= trait.n_f; ++j) entries += trait.INTERCEPT(j);
  }
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_record& f = m.RMAT(k);
    const auto intercepts =
        std::count_if(f.INTERCEPT.begin(), f.INTERCEPT.end(), [](logical l) { return l != 0; });
    entries += std::max<std::int64_t>(intercepts, f.n_cont);
  }
  return entries;
}

int READTOMEM(const model_records& m, const equation_layout& layout, design_store& design,
              relationship_store& relations, reporting& report) {
  const std::int64_t largest = largest_record(m);
  if (largest > std::numeric_limits<std::int32_t>::max())
    allocation_failure(report, "MME_ALLOC", "XD", largest, allocation_status);
  const auto entries = static_cast<std::int32_t>(largest);

  int ierr = 0, code = 0;
  std::int64_t IREC = 0;
  {
    data_record in;
    for (const trait_record& trait : m.MODEL_rows) in.scaled.push_back(kind_of(trait).scaled);
    allocate_work(m, entries, in, report);
    number_regression_groups(m, layout, in);
    MME_ALLOC(m, entries, design, report);
    IREC = load_records({m, layout, design, in, report}, code);
  }
  // fewer or more records than the model says is an error after the counts are printed
  design.nobs = static_cast<std::int32_t>(std::min<std::int64_t>(IREC, m.nobs()));
  if (code != 0) {
    say(report);
    say(report, free_row().text("ERROR  reading 1st record from RCDATA. Error code= ").i(code).str());
    say(report);
    ierr = 1;
  }

  say(report);
  say_count(report, "No of observations read ...........................", IREC);
  if (IREC != m.nobs()) {
    say_count(report, "ERROR reading RCDATA. Expected no. of obsevations ", m.nobs());
    say(report);
    if (ierr == 0) ierr = 2;
  } else if (design.SEQ_M.allocated() && IREC > 0 && design.SEQ_M(IREC) > 0) {
    illegal_input(report, integers_file, "sequence position", {IREC}, std::to_string(design.SEQ_M(IREC)),
                  "negative on the last record");
  }

  if (read_relationships(m, relations, report) != 0) ierr = 1;
  return ierr;
}

} // namespace zeph
