#include "samples/restart.h"

#include "formats/free_format.h"
#include "formats/whole_file.h"
#include "input/trait_kinds.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace zeph {
namespace {

constexpr std::string_view parameters_file = "r_parm";
constexpr std::string_view solutions_file = "oldsol";

// ---- the layout ----

// The matrices and vectors of the first part, in order. visit(thing, name, k,
// first, n, matrix): `thing` as the messages call it; k counts the records of
// one name, 0 for a single one; n elements from `first`; matrix: all finite.
// `Store` is a sampler_store, or a const one. False as soon as a visit says so.
template <class Store, class Visit> bool walk_matrices(const model_records& m, Store& s, Visit&& visit) {
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    if (!visit("matrix GIF", "GIF", k, s.GIF.unchecked_slice(k), s.GIF.extent(1) * s.GIF.extent(2), true))
      return false;
  return visit("vector GDET", "GDET", 0, s.GDET.data(), s.GDET.size(), false) &&
         visit("matrix RCOV", "RCOV", 0, s.RCOV.data(), s.RCOV.size(), true) &&
         visit("vector RDET", "RDET", 0, s.RDET.data(), s.RDET.size(), false) &&
         visit("matrix RCOVI", "RCOVI", 0, s.RCOVI.data(), s.RCOVI.size(), true) &&
         visit("vector LVDET", "LVDET", 0, s.LVDET.data(), s.LVDET.size(), false) &&
         visit("vector IDET_RVAR", "IDET_RVAR", 0, s.IDET_RVAR.data(), s.IDET_RVAR.size(), false);
}

// The records of the second part, in order: observations(j) for the traits whose
// values are latent, coefficients(j, regression), groups(). Each returns false
// to end the walk.
template <class Observations, class Coefficients, class Groups>
bool walk_latent(const model_records& m, Observations&& observations, Coefficients&& coefficients,
                 Groups&& groups) {
  for (std::int32_t j = 1; j <= m.nt; ++j) {
    const trait_record& trait = m.MODEL(j);
    if (kind_of(trait).stored && !observations(j)) return false;
    for (std::int32_t x = 1; x <= trait.n_reg; ++x)
      if (trait.REG_MIXTURE(x) && !coefficients(j, x)) return false;
  }
  return m.n_groups_residual() < 2 || groups();
}

// The entry of record i that holds the coefficient of regression x of trait j, a
// mixture coefficient of the fixed part; 0 when the record has none.
std::int32_t entry_of(const model_records& m, const design_store& d, std::int32_t j, std::int32_t x,
                      std::int32_t i) {
  const trait_record& trait = m.MODEL(j);
  const std::int32_t kind = trait.REG_TYPE(x);
  if (kind != 0 && kind != 1) return 0; // random regressions have equations of their factor only
  // a plain regression is one equation, a nested one an equation a level of its effect
  const std::int32_t first = m.NBEGREG(j, x) + 1;
  const std::int32_t last = kind == 0 ? first : m.NBEGREG(j, x) + m.NLEV(j, trait.REG_N_EF_INP(x));
  for (std::int32_t e = 1; e <= d.M_M(i); ++e)
    if (d.XD2_M(e, i) == j && d.XD6_M(e, i) > 0 && d.XD7_M(e, i) == 0 && d.XD1_M(e, i) >= first &&
        d.XD1_M(e, i) <= last)
      return e;
  return 0;
}

// ---- writing ----

template <class T> bool put_record(sequential_writer& out, const T* x, std::int64_t n) {
  out.begin();
  out.put(x, n);
  return out.end();
}

bool put_pair(sequential_writer& out, std::int32_t a, std::int32_t b) {
  const std::int32_t pair[2] = {a, b};
  return put_record(out, pair, 2);
}

bool write_latent(const model_records& m, const design_store& d, sequential_writer& out) {
  const auto put_observations = [&](std::int32_t j) {
    out.begin();
    for (std::int32_t i = 1; i <= d.nobs; ++i) out.put(d.Y_M(j, i));
    return out.end();
  };
  const auto put_coefficients = [&](std::int32_t j, std::int32_t x) {
    out.begin();
    for (std::int32_t i = 1; i <= d.nobs; ++i) {
      const std::int32_t e = entry_of(m, d, j, x, i);
      out.put(e > 0 ? d.ZD_M(e, i) : 0.0);
    }
    return out.end();
  };
  return walk_latent(m, put_observations, put_coefficients,
                     [&] { return put_record(out, d.IRESG_M.data(), d.nobs); });
}

// ---- reading ----

// The next record into x(0..n-1): 0, or the code of the failure.
template <class T> int take_record(sequential_reader& in, T* x, std::int64_t n) {
  in.next();
  in.take(x, n);
  return in.code();
}

// A read of the first part that failed; `thing` is named when it isn't empty.
[[noreturn]] void fail_parameters(reporting& report, std::string_view thing) {
  say(report);
  say(report, "ERROR: reading parameters for restart");
  if (!thing.empty()) say(report, "       reading " + std::string(thing));
  QVA_LOG(report);
}

std::string trimmed_real(double x) {
  const std::string field = free_row().r8(x).str();
  return field.substr(field.find_first_not_of(' '));
}

void say_seeds(reporting& report, bool same) {
  say_label(report, "The seeds for random number generator specified are");
  say_label(report, same ? "the same as used in the previous part of the chain "
                         : "different from the once used in the previous run   ");
  say_label(report, same ? "Restart will take up the random sequence           "
                         : "Restart will start a new random sequence           ");
  say(report);
}

// The state must be one that draws can have left.
void check_marsaglia(const marsaglia_state& state, reporting& report) {
  const auto wrong = [&](std::string_view name, const std::string& value, std::string_view rule) {
    illegal_input(report, parameters_file, name, {}, value, rule);
  };
  for (const auto& [name, place] : {std::pair{"I97", state.I97}, std::pair{"J97", state.J97}})
    if (place < 1 || place > 97) wrong(name, std::to_string(place), "1..97");
  if (!state.TEST) wrong("TEST", "F", "T");
  if (ranmar_possible(state)) return;
  for (std::size_t i = 0; i < state.U.size(); ++i)
    if (!ranmar_number(state.U[i]))
      illegal_input(report, parameters_file, "U", {static_cast<std::int64_t>(i + 1)},
                    trimmed_real(state.U[i]), "a multiple of 2**-24 in [0,1)");
  constexpr double CD = marsaglia_source::CD * marsaglia_source::unit;
  constexpr double CM = marsaglia_source::CM * marsaglia_source::unit;
  if (state.CD != CD) wrong("CD", trimmed_real(state.CD), "7654321/2**24");
  if (state.CM != CM) wrong("CM", trimmed_real(state.CM), "16777213/2**24");
  if (!ranmar_number(state.C, CM)) wrong("C", trimmed_real(state.C), "a multiple of 2**-24 in [0,CM)");
  wrong("J97", std::to_string(state.J97), "I97-64 or I97+33");
}

// The current pair of the combined source, within its moduli.
void check_pair(const std::int32_t (&current)[2], reporting& report) {
  constexpr std::int32_t most[2] = {combined_source::m1 - 1, combined_source::m2 - 1};
  for (int i = 0; i < 2; ++i)
    if (current[i] < 1 || current[i] > most[i])
      illegal_input(report, parameters_file, "current seed", {i + 1}, std::to_string(current[i]),
                    "1.." + std::to_string(most[i]));
}

void read_sources(random_sources& sources, const directives& asked, sequential_reader& in,
                  reporting& report) {
  std::int32_t seeds[2] = {}, current[2] = {};
  if (take_record(in, seeds, 2) != 0 || take_record(in, current, 2) != 0) fail_parameters(report, "");
  if (ranmar_read(sources.marsaglia, in) != 0) fail_parameters(report, "");
  check_marsaglia(sources.marsaglia.saved, report);

  const bool same = seeds[0] == asked.seed_a && seeds[1] == asked.seed_b;
  say_seeds(report, same);
  if (same) {
    check_pair(current, report);
    SETALL(sources.combined, current[0], current[1]);
  } else {
    SETALL(sources.combined, asked.seed_a, asked.seed_b);
  }
}

void read_matrices(const model_records& m, sampler_store& s, sequential_reader& in, reporting& report) {
  s.GIF.fill(0);
  walk_matrices(m, s,
                [&](std::string_view thing, std::string_view name, std::int32_t k, double* x, std::int64_t n,
                    bool matrix) {
                  if (take_record(in, x, n) != 0) fail_parameters(report, thing);
                  for (std::int64_t e = 1; matrix && e <= n; ++e) {
                    if (std::isfinite(x[e - 1])) continue;
                    const std::string value = trimmed_real(x[e - 1]);
                    if (k > 0) illegal_input(report, parameters_file, name, {k, e}, value, "a finite number");
                    illegal_input(report, parameters_file, name, {e}, value, "a finite number");
                  }
                  return true;
                });
}

// A read of the second part that failed.
[[noreturn]] void fail_latent(reporting& report, std::string_view item,
                              std::initializer_list<std::int64_t> indices, int code, std::int64_t n) {
  illegal_input(report, parameters_file, item, indices,
                code == sequential_reader::end_of_file ? "end of file" : "a short record",
                "a record of " + std::to_string(n) + " values");
}

void read_groups(const model_records& m, design_store& d, sequential_reader& in, reporting& report) {
  const int code = take_record(in, d.IRESG_M.data(), d.nobs);
  if (code != 0) fail_latent(report, "IRESG_M", {}, code, d.nobs);
  for (std::int32_t i = 1; i <= d.nobs; ++i)
    if (d.IRESG_M(i) < 1 || d.IRESG_M(i) > m.n_groups_residual())
      illegal_input(report, parameters_file, "IRESG_M", {i}, std::to_string(d.IRESG_M(i)),
                    "1.." + std::to_string(m.n_groups_residual()));
}

} // namespace

