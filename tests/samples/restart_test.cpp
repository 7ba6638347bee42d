#include "samples/restart.h"

#include "control/start_values.h"
#include "support/chain_frame.h"
#include "support/run_case.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

using namespace zeph_test;

std::string label_row(const std::string& label) { return std::string(9, ' ') + label + "\n"; }
std::string count_row(const std::string& label, std::int64_t count) {
  const std::string number = std::to_string(count);
  return std::string(9, ' ') + label + std::string(11 - number.size(), ' ') + number + "\n";
}

// One record, its frame built by hand.
std::string framed(const std::string& body) {
  const auto n = static_cast<std::int32_t>(body.size());
  const std::string frame(reinterpret_cast<const char*>(&n), 4);
  return frame + body + frame;
}
template <class T> std::string bytes(std::initializer_list<T> values) {
  return {reinterpret_cast<const char*>(std::data(values)), values.size() * sizeof(T)};
}
template <class T> std::string bytes_of_array(const T* x, std::int64_t n) {
  return {reinterpret_cast<const char*>(x), static_cast<std::size_t>(n) * sizeof(T)};
}

// The records of a file with their frames.
std::vector<std::string> records_of(const std::string& file) {
  std::vector<std::string> records;
  for (std::size_t at = 0; at < file.size();) {
    std::int32_t n = 0;
    std::memcpy(&n, file.data() + at, 4);
    records.push_back(file.substr(at, static_cast<std::size_t>(n) + 8));
    at += static_cast<std::size_t>(n) + 8;
  }
  return records;
}
std::string joined(const std::vector<std::string>& records, std::size_t count) {
  std::string file;
  for (std::size_t i = 0; i < count; ++i) file += records[i];
  return file;
}

// Which traits and groups the state of a chain belongs to.
struct state_form {
  std::int32_t first_kind = 1, second_kind = 4;
  bool mixture = true; // trait 1 has a plain and a nested mixture regression, and a random one
  std::int32_t groups = 2;
};

// The state of a small chain: two traits, a factor of order 2 with two levels, a
// factor of order 1 with two levels, three records, neq 12.
//   equation 1 plain regression, 2-3 nested, 4-5 class effect of trait 1, 6-7 its
//   mate of trait 2, 8-11 factor 1, 12-13 factor 2
struct chain_state {
  scratch_directory directory;
  heard_run voice{directory.path()};
  reporting& report = voice.report;
  model_records m;
  equation_layout layout;
  design_store design;
  sampler_store store;
  random_sources sources{report};
  zeph_test::chain_frame frame;
  std::int64_t P_ROUND = 0;
  sequential_reader r_parm;
  sequential_writer out;

