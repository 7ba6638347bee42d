#include "prepare/output/work_directory.h"

#include "formats/sequential_file.h"
#include "input/model_information.h"
#include "prepare/output/summary.h"
#include "support/check.h"
#include "support/prepared_case.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace {

using zeph::prepare::directory_result;
using zeph::prepare::disturbing_files;
using zeph::prepare::write_work_directory;
using zeph_test::prepared_case;
using zeph_test::scratch_directory;

// Five calves of Mrode and Pocrnic 2023, example 4.1, sexes coded 1 (male) and 2.
const std::string DATA = "animal,sex,wwg\n4,1,4.5\n5,2,2.9\n6,2,3.9\n7,1,3.5\n8,1,5.0\n";
const std::string PEDIGREE = "animal,sire,dam\n1,0,0\n2,0,0\n3,0,0\n4,1,0\n5,3,2\n6,1,2\n7,4,5\n8,3,6\n";
const std::string MODEL = "[data]\nfile = \"d.csv\"\n[factor.animal]\npedigree = \"p.csv\"\nstart = 20.0\n"
                          "[trait.wwg]\nformula = \"1 + sex + (1 | animal)\"\n[residual]\nstart = 40.0\n"
                          "[run]\nrounds = 500\n";

prepared_case calves() { return prepared_case(MODEL, {{"d.csv", DATA}, {"p.csv", PEDIGREE}}); }

std::vector<std::vector<std::int32_t>> integer_records(const std::string& path) {
  zeph::sequential_reader file;
  std::vector<std::vector<std::int32_t>> out;
  EXPECT_TRUE(file.open(path));
  while (file.next() == 0) {
    out.emplace_back(static_cast<std::size_t>(file.record_length() / 4));
    file.take(out.back().data(), static_cast<std::int64_t>(out.back().size()));
  }
  return out;
}

using records = std::vector<std::vector<std::int32_t>>;

TEST(work_directory, has_the_files_that_the_program_reads_and_side_files) {
  const prepared_case c = calves();
  const scratch_directory out;
  const directory_result w = write_work_directory(c.description, c.p, out.path(), "as seen\n");
  ASSERT_TRUE(w.ok) << w.fault;
  for (const char* name : {"MODINF", "RCDATA_I", "RCDATA_R", "CODE_TABLE", "zeph.dir", "AINV1", "PEDFILE1",
                           "codes_animal.csv", "codes_fixed.csv", "names.json", "prepare.txt"})
    EXPECT_TRUE(out.has(name)) << name;
  EXPECT_EQ(w.files.size(), 11U);
  EXPECT_EQ(out.read("zeph.dir"), "0 0\n0 0\n0 500 1\n1 0\n2 0\n");
  EXPECT_EQ(out.read("prepare.txt"), "as seen\n");
}

TEST(work_directory, data_records_hold_levels_mask_pattern_and_position) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(integer_records(out / "RCDATA_I"),
            (records{{4, 1, 1, 1, 1}, {5, 2, 1, 1, 2}, {6, 2, 1, 1, 3}, {7, 1, 1, 1, 4}, {8, 1, 1, 1, 5}}));
  zeph::sequential_reader file;
  ASSERT_TRUE(file.open(out / "RCDATA_R"));
  for (const float y : {4.5F, 2.9F, 3.9F, 3.5F, 5.0F}) {
    float found = 0.0F;
    ASSERT_EQ(file.next(), 0);
    EXPECT_EQ(file.record_length(), 4);
    file.take(found);
    EXPECT_EQ(found, y);
  }
  EXPECT_EQ(file.next(), -1);
}