void reserve_state(const model_records& m, const design_store& design, const sampler_store& store,
                   sequential_writer& out, reporting& report) {
  std::int64_t longest = 1024; // bytes; records of lastsol and of the random sources are shorter
  const auto grow = [&](std::int64_t bytes) { longest = std::max(longest, bytes); };
  walk_matrices(m, store,
                [&](std::string_view, std::string_view, std::int32_t, const double*, std::int64_t n, bool) {
                  grow(n * static_cast<std::int64_t>(sizeof(double)));
                  return true;
                });
  if (m.residual().n_hetgr > 0)
    grow(IW_STR_of(store, m.nramat + 1, "ZEPH", report).SCALE.size() *
         static_cast<std::int64_t>(sizeof(double)));
  const auto records_of_width = [&](std::size_t width) {
    grow(std::int64_t{design.nobs} * static_cast<std::int64_t>(width));
    return true;
  };
  walk_latent(
      m, [&](std::int32_t) { return records_of_width(sizeof(float)); },
      [&](std::int32_t, std::int32_t) { return records_of_width(sizeof(double)); },
      [&] { return records_of_width(sizeof(std::int32_t)); });
  if (!door_opens(report) || !out.reserve(longest))
    allocation_failure(report, "ZEPH", "gparlast", longest, allocation_status);
}