  explicit chain_state(const state_form& form = {}) {
    described_model d;
    d.traits.resize(2);
    d.traits[0].kind = form.first_kind, d.traits[1].kind = form.second_kind;
    d.traits[0].effects = d.traits[1].effects = {{1, 2}};
    d.traits[0].regressions = {{3, 0, 0, form.mixture}, {4, 1, 1, form.mixture}, {5, 2, 0, form.mixture}};
    d.traits[0].mix_eq_type = form.mixture ? 2 : 0;
    d.factors = {{"I", 2, 2, {{1, 2, 1}, {2, 2, 2}}}, {"I", 2, 1, {{1, 3, 1}}}};
    d.integers = 7, d.reals = 5, d.records = 3;
    d.residual_groups = form.groups;
    m = build_model(d);
    layout.neq = 13;
    layout.ngroups = 6;
    QVAgib_ALLOC(m, store, report);
    allocate_equations(layout, store, report);
    allocate_dispersion(m, layout, frame.state, store, report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, store, report), 0);
    MME_ALLOC(m, 4, design, report);
    design.nobs = 3;
    fill_design();
    frame.asked.seed_a = 12, frame.asked.seed_b = 34;
    voice.listing.str("");
  }
  // Records: equations (1 plain, 2 or 3 nested, a class effect, a random one).
  void fill_design() {
    for (std::int32_t i = 1; i <= 3; ++i) {
      design.IRESG_M(i) = 1;
      if (i == 3) continue; // record 3 has trait 2 only
      entry(i, 1, 1, 2, 0), entry(i, i + 1, 1, 2, 0), entry(i, 4, 1, 0, 0), entry(i, 8, 1, 2, 1);
    }
    entry(3, 6, 2, 0, 0);
  }
  void entry(std::int32_t i, std::int32_t equation, std::int32_t trait, std::int32_t type,
             std::int32_t factor) {
    const std::int32_t e = ++design.M_M(i);
    design.XD1_M(e, i) = equation, design.XD2_M(e, i) = trait;
    design.XD6_M(e, i) = type, design.XD7_M(e, i) = factor;
    design.ZD_M(e, i) = 100.0;
  }
  // Distinct numbers everywhere.
  void fill_state() {
    double x = 0.5;
    for (cube<double>* a : {&store.GIF, &store.RCOV, &store.RCOVI})
      for (double& cell : *a) cell = x += 0.25;
    for (vec<double>* a : {&store.GDET, &store.RDET, &store.LVDET, &store.IDET_RVAR, &store.sol})
      for (double& cell : *a) cell = x += 0.25;
    for (inverse_wishart_store& f : store.IW_STR)
      for (double& cell : f.SCALE) cell = x += 0.25;
    for (std::int32_t i = 1; i <= 3; ++i) {
      for (std::int32_t t = 1; t <= 2; ++t) design.Y_M(t, i) = static_cast<float>(10 * t + i) / 8.0F;
      for (std::int32_t e = 1; e <= design.M_M(i); ++e) design.ZD_M(e, i) = 10.0 * e + i;
      design.IRESG_M(i) = m.n_groups_residual() > 1 ? 1 + i % 2 : 1;
    }
    RMARIN(sources.marsaglia, 12, 34);
    SETALL(sources.combined, 12, 34);
    RANMAR(sources.marsaglia);
    ranmar_save(sources.marsaglia);
    for (int i = 0; i < 7; ++i) ranf(sources.combined);
    frame.state.iround = 301;
  }
  void write() { write_gparlast(m, design, store, sources, frame.asked, frame.state, out, report); }
  void take(const std::string& file) const { directory.write("r_parm", file); }
  void read_first() { P_ROUND = read_r_parm(m, store, sources, frame.asked, r_parm, report); }
  void read_second() { read_r_parm_latent(m, design, r_parm, report); }
  std::string said() {
    const std::string text = voice.text();
    voice.listing.str("");
    return text;
  }
};

// What a chain with this state leaves.
std::string state_file(const state_form& form = {}) {
  chain_state c(form);
  c.fill_state();
  c.write();
  return c.directory.read("gparlast");
}

const std::string reading = "\n" + label_row("Reading parameters for restart of chain            ") + "\n";
const std::string from_round = count_row("Restart from round ................................", 300) + "\n";
const std::string same_seeds = label_row("The seeds for random number generator specified are") +
                               label_row("the same as used in the previous part of the chain ") +
                               label_row("Restart will take up the random sequence           ") + "\n";
const std::string other_seeds = label_row("The seeds for random number generator specified are") +
                                label_row("different from the once used in the previous run   ") +
                                label_row("Restart will start a new random sequence           ") + "\n";
const std::string fatal = "\nFatal error\n\nSee list file for details\n\nQVA1 terminates wth exit code 16\n";
const std::string failed = "\nERROR: reading parameters for restart\n";

} // namespace

