#include "control/predictions.h"

#include "support/run_case.h"

namespace {

using namespace zeph_test;

// Five records of two traits.
struct asked {
  explicit asked(const std::string& file) {
    m.nt = 2;
    m.data_dims[2] = 5;
    directory.write("ytopredict", file);
  }
  void read() { read_ytopredict(m, predictions, voice.report); }
  std::string stop() {
    return expect_stop(16, voice, [&](reporting&) { read(); });
  }
  scratch_directory directory;
  heard_run voice{directory.path()};
  model_records m;
  prediction_store predictions;
};

std::string counted(std::int32_t n) {
  const std::string label = "No of records to predict .......................", number = std::to_string(n);
  return "\n" + std::string(60 - label.size(), ' ') + label + std::string(11 - number.size(), ' ') + number +
         "\n";
}

} // namespace

TEST(predictions, pairs_are_records_and_traits) {
  asked c("1 2\n\n5,1\n 3 2 rest of the line is dropped\n");
  c.read();
  EXPECT_EQ(c.voice.text(), counted(3));
  ASSERT_EQ(c.predictions.YPRED.size(), 3u);
  EXPECT_EQ(c.predictions.YPRED[0].record, 1);
  EXPECT_EQ(c.predictions.YPRED[0].trait, 2);
  EXPECT_EQ(c.predictions.YPRED[1].record, 5);
  EXPECT_EQ(c.predictions.YPRED[2].trait, 2);
  EXPECT_EQ(c.predictions.YPRED[2].s, 0.0);
}

TEST(predictions, pair_may_be_spread_over_lines_and_an_odd_number_is_dropped) {
  asked c("1\n2\n4\n");
  c.read();
  EXPECT_EQ(c.voice.text(), counted(1));
  EXPECT_EQ(c.predictions.YPRED[0].trait, 2);
}

TEST(predictions, empty_file_asks_for_none) {
  asked c("");
  c.read();
  EXPECT_EQ(c.voice.text(), counted(0));
  EXPECT_TRUE(c.predictions.YPRED.empty());
}

TEST(predictions, illegal_pairs_are_all_reported_before_the_stop) {
  asked c("1 0\n5 2\n0 1\n6 1\n1 3\n");
  EXPECT_EQ(c.stop(), counted(5) + "Illegal record to be predicted           1           0\n"
                                   "Illegal record to be predicted           0           1\n"
                                   "Illegal record to be predicted           6           1\n"
                                   "Illegal record to be predicted           1           3\n"
                                   "\nZEPH terminates.\n");
}

TEST(predictions, text_that_is_no_integer_is_illegal_input) {
  asked record("1 1\nx 1\n"), trait("1 1\n1 1.5\n");
  EXPECT_EQ(record.stop(), illegal_input_text("ytopredict", "record(2)", "x", "integer"));
  EXPECT_EQ(trait.stop(), illegal_input_text("ytopredict", "trait(2)", "1.5", "integer"));
  asked count("1 1\n2*3.5\n"), large("1 1\n1 2147483648\n"); // the whole text, beyond 32 bits
  EXPECT_EQ(count.stop(), illegal_input_text("ytopredict", "record(2)", "2*3.5", "integer"));
  EXPECT_EQ(large.stop(), illegal_input_text("ytopredict", "trait(2)", "2147483648", "integer"));
}

TEST(predictions, failed_allocation_is_reported_under_its_name) {
  asked c("1 1\n");
  c.voice.report.door.fail_at = 1;
  const std::string text = c.stop();
  EXPECT_EQ(text.substr(counted(1).size()), allocation_text("YPRED", "1", "ZEPH"));
}

TEST(predictions, list_of_a_run_is_read_before_its_data) {
  run_case c;
  c.directory.write("ytopredict", "1 0\n");
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1)), 16);
  EXPECT_TRUE(c.ends_with("Illegal record to be predicted           1           0\n\nZEPH terminates.\n"));
  c.directory.write("ytopredict", "5 1\n");
  EXPECT_EQ(c.go(), 0);
  EXPECT_FALSE(c.directory.has("ypredicted"));
}