void write_lastsol(const equation_layout& layout, const sampler_store& store, sequential_writer& out,
                   reporting& report) {
  constexpr std::string_view name = "lastsol";
  whole_file whole(path_of(report, name));
  if (!out.open(whole.path())) write_fault(report, name, "open");
  bool written = put_record(out, &layout.neq, 1);
  for (std::int32_t e = 1; e <= layout.neq && written; ++e) {
    out.begin();
    out.put(e);
    out.put(store.sol(e));
    written = out.end();
  }
  if (!written || !out.close() || !whole.publish()) write_fault(report, name, "write");
}

void write_gparlast(const model_records& m, const design_store& design, const sampler_store& store,
                    random_sources& sources, const directives& asked, const round_state& state,
                    sequential_writer& out, reporting& report) {
  constexpr std::string_view name = "gparlast";
  whole_file whole(path_of(report, name));
  if (!out.open(whole.path())) write_fault(report, name, "open");
  // seeds of the run, current pair of the combined source, state of the Marsaglia source, then matrices
  const auto round = static_cast<std::int32_t>(state.iround - 1); // the last round run
  std::int32_t cg1 = 0, cg2 = 0;
  combined_default_start(sources.combined);
  GETSD(sources.combined, cg1, cg2);

  bool written = put_record(out, &round, 1) && put_pair(out, asked.seed_a, asked.seed_b) &&
                 put_pair(out, cg1, cg2) && ranmar_write(sources.marsaglia, out) &&
                 walk_matrices(m, store,
                               [&](std::string_view, std::string_view, std::int32_t, const double* x,
                                   std::int64_t n, bool) { return put_record(out, x, n); });
  // kept: every one of these records holds the vector of the first residual group
  for (std::int32_t g = 1; g <= m.residual().n_hetgr && written; ++g) {
    const vec<double>& SCALE = IW_STR_of(store, m.nramat + 1, "ZEPH", report).SCALE;
    written = put_record(out, SCALE.data(), SCALE.size());
  }
  written = written && write_latent(m, design, out);
  if (!written || !out.close() || !whole.publish()) write_fault(report, name, "write");
}

