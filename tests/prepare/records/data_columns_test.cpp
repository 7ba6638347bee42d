// Columns of the data: causes that are reported once for all columns, levels that look like missing codes.
// Expected texts by hand.
#include "prepare/records/data_columns.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

std::string warnings_of(const zeph_test::prepared_case& c) {
  std::string out;
  for (const message& m : c.log.entries)
    if (m.text.find("is taken as a level") != std::string::npos) out += message_text(m);
  return out;
}

TEST(data_columns, decimal_commas_of_several_columns_are_one_error) {
  const zeph_test::prepared_case c(
      "[data]\nfile = \"d.csv\"\n[trait.y]\nformula = \"1 + x + z\"\nweight = \"w\"\n"
      "[covariable.x]\n[covariable.z]\n",
      {{"d.csv", "y;x;w;z\n1;2,5;1;1\n2,5;3,5;1,5;2\n3;4;2;3\n"}});
  EXPECT_EQ(
      c.messages(),
      "d.csv:2: error: \"2,5\" in column x is not a number (decimal comma? set decimal = \",\" in [data]):\n"
      "    4 values in the columns w, x, y\n");
}

TEST(data_columns, a_level_that_looks_like_a_missing_code_is_warned_of) {
  const std::string data = "sex,pen,y\nM,a,1.0\n.,b,2.1\nF,-,3.5\n.,a,4.1\nF,NaN,5.9\nM,NA,2.2\nF,a,2.9\n";
  const std::string model = "file = \"d.csv\"\n[trait.y]\nformula = \"1 + sex + (1 | pen)\"\n[factor.pen]\n"
                            "start = 1.0\n[residual]\nstart = 1.0\n";
  const std::string hint = "    if it means that there is no value: [data] missing = [\"";
  const zeph_test::prepared_case c("[data]\n" + model, {{"d.csv", data}});
  EXPECT_EQ(exit_code(c.log), 0) << c.messages();
  EXPECT_EQ(warnings_of(c),
            "d.csv:4: warning: \"-\" in column pen is taken as a level\n" + hint +
                "NA\", \"-\"]\n"
                "d.csv:6: warning: \"NaN\" in column pen is taken as a level\n" +
                hint +
                "NA\", \"NaN\"]\n"
                "d.csv:3: warning: \".\" in column sex is taken as a level (2 records, lines 3, 5)\n" +
                hint + "NA\", \".\"]\n");
  const zeph_test::prepared_case stated("[data]\nmissing = [\".\", \"-\", \"NaN\"]\n" + model,
                                        {{"d.csv", data}});
  EXPECT_EQ(exit_code(stated.log), 0) << stated.messages();
  EXPECT_EQ(warnings_of(stated), "d.csv:7: warning: \"NA\" in column pen is taken as a level\n" + hint +
                                     ".\", \"-\", \"NaN\", \"NA\"]\n");
}

// A treatment "none" is a treatment, and "+" is a result.
TEST(data_columns, words_that_may_be_classes_are_not_warned_of) {
  const zeph_test::prepared_case c(
      "[data]\nfile = \"d.csv\"\n[trait.y]\nformula = \"1 + dose\"\n[residual]\nstart = 1.0\n",
      {{"d.csv", "dose,y\nnone,1\nunknown,2\n+,3\nNana,4\n-1,3\n0,6\n+,5\nnone,7\n"}});
  EXPECT_EQ(exit_code(c.log), 0) << c.messages();
  EXPECT_EQ(warnings_of(c), "");
}

} // namespace
} // namespace zeph::prepare