TEST(gparlast, holds_the_state_in_the_order_of_its_layout) {
  chain_state c;
  c.fill_state();
  c.write();
  const sampler_store& s = c.store;
  std::int32_t cg1 = 0, cg2 = 0;
  GETSD(c.sources.combined, cg1, cg2);
  const std::vector<std::string> records = records_of(c.directory.read("gparlast"));
  std::vector<std::string> expected = {framed(bytes<std::int32_t>({300})),
                                       framed(bytes<std::int32_t>({12, 34})),
                                       framed(bytes<std::int32_t>({cg1, cg2}))};
  ASSERT_EQ(records.size(), 19u);
  EXPECT_EQ(records[3].size(), 812u + 8); // the Marsaglia state; its items are pinned where it is written
  expected.push_back(records[3]);
  for (std::int32_t k = 1; k <= 2; ++k)
    expected.push_back(framed(bytes_of_array(s.GIF.unchecked_slice(k), 4)));
  expected.push_back(framed(bytes_of_array(s.GDET.data(), 2)));
  expected.push_back(framed(bytes_of_array(s.RCOV.data(), 8)));
  expected.push_back(framed(bytes_of_array(s.RDET.data(), 3)));
  expected.push_back(framed(bytes_of_array(s.RCOVI.data(), 8)));
  expected.push_back(framed(bytes_of_array(s.LVDET.data(), 4)));
  expected.push_back(framed(bytes_of_array(s.IDET_RVAR.data(), 4)));
  for (int g = 1; g <= 2; ++g) // both hold that of group 1
    expected.push_back(framed(bytes_of_array(s.IW_STR[2].SCALE.data(), 2)));
  // mixture regressions of trait 1: entries 1 and 2 of records 1 and 2; the random one has none
  expected.push_back(framed(bytes<double>({11.0, 12.0, 0.0})));
  expected.push_back(framed(bytes<double>({21.0, 22.0, 0.0})));
  expected.push_back(framed(bytes<double>({0.0, 0.0, 0.0})));
  expected.push_back(framed(bytes<float>({21 / 8.0F, 22 / 8.0F, 23 / 8.0F})));
  expected.push_back(framed(bytes<std::int32_t>({2, 1, 2})));
  EXPECT_EQ(c.said(), "");
  EXPECT_EQ(joined(expected, expected.size()), c.directory.read("gparlast"));
}

TEST(gparlast, has_observations_of_the_latent_kinds_3_4_and_5_only) {
  for (const std::int32_t kind : {1, 2, 3, 4, 5, 7, 8}) {
    const std::size_t records = records_of(state_file({1, kind, false, 1})).size();
    // 12 of the first part, one SCALE, no coefficients, one group
    EXPECT_EQ(records, 13u + (kind >= 3 && kind <= 5)) << kind;
  }
}

TEST(gparlast, of_a_run_without_rounds_has_both_sources_as_they_were_started) {
  chain_state c;
  RMARIN(c.sources.marsaglia, 12, 34);
  c.frame.state.iround = 1;
  c.write();
  const std::vector<std::string> records = records_of(c.directory.read("gparlast"));
  EXPECT_EQ(records[0], framed(bytes<std::int32_t>({0})));
  // the combined source was never used: its default seeds
  EXPECT_EQ(records[2], framed(bytes<std::int32_t>({1234567890, 123456789})));
  double first = 0;
  std::memcpy(&first, records[3].data() + 4, 8);
  EXPECT_EQ(first, ranmar_state(c.sources.marsaglia).U[0]);
}

TEST(gparlast, without_the_stores_of_the_draws_stops) {
  chain_state c;
  c.fill_state();
  c.store.IW_STR.clear();
  const std::string text = expect_stop(16, c.voice, [&](reporting&) { c.write(); });
  EXPECT_EQ(text, "\nERROR - Computation impossible in ZEPH: no storage for IW_STR\n\nZEPH terminates.\n");
  EXPECT_FALSE(c.directory.has("gparlast"));
}

// A small model: the least storage is more than its longest record.
TEST(gparlast, takes_its_storage_before_the_chain_and_none_when_it_is_written) {
  chain_state c;
  reserve_state(c.m, c.design, c.store, c.out, c.report);
  const std::int64_t room = c.out.room();
  EXPECT_GE(room, 1024);
  c.write();
  write_lastsol(c.layout, c.store, c.out, c.report);
  EXPECT_EQ(c.out.room(), room);

  chain_state without;
  without.report.door = {0, 1};
  EXPECT_EQ(expect_stop(16, without.voice,
                        [&](reporting& r) {
                          reserve_state(without.m, without.design, without.store, without.out, r);
                        }),
            allocation_text("gparlast", "1024", "ZEPH"));
}

TEST(gparlast, write_faults_stop_with_code_16) {
  chain_state c;
  std::filesystem::create_symlink("/dev/full", c.directory / "gparlast");
  const std::string text = expect_stop(16, c.voice, [&](reporting&) { c.write(); });
  EXPECT_EQ(text, "\nERROR - gparlast: no space left on the device\n\nZEPH terminates.\n");
}