std::int64_t read_r_parm(const model_records& m, sampler_store& store, random_sources& sources,
                         const directives& asked, sequential_reader& r_parm, reporting& report) {
  say(report);
  say_label(report, "Reading parameters for restart of chain            ");
  say(report);
  r_parm.open(path_of(report, parameters_file));
  std::int32_t round = 0;
  if (take_record(r_parm, &round, 1) != 0) fail_parameters(report, "scalar P_ROUND");
  say_count(report, "Restart from round ................................", round);
  say(report);

  read_sources(sources, asked, r_parm, report);
  read_matrices(m, store, r_parm, report);
  // kept: record g goes to group g, though each holds the vector of group 1
  for (std::int32_t g = 1; g <= m.residual().n_hetgr; ++g) {
    vec<double>& SCALE = IW_STR_of(store, m.nramat + g, "ZEPH", report).SCALE;
    if (take_record(r_parm, SCALE.data(), SCALE.size()) != 0) fail_parameters(report, "");
  }
  if (!m.has_type(trait_categorical)) return round;
  say(report);
  say(report, " Restart of models including catagorical trait not implemented");
  say(report);
  say(report, "program terminates");
  stop_run(report, exit_diagnosed);
}

void read_r_parm_latent(const model_records& m, design_store& design, sequential_reader& r_parm,
                        reporting& report) {
  const std::int32_t nobs = design.nobs;
  const auto take_observations = [&](std::int32_t j) {
    r_parm.next();
    for (std::int32_t i = 1; i <= nobs; ++i) r_parm.take(design.Y_M(j, i));
    if (r_parm.code() != 0) fail_latent(report, "Y_M", {j}, r_parm.code(), nobs);
    return true;
  };
  const auto take_coefficients = [&](std::int32_t j, std::int32_t x) {
    r_parm.next();
    for (std::int32_t i = 1; i <= nobs; ++i) {
      double z = 0;
      r_parm.take(z);
      if (const std::int32_t e = entry_of(m, design, j, x, i); e > 0) design.ZD_M(e, i) = z;
    }
    if (r_parm.code() != 0) fail_latent(report, "ZD_M", {j, x}, r_parm.code(), nobs);
    return true;
  };
  walk_latent(m, take_observations, take_coefficients, [&] {
    read_groups(m, design, r_parm, report);
    return true;
  });
  r_parm.close();
}

void read_oldsol(const equation_layout& layout, const directives& asked, sampler_store& store,
                 reporting& report) {
  sequential_reader in;
  in.open(path_of(report, solutions_file));
  std::int32_t neq = 0;
  if (take_record(in, &neq, 1) != 0) {
    say(report, "Io error in reading old solutions");
    zeph_terminates(report, false);
  }
  if (neq != layout.neq) {
    say(report, "Format error in file wiht old solutions");
    say(report, free_row().text("neq= ").i(layout.neq).text("No of solutions on file= ").i(neq).str());
    zeph_terminates(report, false);
  }
  if (asked.test_level >= 2) say(report, "Reading old solutions");
  for (std::int32_t row = 1; row <= neq; ++row) {
    std::int32_t e = 0;
    double value = 0;
    in.next();
    in.take(e);
    in.take(value);
    if (in.code() != 0) {
      say(report, "Io error occurred when reading old solutions");
      zeph_terminates(report);
    }
    if (e < 1 || e > neq)
      illegal_input(report, solutions_file, "equation", {row}, std::to_string(e),
                    "1.." + std::to_string(neq));
    store.sol(e) = value;
  }
  say_count(report, "No of old solutions read ..........................", neq);
}

} // namespace zeph
