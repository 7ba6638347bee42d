#include "control/model_chains.h"

#include "formats/sequential_file.h"
#include "support/check.h"
#include "support/jump_case.h"
#include "support/run_state.h"

#include <filesystem>

namespace {

using namespace zeph_test;

jump_options orders_2_and_3() { return {{{"I", 2, 10}, {"I", 3, 8}}, 3, 60, true}; }

const std::vector<std::vector<std::int32_t>> all_models = {{1, 1, 3}, {1, 2, 3}, {1, 3, 3},
                                                           {2, 1, 3}, {2, 2, 3}, {2, 3, 3}};

// The numbers of each line of a text file.
std::vector<std::vector<double>> rows_of(const std::string& text) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    rows.emplace_back();
    std::istringstream words(line);
    for (std::string word; words >> word;) rows.back().push_back(std::strtod(word.c_str(), nullptr));
  }
  return rows;
}

TEST(next_model, turns_like_an_odometer_and_reports_the_factors_it_looks_at) {
  jump_case c(orders_2_and_3());
  c.start_moves(c.lines(5, 0, 1, 1));
  std::vector<std::vector<std::int32_t>> visited = {c.r->state.ntr};
  std::vector<std::string> told;
  const auto next = [&] {
    c.listing.str("");
    const bool more = next_model(*c.r);
    told.push_back(c.text());
    return more;
  };
  while (next()) visited.push_back(c.r->state.ntr);
  EXPECT_EQ(visited, all_models);
  const std::string i2 = "i           2\n", i1 = "i           1\n", j2 = "j           2\n";
  EXPECT_EQ(told, (std::vector<std::string>{i2, i2, i2 + i1 + j2, i2, i2, i2 + i1}));
}

TEST(next_model, takes_the_inverse_of_the_start_matrixs_leading_block) {
  jump_case c(orders_2_and_3());
  c.start_moves(c.lines(5, 0, 1, 1));
  next_model(*c.r); // 1, 2
  const mat<double>& G = c.r->model.RMAT(2).COV_MAT;
  const double det = G(1, 1) * G(2, 2) - G(1, 2) * G(1, 2);
  EXPECT_NEAR(c.r->sampler.GIF(1, 1, 2), G(2, 2) / det, 1e-14);
  EXPECT_NEAR(c.r->sampler.GIF(2, 1, 2), -G(1, 2) / det, 1e-14);
  EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups, 2), 2);
  EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups - 1, 2), 1);
}

TEST(run_models, leaves_a_row_of_lpm_for_each_model) {
  jump_case c(orders_2_and_3());
  ASSERT_EQ(c.go(c.lines(5, 4, 20, 2)), 0) << c.text();
  const auto rows = rows_of(c.directory.read("lpm"));
  ASSERT_EQ(rows.size(), all_models.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), 3U + 4U); // vector, samples, L, V, A
    for (std::size_t k = 0; k < 3; ++k) EXPECT_EQ(rows[i][k], all_models[i][k]);
    EXPECT_EQ(rows[i][3], 10.0);
    for (std::size_t v = 4; v < 7; ++v) EXPECT_TRUE(std::isfinite(rows[i][v]));
    EXPECT_TRUE(c.says("\nCurrent model           " + std::to_string(all_models[i][0]) + "           " +
                       std::to_string(all_models[i][1]) + "           3\n"));
  }
  EXPECT_EQ(c.directory.read("zeinfo"), "starting\n"); // no move is proposed
  EXPECT_TRUE(c.says("\n\n End of ZEPH    \n"));
  // py holds the rows of the last model alone
  const auto py = rows_of(c.directory.read("py"));
  ASSERT_EQ(py.size(), 10U);
  for (const auto& row : py)
    EXPECT_EQ((std::vector<double>(row.begin() + 1, row.begin() + 4)), (std::vector<double>{2, 3, 3}));
}

TEST(run_models, pays_no_heed_to_the_stop_signal) {
  jump_case c(orders_2_and_3());
  c.directory.write("STOP", "");
  ASSERT_EQ(c.go(c.lines(5, 1, 3, 1)), 0);
  EXPECT_EQ(rows_of(c.directory.read("lpm")).size(), 6U);
  EXPECT_FALSE(c.says("Stop signal"));
}

// What carries over from model to model: solutions, residual matrices, observations, both sources.
bool goes_on(const std::string& name) {
  for (const std::string begin : {"sol", "RCOV", "Y_M", "SCALE", "marsaglia", "saved", "ig1", "ig2", "lg1",
                                  "lg2", "cg1", "cg2", "curntg", "qrgn"})
    if (name.starts_with(begin) && name != "solpostmean" && name != "sols") return true;
  return false;
}

// Rounds 1..last in the model in force.
void run_chain_of(jump_case& c, std::int64_t last) {
  c.r->state.iround = 0;
  for (std::int64_t round = 1; round <= last; ++round) c.scan();
}