TEST(work_directory, code_table_has_six_integers_of_a_class_level_and_thirteen_of_a_factors_level) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  const records found = integer_records(out / "CODE_TABLE");
  ASSERT_EQ(found.size(), 10U);
  EXPECT_EQ(found[0], (std::vector<std::int32_t>{2, 1, 3, 1, 1, 1})); // sex 1: three records, level 1
  EXPECT_EQ(found[1], (std::vector<std::int32_t>{2, 2, 2, 2, 1, 1}));
  EXPECT_EQ(found[2], (std::vector<std::int32_t>{3, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(found[9], (std::vector<std::int32_t>{3, 8, 1, 8, 1, 0, 0, 3, 6, 0, 0, 0, 0}));
}

TEST(work_directory, pedigree_file_has_sire_and_dam_of_every_level) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(integer_records(out / "PEDFILE1"), (records{{0, 0, 0, 0, 0, 0, 1, 0, 3, 2, 1, 2, 4, 5, 3, 6}}));
}

TEST(work_directory, pedigree_beyond_100000_levels_has_a_second_record) {
  std::string pedigree = "animal,sire,dam\n";
  for (int a = 1; a <= 100001; ++a) pedigree += std::to_string(a) + ",0,0\n";
  const prepared_case c(MODEL, {{"d.csv", DATA}, {"p.csv", pedigree}});
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  const records found = integer_records(out / "PEDFILE1");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].size(), 200000U);
  EXPECT_EQ(found[1].size(), 2U);
}

TEST(work_directory, model_comes_back_from_the_programs_own_reader) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  std::ostringstream listing;
  zeph::reporting report(listing, out.path());
  zeph::model_records m;
  ASSERT_EQ(zeph::QVAMRD(m, report), 0) << listing.str();
  EXPECT_EQ(m.nobs(), 5);
  EXPECT_EQ(m.run_stamp, (std::array<std::int32_t, 6>{1, 2, 2003, 4, 5, 6}));
  EXPECT_EQ(m.mi_text[0].substr(0, 9), "zeph.dir ");
  EXPECT_EQ(m.RMAT(1).COV_MAT(1, 1), 20.0);
  EXPECT_DOUBLE_EQ(m.residual().HETGR_RIIF(1, 1, 1, 1), 0.025);
  EXPECT_EQ(m.NBEGRA(2), 10);
  EXPECT_EQ(m.SPRE(1), 1.0);
}

// A^-1 of example 4.1 by hand from Henderson's rules: animals without known parents add 1, animal 4 with one
// known parent 4/3, the others 2: diagonal of animal 1: 1 + 1/3 (of 4) + 1/2 (of 6) = 11/6.
TEST(work_directory, relationship_file_has_one_triangle_and_every_diagonal_once) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  zeph::sequential_reader file;
  ASSERT_TRUE(file.open(out / "AINV1"));
  std::vector<int> diagonal(9, 0);
  while (file.next() == 0) {
    std::int32_t i = 0, j = 0;
    double v = 0.0;
    EXPECT_EQ(file.record_length(), 16);
    file.take(i);
    file.take(j);
    file.take(v);
    EXPECT_GE(i, j);
    if (i == j) ++diagonal[static_cast<std::size_t>(i)];
    if (i == 1 && j == 1) {
      EXPECT_NEAR(v, 11.0 / 6.0, 1e-14);
    }
    if (i == 4 && j == 1) {
      EXPECT_NEAR(v, -2.0 / 3.0, 1e-14);
    }
  }
  EXPECT_EQ(diagonal, (std::vector<int>{0, 1, 1, 1, 1, 1, 1, 1, 1}));
}

TEST(work_directory, files_of_a_former_preparation_go_and_all_others_stay) {
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(calves().description, calves().p, out.path(), "").ok);
  out.write("my_notes", "mine\n");
  std::string plain = MODEL;
  plain.replace(plain.find("pedigree = \"p.csv\"\n"), 19, "");
  const prepared_case second(plain, {{"d.csv", DATA}});
  const directory_result w = write_work_directory(second.description, second.p, out.path(), "");
  ASSERT_TRUE(w.ok);
  EXPECT_FALSE(out.has("AINV1"));
  EXPECT_FALSE(out.has("PEDFILE1"));
  EXPECT_TRUE(out.has("codes_animal.csv"));
  EXPECT_EQ(out.read("my_notes"), "mine\n");
  EXPECT_EQ(w.removed, (std::vector<std::string>{"AINV1", "PEDFILE1"}));
}