TEST(r_parm, written_and_read_back_gives_the_same_file) {
  for (const state_form& form : {state_form{},
                                 {1, 1, false, 1},
                                 {5, 4, true, 1},
                                 {1, 7, true, 2},
                                 {2, 8, false, 3},
                                 {4, 5, true, 2}}) {
    const std::string file = state_file(form);
    chain_state c(form);
    for (std::size_t f = 0; f < c.store.IW_STR.size(); ++f) c.store.IW_STR[f].SCALE.fill(9.0);
    c.store.GIF.fill(7.0);
    c.take(file);
    c.read_first();
    EXPECT_EQ(c.said(), reading + from_round + same_seeds);
    EXPECT_EQ(c.P_ROUND, 300);
    EXPECT_TRUE(c.r_parm.is_open());
    c.read_second();
    EXPECT_FALSE(c.r_parm.is_open());
    c.frame.state.iround = 301;
    c.write();
    EXPECT_EQ(c.directory.read("gparlast"), file);
    // record g belongs to group g
    for (std::int32_t g = 1; g <= c.m.n_groups_residual(); ++g)
      EXPECT_EQ(c.store.IW_STR[static_cast<std::size_t>(1 + g)].SCALE(1), c.store.IW_STR[2].SCALE(1));
    EXPECT_EQ(c.store.IW_STR[0].SCALE(1), 9.0);
  }
}

TEST(r_parm, coefficients_come_back_into_their_entries_and_no_other) {
  chain_state c;
  c.take(state_file());
  c.read_first();
  c.read_second();
  const double expected[3][4] = {{11, 21, 100, 100}, {12, 22, 100, 100}, {100, 0, 0, 0}};
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t e = 1; e <= 4; ++e) EXPECT_EQ(c.design.ZD_M(e, i), expected[i - 1][e - 1]);
  EXPECT_EQ(c.design.Y_M(2, 3), 23 / 8.0F);
  EXPECT_EQ(c.design.Y_M(1, 3), 0.0F); // trait 1 isn't latent
  count_group_records(c.m, c.design);
  EXPECT_EQ(c.m.residual().HETG_N_OBS(1), 1);
  EXPECT_EQ(c.m.residual().HETG_N_OBS(2), 2);
}

TEST(r_parm, with_equal_seeds_both_sources_continue_where_they_stopped) {
  chain_state first;
  first.fill_state();
  first.write();
  chain_state second;
  second.take(first.directory.read("gparlast"));
  second.read_first();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(ranf(second.sources.combined), ranf(first.sources.combined));
    EXPECT_EQ(RANMAR(second.sources.marsaglia), RANMAR(first.sources.marsaglia));
  }
}

TEST(r_parm, with_other_seeds_only_the_combined_source_starts_again) {
  chain_state first;
  first.fill_state();
  first.write();
  for (const auto& [a, b] : {std::pair{12, 35}, std::pair{13, 34}}) {
    chain_state second, fresh;
    second.frame.asked.seed_a = a, second.frame.asked.seed_b = b;
    second.take(first.directory.read("gparlast"));
    second.read_first();
    EXPECT_EQ(second.said(), reading + from_round + other_seeds);
    SETALL(fresh.sources.combined, a, b);
    EXPECT_EQ(ranf(second.sources.combined), ranf(fresh.sources.combined));
    marsaglia_source copy = first.sources.marsaglia;
    EXPECT_EQ(RANMAR(second.sources.marsaglia), RANMAR(copy));
  }
}

TEST(r_parm, saved_state_is_restored_with_the_live_one) {
  chain_state c;
  c.take(state_file());
  c.read_first();
  const marsaglia_state state = ranmar_state(c.sources.marsaglia);
  EXPECT_EQ(c.sources.marsaglia.saved.U, state.U);
  EXPECT_EQ(c.sources.marsaglia.saved.I97, state.I97);
  EXPECT_TRUE(c.sources.marsaglia.saved.TEST);
}

// What each record of the first part is called when it can't be read.
const std::vector<std::string> things = {"scalar P_ROUND",
                                         "",
                                         "",
                                         "",
                                         "matrix GIF",
                                         "matrix GIF",
                                         "vector GDET",
                                         "matrix RCOV",
                                         "vector RDET",
                                         "matrix RCOVI",
                                         "vector LVDET",
                                         "vector IDET_RVAR",
                                         "",
                                         ""};

std::string failure_of(std::size_t k) {
  std::string text = reading;
  if (k >= 1) text += from_round;
  if (k >= 4) text += same_seeds;
  return text + failed + (things[k].empty() ? "" : "       reading " + things[k] + "\n") + fatal;
}