TEST(run_models, runs_in_each_model_the_chain_of_a_run_that_starts_there) {
  const std::string lines = jump_case(orders_2_and_3()).lines(5, 3, 8, 2);
  jump_case c(orders_2_and_3());
  c.start_moves(lines);
  bool more = true;
  for (std::size_t model = 0; more; ++model) {
    jump_case other(orders_2_and_3());
    other.start_moves(lines);
    other.set_model(all_models[model]);
    const run_state start = state_of(*c.r);
    for_each_part(*other.r, [&](const std::string& name, void* data, std::size_t bytes) {
      if (goes_on(name)) std::memcpy(data, start.at(name).data(), bytes);
    });
    run_chain_of(c, 11);
    run_chain_of(other, 11);
    EXPECT_EQ(c.r->counts.nsamples, 4.0);
    const run_state a = state_of(*c.r), b = state_of(*other.r);
    for (const std::string part :
         {"sol", "RCOV", "sscp", "Y_M", "solpostmean", "pev", "PARPOSTMEAN", "PARVAR", "marsaglia U",
          "marsaglia used", "cg1 1", "nsamples", "NGR", "ntr"})
      EXPECT_EQ(a.at(part), b.at(part)) << part << " in model " << model;
    c.r->state.iround = 12;
    report_run(*c.r);
    more = next_model(*c.r);
  }
  // the same chains run by the driver
  jump_case whole(orders_2_and_3());
  ASSERT_EQ(whole.go(lines), 0);
  for (const char* file : {"gib.samples", "gparout", "lpm", "py"})
    EXPECT_EQ(whole.directory.read(file), c.directory.read(file)) << file;
}

TEST(run_models, begins_again_with_round_1_of_the_first_model_after_a_restart) {
  jump_case c({{{"I", 2, 10}}, 2});
  ASSERT_EQ(c.go(c.lines(5, 4, 20, 2)), 0);
  std::filesystem::rename(c.directory / "lastsol", c.directory / "oldsol");
  std::filesystem::rename(c.directory / "gparlast", c.directory / "r_parm");
  ASSERT_EQ(c.go(c.lines(5, 4, 20, 2)), 0) << c.text();
  EXPECT_TRUE(c.says("Restart from round"));
  const auto rows = rows_of(c.directory.read("lpm"));
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0][0], 1.0);
  EXPECT_EQ(rows[0][2], 10.0); // rounds 2, 4, .. 20: burn-in is skipped
  EXPECT_EQ(rows_of(c.directory.read("py")).front().front(), 2.0);
}

TEST(run_jump_chain, proposes_no_move_in_burn_in_and_reports_the_model_in_force) {
  for (const std::int32_t type : {6, 7}) {
    jump_case c(orders_2_and_3());
    c.directory.write("STOP", ""); // not looked at in burn-in
    ASSERT_EQ(c.go(c.lines(type, 7, 50, 5)), 0);
    EXPECT_TRUE(c.says("Stop signal received. Processing ends graceously"));
    const auto zeinfo = rows_of(c.directory.read("zeinfo"));
    ASSERT_EQ(zeinfo.size(), 30U); // rounds 8 to 12
    EXPECT_EQ(zeinfo[5][0], 8.0);
    EXPECT_EQ(zeinfo[29][0], 12.0);
    const auto lpm = rows_of(c.directory.read("lpm"));
    ASSERT_EQ(lpm.size(), 1U);
    EXPECT_EQ(lpm[0][3], 1.0); // one sample
    EXPECT_TRUE(c.directory.has("gparlast"));
  }
}

TEST(run_jump_chain, leaves_zeinfo_with_its_word_when_there_are_no_rounds) {
  jump_case c(orders_2_and_3());
  ASSERT_EQ(c.go(c.lines(6, 2, 0, 1)), 0);
  EXPECT_EQ(c.directory.read("zeinfo"), "starting\n");
}

TEST(run_jump_chain, counts_rows_that_a_sample_does_not_have_as_0) {
  jump_case c({{{"I", 2, 12}}, 2});
  ASSERT_EQ(c.go(c.lines(6, 0, 40, 1)), 0);
  // rows of gib.samples: element (2,2) of factor 1 is in those of the large model
  std::size_t large = 0;
  for (const auto& row : rows_of(c.directory.read("py"))) large += row[1] == 2.0;
  std::size_t drawn = 0;
  for (const auto& row : rows_of(c.directory.read("gib.samples")))
    drawn += row[1] == 1.0 && row[2] == 2.0 && row[3] == 2.0;
  EXPECT_EQ(drawn, large);
  EXPECT_GT(large, 0U);
  EXPECT_LT(large, 40U);
}

TEST(run_jump_chain, is_the_same_twice) {
  jump_case a(orders_2_and_3()), b(orders_2_and_3());
  ASSERT_EQ(a.go(a.lines(6, 5, 60, 2)), 0);
  ASSERT_EQ(b.go(b.lines(6, 5, 60, 2)), 0);
  for (const char* file : {"zeinfo", "gib.samples", "py", "gparlast", "lastsol"})
    EXPECT_EQ(a.directory.read(file), b.directory.read(file)) << file;
}

} // namespace