// A line a word, in the order of the description's keys; the factor by its number.
TEST(work_directory, has_a_file_sampler_when_more_than_the_classic_chain_is_asked_for) {
  const auto with = [](const std::string& run) {
    std::string model = MODEL;
    return prepared_case(model.replace(model.find("rounds = 500"), 12, run),
                         {{"d.csv", DATA}, {"p.csv", PEDIGREE}});
  };
  const scratch_directory out;
  const auto prepare = [&](const prepared_case& c) {
    ASSERT_TRUE(c.p.complete) << c.messages();
    const directory_result written = write_work_directory(c.description, c.p, out.path(), "");
    ASSERT_TRUE(written.ok);
    EXPECT_EQ(std::ranges::count(written.files, "sampler"), out.has("sampler") ? 1 : 0);
  };
  prepare(with("analysis = \"gibbs\"\nsampler = \"exact\"\nstate_every = 5\ndensity_points = 64"));
  EXPECT_EQ(out.read("sampler"), "exact\nstate 5\nmoves\ndensity 64\n");
  EXPECT_NE(out.read("names.json").find("\"sampler\""), std::string::npos);
  prepare(with("analysis = \"gibbs\"\nsampler = \"classic\"\nstate_every = 0"));
  EXPECT_EQ(out.read("sampler"), "state 0\n");
  prepare(with("analysis = \"gibbs\"\nsampler = \"classic\"\nstate_every = false"));
  EXPECT_FALSE(out.has("sampler"));
  prepare(with("analysis = \"gibbs\""));
  EXPECT_EQ(out.read("sampler"), "exact\nstate 10\nmoves\n");
  prepare(with("analysis = \"gibbs\"\nstate_every = false\nmoves = false"));
  EXPECT_EQ(out.read("sampler"), "exact\n");
  prepare(with("analysis = \"gibbs\"\nsampler = \"classic\"\nmoves = true"));
  EXPECT_EQ(out.read("sampler"), "moves\n");
  prepare(with("analysis = \"gibbs\"\ntest_level = 2")); // which no exact chain prints
  EXPECT_EQ(out.read("sampler"), "state 10\nmoves\n");
  prepare(with("analysis = \"solve\""));
  EXPECT_FALSE(out.has("sampler"));
  out.write("sampler", "exact\n"); // of whoever: it changes what the chain is
  prepare(with("analysis = \"gibbs\"\nsampler = \"classic\""));
  EXPECT_FALSE(out.has("sampler"));
}