TEST(r_parm, first_part_that_ends_too_early_names_the_thing) {
  const std::vector<std::string> records = records_of(state_file());
  for (std::size_t k = 0; k < things.size(); ++k) {
    chain_state c;
    c.take(joined(records, k));
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }), failure_of(k)) << k;
  }
}

TEST(r_parm, first_part_with_a_short_record_names_the_thing) {
  std::vector<std::string> records = records_of(state_file());
  for (std::size_t k = 0; k < things.size(); ++k) {
    std::vector<std::string> cut = records;
    cut[k] = framed(records[k].substr(4, records[k].size() - 12)); // the last four bytes are gone
    chain_state c;
    c.take(joined(cut, cut.size()));
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }), failure_of(k)) << k;
  }
}

TEST(r_parm, second_part_that_ends_too_early_is_illegal_input) {
  const std::vector<std::string> records = records_of(state_file());
  const std::string items[] = {"ZD_M(1,1)", "ZD_M(1,2)", "ZD_M(1,3)", "Y_M(2)", "IRESG_M"};
  for (std::size_t k = 0; k < 5; ++k)
    for (const bool short_record : {false, true}) {
      std::vector<std::string> cut = records;
      const std::string& whole = records[14 + k];
      cut[14 + k] = short_record ? framed(whole.substr(4, whole.size() - 12)) : "";
      chain_state c;
      c.take(joined(cut, short_record ? cut.size() : 14 + k));
      c.read_first();
      c.said();
      EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_second(); }),
                illegal_input_text("r_parm", items[k], short_record ? "a short record" : "end of file",
                                   "a record of 3 values"));
    }
}

TEST(r_parm, longer_records_and_records_after_the_last_are_passed_over) {
  std::vector<std::string> records = records_of(state_file());
  for (std::string& record : records) record = framed(record.substr(4, record.size() - 8) + "more");
  chain_state c;
  c.take(joined(records, records.size()) + framed("one more"));
  c.read_first();
  c.read_second();
  EXPECT_EQ(c.said(), reading + from_round + same_seeds);
}

TEST(r_parm, file_that_cannot_be_opened_fails_as_an_empty_one) {
  chain_state c;
  EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }), failure_of(0));
}

TEST(r_parm, matrix_that_is_not_finite_is_illegal_input) {
  struct fault {
    std::size_t record;
    std::size_t element;
    double value;
    std::string item, text;
  };
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const fault& x :
       {fault{5, 2, infinity, "GIF(2,2)", "Infinity"}, fault{7, 8, std::nan(""), "RCOV(8)", "NaN"},
        fault{9, 1, -infinity, "RCOVI(1)", "-Infinity"}}) {
    std::vector<std::string> records = records_of(state_file());
    std::memcpy(records[x.record].data() + 4 + (x.element - 1) * 8, &x.value, 8);
    chain_state c;
    c.take(joined(records, records.size()));
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
              reading + from_round + same_seeds +
                  illegal_input_text("r_parm", x.item, x.text, "a finite number"));
  }
}

TEST(r_parm, places_of_the_marsaglia_source_outside_1_to_97_are_illegal_input) {
  for (const auto& [name, offset] : {std::pair{"I97", 800}, std::pair{"J97", 804}})
    for (const std::int32_t value : {0, 98, -5}) {
      std::vector<std::string> records = records_of(state_file());
      std::memcpy(records[3].data() + 4 + offset, &value, 4);
      chain_state c;
      c.take(joined(records, records.size()));
      EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
                reading + from_round + illegal_input_text("r_parm", name, std::to_string(value), "1..97"));
    }
}

TEST(r_parm, state_that_the_marsaglia_source_cannot_have_is_illegal_input) {
  struct fault {
    std::size_t place; // bytes into the record
    double value;
    std::string item, text, rule;
  };
  const std::string in_0_1 = "a multiple of 2**-24 in [0,1)";
  for (const fault& x :
       {fault{0, 1.0, "U(1)", "1.0", in_0_1},
        fault{96 * 8, 0x1p-25, "U(97)", "2.980232238769531E-08", in_0_1},
        fault{8, std::nan(""), "U(2)", "NaN", in_0_1},
        fault{776, 16777213 * 0x1p-24, "C", "0.9999998211860657", "a multiple of 2**-24 in [0,CM)"},
        fault{784, 0.5, "CD", "0.5", "7654321/2**24"}, fault{792, 0.5, "CM", "0.5", "16777213/2**24"}}) {
    std::vector<std::string> records = records_of(state_file());
    std::memcpy(records[3].data() + 4 + x.place, &x.value, 8);
    chain_state c;
    c.take(joined(records, records.size()));
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
              reading + from_round + illegal_input_text("r_parm", x.item, x.text, x.rule));
  }
  std::vector<std::string> records = records_of(state_file());
  const std::int32_t near_I97 = 95; // one draw: I97 is 96
  std::memcpy(records[3].data() + 4 + 804, &near_I97, 4);
  chain_state c;
  c.take(joined(records, records.size()));
  EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
            reading + from_round + illegal_input_text("r_parm", "J97", "95", "I97-64 or I97+33"));
}

TEST(r_parm, marsaglia_source_that_was_never_started_is_illegal_input) {
  std::vector<std::string> records = records_of(state_file());
  const std::int32_t no = 0;
  std::memcpy(records[3].data() + 4 + 808, &no, 4);
  chain_state c;
  c.take(joined(records, records.size()));
  EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
            reading + from_round + illegal_input_text("r_parm", "TEST", "F", "T"));
}

// The moduli of the combined source are 2147483563 and 2147483399 (L'Ecuyer and Cote 1991).
TEST(r_parm, pair_that_the_combined_source_cannot_have_is_illegal_input) {
  struct fault {
    std::int32_t pair[2];
    std::string item, value, rule;
  };
  for (const fault& x : {fault{{0, 1}, "current seed(1)", "0", "1..2147483562"},
                         fault{{2147483563, 1}, "current seed(1)", "2147483563", "1..2147483562"},
                         fault{{1, -7}, "current seed(2)", "-7", "1..2147483398"},
                         fault{{1, 2147483399}, "current seed(2)", "2147483399", "1..2147483398"}}) {
    std::vector<std::string> records = records_of(state_file());
    std::memcpy(records[2].data() + 4, x.pair, 8);
    chain_state c;
    c.take(joined(records, records.size()));
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
              reading + from_round + same_seeds + illegal_input_text("r_parm", x.item, x.value, x.rule));
  }
}

TEST(r_parm, residual_group_outside_its_range_is_illegal_input) {
  for (const std::int32_t value : {0, 3}) {
    std::vector<std::string> records = records_of(state_file());
    records.back() = framed(bytes<std::int32_t>({2, value, 2}));
    chain_state c;
    c.take(joined(records, records.size()));
    c.read_first();
    c.said();
    EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_second(); }),
              illegal_input_text("r_parm", "IRESG_M(2)", std::to_string(value), "1..2"));
  }
}

TEST(r_parm, categorical_trait_is_refused_after_the_first_part) {
  chain_state c({1, 3, false, 1});
  c.take(state_file({1, 3, false, 1}));
  EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { c.read_first(); }),
            reading + from_round + same_seeds +
                "\n Restart of models including catagorical trait not implemented\n\nprogram terminates\n");
  EXPECT_NE(c.store.IDET_RVAR(3), 0.0); // read before
}

// ---- solutions ----

TEST(lastsol, holds_neq_and_every_solution) {
  chain_state c;
  c.fill_state();
  write_lastsol(c.layout, c.store, c.out, c.report);
  std::string expected = framed(bytes<std::int32_t>({13}));
  for (std::int32_t e = 1; e <= 13; ++e)
    expected += framed(bytes<std::int32_t>({e}) + bytes<double>({c.store.sol(e)}));
  EXPECT_EQ(c.directory.read("lastsol"), expected);
}

TEST(lastsol, write_faults_stop_with_code_16) {
  chain_state c;
  std::filesystem::create_directory(c.directory / "lastsol");
  EXPECT_EQ(expect_stop(16, c.voice, [&](reporting&) { write_lastsol(c.layout, c.store, c.out, c.report); }),
            illegal_input_text("lastsol", "write", "open", "the file can be opened and written"));
}