TEST(work_directory, weights_of_numbers_of_rows_name_the_factor_by_its_number) {
  const prepared_case c(
      "[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"jump\"\nsampler = \"exact\"\n"
      "[trait.wwg]\nformula = \"1 + (1 | sex) + (x | herd)\"\n[factor.sex]\n[covariable.x]\n"
      "[factor.herd]\nprior_df = 8\nmodel_prior = [2, 0.25]\n",
      {{"d.csv", "sex,herd,x,wwg\n1,1,0.5,4\n2,1,1,3\n1,2,2,5\n2,2,0.1,4\n1,3,1,6\n2,3,3,2\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.sampler, (std::vector<std::string>{"exact", "state 10", "model_prior 2 2 0.25"}));
}

TEST(work_directory, knows_the_time_of_its_preparation) {
  const scratch_directory out;
  EXPECT_FALSE(zeph::prepare::stamp_of_directory(out.path()).has_value());
  prepared_case c = calves();
  c.p.model.run_stamp = {22, 11, 2026, 10, 3, 59};
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(zeph::prepare::stamp_of_directory(out.path()), c.p.model.run_stamp);
  out.write("MODINF", "short");
  EXPECT_FALSE(zeph::prepare::stamp_of_directory(out.path()).has_value());
}

TEST(work_directory, that_can_not_be_made_is_a_fault) {
  const prepared_case c = calves();
  const scratch_directory out;
  out.write("file", "");
  const directory_result w = write_work_directory(c.description, c.p, out / "file", "");
  EXPECT_FALSE(w.ok);
  EXPECT_EQ(w.fault, "can't make the directory " + (out / "file") + ": there is a file of that name");
}

TEST(work_directory, files_that_would_disturb_a_run_are_named) {
  const scratch_directory out;
  EXPECT_TRUE(disturbing_files(out.path(), false).empty());
  out.write("STOP", "");
  out.write("oldsol", "");
  EXPECT_EQ(
      disturbing_files(out.path(), false),
      (std::vector<std::string>{"STOP is present: the run would end after one round",
                                "oldsol is present without the other restart file: the run would stop"}));
  out.write("r_parm", "");
  EXPECT_EQ(disturbing_files(out.path(), false)[1],
            "oldsol and r_parm are present: the run would continue an old chain");
  EXPECT_EQ(disturbing_files(out.path(), true)[1],
            "oldsol and r_parm are present: an exact run would end with code 16; move them away");
  out.write("mixz_last", "");
  EXPECT_TRUE(disturbing_files(out.path(), false)[2].starts_with(
      "mixz_prob or mixz_last of an earlier run is present"));
  EXPECT_EQ(disturbing_files(out.path(), true, true).size(), 2U); // the chain that is continued left them
}

TEST(work_directory, codes_tell_identification_and_equation_of_every_level) {
  const prepared_case c = calves();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(out.read("codes_fixed.csv"), "trait,effect,level,code,identification,records,equation,number\n"
                                         "wwg,sex,1,1,1,3,1,1\nwwg,sex,2,2,2,2,2,1\n");
  EXPECT_EQ(out.read("codes_animal.csv").substr(0, 48 + 17),
            "level,code,identification,F,records,in_pedigree\n"
            "1,1,1,0,0,yes\n2,2");
}

// Herds and years of ten records, one without year; beside them the combination made by hand, numbered herd
// by herd.
const std::string COMBINED = "animal,sex,herd,year,herd:year,x,wwg,gain\n"
                             "1,1,10,1999,4,1,4.5,8\n2,2,7,1998,1,2,2.9,7\n3,2,7,1999,2,3,3.9,NA\n"
                             "4,1,10,1998,3,1,3.5,9\n5,1,10,1999,4,2,5.0,6\n6,2,7,1998,1,5,4.1,5\n"
                             "7,1,12,1998,5,4,4.4,9\n8,2,12,1998,5,3,3.3,NA\n9,2,7,NA,NA,2,3.6,4\n"
                             "10,1,7,1999,2,1,4.7,6\n";

// Both traits take the factor by `levels`, the second with a slope.
prepared_case combined(const std::string& factor, const std::string& levels) {
  return prepared_case("[data]\nfile = \"d.csv\"\n[factor.\"" + factor +
                           "\"]\n[covariable.x]\n[trait.wwg]\nformula = \"1 + sex + (1 | " + levels +
                           ")\"\n[trait.gain]\nformula = \"1 + (x | " + levels +
                           ")\"\n[run]\nanalysis = \"gibbs\"\nseeds = [1, 2]\n",
                       {{"d.csv", COMBINED}});
}

void expect_equal_directories(const prepared_case& a, const prepared_case& b) {
  const scratch_directory x, y;
  const directory_result of_a = write_work_directory(a.description, a.p, x.path(), "");
  ASSERT_TRUE(of_a.ok) << of_a.fault;
  ASSERT_TRUE(write_work_directory(b.description, b.p, y.path(), "").ok);
  for (const std::string& name : of_a.files)
    if (name != "names.json" && !name.starts_with("codes_")) {
      EXPECT_EQ(x.read(name), y.read(name)) << name;
    }
}

TEST(work_directory, a_combination_of_classes_is_the_column_that_could_be_made_by_hand) {
  const prepared_case short_form = combined("herd:year", "herd:year");
  ASSERT_TRUE(short_form.p.complete) << short_form.messages();
  EXPECT_TRUE(short_form.says("no level of herd:year in 1 record: the effect is left out there"));
  const prepared_case by_hand = combined("herd:year", "`herd:year`");
  ASSERT_TRUE(by_hand.p.complete) << by_hand.messages();
  expect_equal_directories(short_form, by_hand);
  const prepared_case stated = combined("unit", "unit | herd:year");
  ASSERT_TRUE(stated.p.complete) << stated.messages();
  expect_equal_directories(stated, combined("unit", "unit | `herd:year`"));
}

TEST(work_directory, codes_of_a_combination_have_its_parts) {
  const prepared_case c = combined("unit", "unit | herd:year");
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(out.read("codes_unit.csv"),
            "level,code,identification,F,records,in_pedigree,herd,year\n"
            "1,1,7:1998,,2,no,7,1998\n2,2,7:1999,,2,no,7,1999\n3,3,10:1998,,1,no,10,1998\n"
            "4,4,10:1999,,2,no,10,1999\n5,5,12:1998,,2,no,12,1998\n");
  EXPECT_NE(out.read("names.json").find("\"parts\": [\n        \"herd\",\n        \"year\"\n      ]"),
            std::string::npos);
  EXPECT_NE(out.read("names.json").find("\"name\": \"wwg.herd:year\""), std::string::npos);
}

// Binary traits have residual variance 1 and a stored liability; gaussian ones are observed.
TEST(work_directory, names_hold_what_is_known_of_the_kinds_of_the_traits) {
  const prepared_case c("[data]\nfile = \"d.csv\"\n[trait.sick]\nkind = \"binary\"\nformula = \"1 + sex\"\n"
                        "[trait.w]\nformula = \"1\"\n[trait.v]\nformula = \"1\"\n"
                        "[run]\nanalysis = \"gibbs\"\nseeds = [1, 2]\n",
                        {{"d.csv", "sex,sick,w,v\n1,0,2.5,1\n1,1,3.5,4\n2,0,3.1,2\n2,1,2.2,7\n1,1,4.1,3\n"
                                   "2,0,2.6,5\n1,0,3.7,8\n2,1,3.3,6\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  const auto names = nlohmann::json::parse(out.read("names.json"));
  EXPECT_EQ(names["kinds"], nlohmann::json::parse(R"([
    {"number": 1, "word": "gaussian", "unit_variance": false, "drawn_by": "none", "stored": false,
     "thresholds": false},
    {"number": 4, "word": "binary", "unit_variance": true, "drawn_by": "liabilities", "stored": true,
     "thresholds": false}])"));
}

TEST(work_directory, a_factor_may_have_levels_of_columns_and_of_combinations) {
  const prepared_case c("[data]\nfile = \"d.csv\"\n[factor.unit]\n[trait.wwg]\nformula = \"1 + (1 | unit | "
                        "herd:year)\"\n[trait.gain]\nformula = \"1 + (1 | unit | sex)\"\n",
                        {{"d.csv", COMBINED}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  const scratch_directory out;
  ASSERT_TRUE(write_work_directory(c.description, c.p, out.path(), "").ok);
  EXPECT_EQ(out.read("codes_unit.csv").substr(0, 96),
            "level,code,identification,F,records,in_pedigree,herd+sex,year\n"
            "1,1,1,,5,no,1,\n2,2,2,,3,no,2,\n3,3,");
}

TEST(work_directory, a_combination_names_no_animals_and_no_fractions) {
  const std::string head = "[data]\nfile = \"d.csv\"\n[factor.animal]\n";
  const std::string tail = "[trait.wwg]\nformula = \"1 + (1 | animal | herd:year)\"\n";
  const prepared_case pedigree(head + "pedigree = \"p.csv\"\n" + tail,
                               {{"d.csv", COMBINED}, {"p.csv", PEDIGREE}});
  EXPECT_TRUE(
      pedigree.says(":6:30: error: herd:year is a combination of classes and can't name the animals of "
                    "a pedigree\n"))
      << pedigree.messages();
  const prepared_case fraction(head + tail, {{"d.csv", "herd,year,wwg\n1,1998.5,3\n2,1999,4\n3,1997,5\n"}});
  EXPECT_TRUE(fraction.says("d.csv:2: error: \"1998.5\" in column year: a class with a fraction?"))
      << fraction.messages();
  const prepared_case none("[data]\nfile = \"d.csv\"\n[trait.wwg]\nformula = \"1 + (1 | herd:year)\"\n",
                           {{"d.csv", COMBINED}});
  EXPECT_TRUE(none.says("add a table [factor.\"herd:year\"]")) << none.messages();
}

TEST(work_directory, a_pedigree_without_header_names_its_columns_in_the_description) {
  const prepared_case with_header = calves();
  std::string model = MODEL;
  const std::string key = "pedigree = \"p.csv\"";
  model.replace(model.find(key), key.size(),
                "pedigree = { file = \"p.csv\", columns = [\"animal\", \"sire\", \"dam\"] }");
  const prepared_case c(model, {{"d.csv", DATA}, {"p.csv", PEDIGREE.substr(PEDIGREE.find('\n') + 1)}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  expect_equal_directories(c, with_header);
}

} // namespace