namespace {

struct old_solutions : chain_state {
  old_solutions() { layout.neq = 2; }
  void file(const std::string& text) const { directory.write("oldsol", text); }
  void read() { read_oldsol(layout, frame.asked, store, report); }
  std::string stop() {
    return expect_stop(16, voice, [&](reporting&) { read(); });
  }
};

std::string solution(std::int32_t e, double x) {
  return framed(bytes<std::int32_t>({e}) + bytes<double>({x}));
}
const std::string size_2 = framed(bytes<std::int32_t>({2}));

} // namespace

TEST(oldsol, numbers_of_the_file_decide_the_places) {
  old_solutions c;
  c.file(size_2 + solution(2, 0.25) + solution(1, -8.0));
  c.read();
  EXPECT_EQ(c.store.sol(1), -8.0);
  EXPECT_EQ(c.store.sol(2), 0.25);
  EXPECT_EQ(c.said(), count_row("No of old solutions read ..........................", 2));
}

TEST(oldsol, is_announced_from_test_level_2_on) {
  old_solutions c;
  c.frame.asked.test_level = 2;
  c.file(size_2 + solution(1, 1) + solution(2, 1));
  c.read();
  EXPECT_EQ(c.said(),
            "Reading old solutions\n" + count_row("No of old solutions read ..........................", 2));
}

TEST(oldsol, written_solutions_come_back) {
  chain_state first, second;
  first.fill_state();
  write_lastsol(first.layout, first.store, first.out, first.report);
  second.directory.write("oldsol", first.directory.read("lastsol"));
  read_oldsol(second.layout, second.frame.asked, second.store, second.report);
  for (std::int32_t e = 1; e <= 13; ++e) EXPECT_EQ(second.store.sol(e), first.store.sol(e));
}

TEST(oldsol, empty_file_stops) {
  const std::string text = "Io error in reading old solutions\nZEPH terminates.\n";
  old_solutions empty, cut, absent;
  empty.file("");
  cut.file(framed("ab"));
  EXPECT_EQ(empty.stop(), text);
  EXPECT_EQ(cut.stop(), text);
  EXPECT_EQ(absent.stop(), text);
}

TEST(oldsol, solutions_of_another_size_stop) {
  old_solutions c;
  c.file(framed(bytes<std::int32_t>({3})) + solution(1, 1));
  EXPECT_EQ(c.stop(), "Format error in file wiht old solutions\n"
                      "neq=            2 No of solutions on file=            3\nZEPH terminates.\n");
}

TEST(oldsol, file_that_ends_before_its_last_solution_stops) {
  const std::string text = "Io error occurred when reading old solutions\n\nZEPH terminates.\n";
  old_solutions none, one, short_record;
  none.file(size_2);
  one.file(size_2 + solution(1, 1));
  short_record.file(size_2 + solution(1, 1) + framed(bytes<std::int32_t>({2, 0})));
  EXPECT_EQ(none.stop(), text);
  EXPECT_EQ(one.stop(), text);
  EXPECT_EQ(short_record.stop(), text);
}

TEST(oldsol, equation_outside_the_model_is_illegal_input) {
  for (const std::int32_t e : {0, 3, -1}) {
    old_solutions c;
    c.file(size_2 + solution(1, 1) + solution(e, 1));
    EXPECT_EQ(c.stop(), illegal_input_text("oldsol", "equation(2)", std::to_string(e), "1..2"));
  }
}

// ---- in a run ----

TEST(restart, of_analysis_type_1_reads_the_solutions_only) {
  run_case c;
  c.directory.write("r_parm", "this is no parameter file");
  std::string solutions = framed(bytes<std::int32_t>({10}));
  for (std::int32_t e = 1; e <= 10; ++e) solutions += solution(e, e / 8.0);
  c.directory.write("oldsol", solutions);
  c.write(run_case::lines(0, 0, 1, 1));
  run r(c.listing, c.directory.path());
  start_run(r);
  for (std::int32_t e = 1; e <= 10; ++e) EXPECT_EQ(r.sampler.sol(e), e / 8.0);
  EXPECT_NE(c.text().find(count_row("No of old solutions read ..........................", 10)),
            std::string::npos);
  EXPECT_EQ(c.text().find("Reading parameters"), std::string::npos);
  EXPECT_EQ(r.counts.P_ROUND, 0);
}

TEST(restart, of_analysis_type_3_begins_with_its_parameters) {
  run_case c;
  c.directory.write("r_parm", "");
  c.directory.write("oldsol", "");
  EXPECT_EQ(c.go(run_case::lines(3, 0, 1, 1)), 16);
  EXPECT_TRUE(c.ends_with(reading + failed + "       reading scalar P_ROUND\n" + fatal)) << c.text();
}

namespace {

// A chain of the example with proper priors, samples of all solutions wanted.
std::string chain_of(std::int32_t rounds, const std::string& seeds = "12 34") {
  return "3 0\n" + seeds + "\n10 " + std::to_string(rounds) + " 5\n1 20\n2 20\n";
}

struct sampled_case : run_case {
  sampled_case() {
    m->RMAT(1).COV_MAT(1, 1) = 20.0;
    m->n_sol_cv = -1;
  }
  void keep_state() const {
    directory.write("oldsol", directory.read("lastsol"));
    directory.write("r_parm", directory.read("gparlast"));
  }
};

} // namespace

TEST(restart, of_complete_gaussian_data_continues_as_if_never_stopped) {
  sampled_case whole, parts;
  ASSERT_EQ(whole.go(chain_of(20)), 0) << whole.text();
  ASSERT_EQ(parts.go(chain_of(10)), 0) << parts.text();
  const std::string files[] = {"gib.samples", "py", "sol.samples"};
  std::vector<std::string> first;
  for (const std::string& file : files) first.push_back(parts.directory.read(file));
  parts.keep_state();
  ASSERT_EQ(parts.go(chain_of(10)), 0) << parts.text(); // no burn-in: rounds 21 to 30
  for (std::size_t i = 0; i < 3; ++i) {
    std::string second = parts.directory.read(files[i]);
    if (files[i] == "sol.samples") second.erase(0, 12); // neq comes first in both files
    EXPECT_FALSE(second.empty());
    EXPECT_EQ(first[i] + second, whole.directory.read(files[i])) << files[i];
  }
  for (const char* file : {"lastsol", "gparlast"})
    EXPECT_EQ(parts.directory.read(file), whole.directory.read(file)) << file;
}

TEST(restart, with_other_seeds_leaves_the_sequence_of_the_first_part) {
  sampled_case whole, parts;
  ASSERT_EQ(whole.go(chain_of(20)), 0);
  ASSERT_EQ(parts.go(chain_of(10)), 0);
  const std::string first = parts.directory.read("gib.samples");
  parts.keep_state();
  ASSERT_EQ(parts.go(chain_of(10, "12 35")), 0);
  EXPECT_NE(parts.text().find(other_seeds), std::string::npos);
  EXPECT_NE(first + parts.directory.read("gib.samples"), whole.directory.read("gib.samples"));
}

TEST(restart, after_STOP_continues_with_the_values_and_repeats_one_round_number) {
  const auto rounds = [](std::int32_t n) {
    return "3 0\n12 34\n0 " + std::to_string(n) + " 1\n1 20\n2 20\n";
  };
  sampled_case whole, parts;
  ASSERT_EQ(whole.go(rounds(6)), 0);
  parts.directory.write("STOP", "");
  ASSERT_EQ(parts.go(rounds(6)), 0); // ends with the sample of round 1
  std::string rows = parts.directory.read("gib.samples");
  parts.directory.remove("STOP");
  parts.keep_state();
  ASSERT_EQ(parts.go(rounds(5)), 0);
  EXPECT_NE(parts.text().find(count_row("Restart from round ................................", 0)),
            std::string::npos);
  rows += parts.directory.read("gib.samples");
  // two rows a round, of 46 characters and a line end, the round in the first 8
  const std::string expected = whole.directory.read("gib.samples");
  ASSERT_EQ(rows.size(), 6u * 2 * 47);
  ASSERT_EQ(expected.size(), rows.size());
  for (std::size_t row = 0; row < 12; ++row) {
    EXPECT_EQ(rows.substr(row * 47 + 8, 39), expected.substr(row * 47 + 8, 39));
    const std::size_t round = row / 2 + 1; // of the whole chain
    EXPECT_EQ(std::stoul(expected.substr(row * 47, 8)), round);
    EXPECT_EQ(std::stoul(rows.substr(row * 47, 8)), round > 1 ? round - 1 : 1);
  }
}
