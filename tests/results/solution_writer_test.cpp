// Expected rows were written from the column formats by hand (blanks counted),
// not taken from the program; '|' marks the end of a line.
#include "results/solution_writer.h"

#include "support/result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

struct dairy : result_case {
  model_records m = dairy_model();
  vec<double> first, second;
  vec<std::int32_t> IREST;
  std::int32_t n_IREST = 0;
  dairy() {
    write_dairy_codes(*this);
    fill_quarters(first);
    second.take(dairy_neq);
    second.fill(4.0);
  }
  int solwrite(std::int32_t option) {
    return SOLWRITE(option, m, IREST, n_IREST, first, second, "gibsol", report);
  }
  std::vector<std::string> rows() const { return split(content("gibsol")); }
  static std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
};

int count_of(const std::string& text, const std::string& what) {
  int n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

const std::string three_zeros = "           0           0           0";
const std::string nought = "         0.00000    ";

} // namespace

TEST(solution_writer, option_1_writes_header_and_all_blocks_in_order) {
  dairy c;
  ASSERT_EQ(c.solwrite(1), 0);
  EXPECT_EQ(c.content("gibsol"),
            edged("0  1  7   1           0           0           0         0.00000    |\n"
                  "1  1  0   1           1           0           0        0.250000    |\n"
                  "1  1  1   2           1           0           0        0.750000    |\n"
                  "1  1  1   2           2           0           0         1.00000    |\n"
                  "1  2  0   1           1           0           0        0.500000    |\n"
                  "2  1  1   0          10           5           1         1.25000    |\n"
                  "2  1  1   0          20           7           2         1.50000    |\n"
                  "2  1  2   0           1           6           1         0.00000    |\n"
                  "2  1  2   0           2           6           2         0.00000    |\n"
                  "2  2  1   0          10           4           1         1.75000    |\n"
                  "2  2  1   0          20           3           2         2.00000    |\n"
                  "3  1  1   1         101           2           1         2.25000    |\n"
                  "3  2  2   1         101           2           1         2.50000    |\n"
                  "3  1  1   1         103           1           3         3.25000    |\n"
                  "3  2  2   1         103           1           3         3.50000    |\n"
                  "3  1  1   1         102           0           2         2.75000    |\n"
                  "3  2  2   1         102           0           2         3.00000    |\n"
                  "3  2  1   2           7           1           1         3.75000    |\n"
                  "3  2  1   2           8           9           2         4.00000    |\n"));
}

TEST(solution_writer, option_1_lists_blocks_with_one_label) {
  dairy c;
  c.solwrite(1);
  EXPECT_EQ(c.said(),
            edged("|\n"
                  "    Posterior mean (P_MEAN) and standard error (P_STD) for fixed and random effects|\n"
                  "|\n"
                  "  Regression coefficients|\n"
                  "|\n"
                  "Trait  Regression            Eq-no            P_MEAN  |\n"
                  "       milk      age                       1           0.250000    |\n"
                  "       milk      dim                       3           0.750000    |\n"
                  "       milk      dim                       4            1.00000    |\n"
                  "       fat       age                       2           0.500000    |\n"
                  "|\n"
                  "  First 250 equations for Trait:  milk    |\n"
                  "  Fixed Effect:  herd    |\n"
                  "|\n"
                  "Code     N-obs           Eq-no            P_MEAN  |\n"
                  "             10         5               5            1.25000    |\n"
                  "             20         7               6            1.50000    |\n"
                  "|\n"
                  "  First 250 equations for Trait:  milk    |\n"
                  "  Fixed Effect:  sex     |\n"
                  "|\n"
                  "Code     N-obs           Eq-no            P_MEAN  |\n"
                  "              1         6               1            0.00000    |\n"
                  "              2         6               2            0.00000    |\n"
                  "|\n"
                  "  First 250 equations for Trait:  fat     |\n"
                  "  Fixed Effect:  herd    |\n"
                  "|\n"
                  "Code     N-obs           Eq-no            P_MEAN  |\n"
                  "             10         4               7            1.75000    |\n"
                  "             20         3               8            2.00000    |\n"
                  "|\n"
                  " First 250 Animal equations for Random Factor   1 (variance structure: A(x)G0    )|\n"
                  "|\n"
                  "Code  N-obs Number   Trait       Eq-no                     P_MEAN  |\n"
                  "            101      2    1    milk            9         2.25000    |\n"
                  "            101      2    2    fat            10         2.50000    |\n"
                  "            103      1    1    milk           13         3.25000    |\n"
                  "            103      1    2    fat            14         3.50000    |\n"
                  "            102      0    1    milk           11         2.75000    |\n"
                  "            102      0    2    fat            12         3.00000    |\n"
                  "|\n"
                  " First 250 equations for Random Factor   2 (variance structure: I(x)G0    )|\n"
                  "|\n"
                  "Code  N-obs Number   Trait       Eq-no                     P_MEAN  |\n"
                  "              7      1    1    fat            15         3.75000    |\n"
                  "              8      9    1    fat            16         4.00000    |\n"));
  EXPECT_EQ(c.report.nlines, 47); // the lines above, counted
}

// Not the number of the trait in the model: factor 2 isn't fitted for trait 1, and the list of factor 1 has
// trait 2 first here. Rows by hand from the formats 1X, I14, I7, I5, 4X, A8, I9 and I1, 2I3, I4, 3I12.
TEST(solution_writer, number_of_a_row_is_that_of_the_trait_in_the_list_of_its_factor) {
  dairy c;
  structure_record& factor = c.m.RMAT(1);
  factor.TRAIT_NO(1) = factor.T_NO(1) = 2;
  factor.TRAIT_NO(2) = factor.T_NO(2) = 1;
  factor.T_NAME(1) = "fat     ";
  factor.T_NAME(2) = "milk    ";
  ASSERT_EQ(c.solwrite(1), 0);
  const std::string listing = c.said(), file = c.content("gibsol");
  for (const char* row : {"            101      2    1    fat            10         2.50000    \n",
                          "            101      2    2    milk            9         2.25000    \n",
                          "              7      1    1    fat            15         3.75000    \n",
                          "              8      9    1    fat            16         4.00000    \n"})
    EXPECT_EQ(count_of(listing, row), 1) << row << listing;
  for (const char* row : {"3  2  1   1         101           2           1         2.50000    \n",
                          "3  1  2   1         101           2           1         2.25000    \n",
                          "3  2  1   2           7           1           1         3.75000    \n",
                          "3  2  1   2           8           9           2         4.00000    \n"})
    EXPECT_EQ(count_of(file, row), 1) << row << file;
}

TEST(solution_writer, option_4_writes_roots_and_zero_for_restricted_equations) {
  dairy c;
  zeph_test::fill_vec(c.IREST, {6, 8});
  c.n_IREST = 2;
  c.second(9) = -1.0;   // a variance below 0 has the root 0
  c.second(10) = 1e-14; // root 1E-7: small variances are no dust
  c.solwrite(4);
  const auto rows = c.rows();
  EXPECT_EQ(rows[0], "0  4  7   2" + three_zeros + nought + nought);
  EXPECT_EQ(rows[5],
            "2  1  1   0          10           5           1         1.25000             2.00000    ");
  EXPECT_EQ(rows[6],
            "2  1  1   0          20           7           2         1.50000             0.00000    ");
  EXPECT_EQ(rows[10],
            "2  2  1   0          20           3           2         2.00000             0.00000    ");
  EXPECT_EQ(rows[11],
            "3  1  1   1         101           2           1         2.25000             0.00000    ");
  EXPECT_EQ(rows[12],
            "3  2  2   1         101           2           1         2.50000            0.100000E-06");
  EXPECT_EQ(c.second(6), 0.0);
  EXPECT_EQ(c.second(7), 4.0); // the vector keeps variances
  EXPECT_EQ(c.second(10), 1e-14);
  const std::string listing = c.said();
  EXPECT_EQ(count_of(listing, "Code     N-obs           Eq-no            P_MEAN          P_STD\n"), 3);
  EXPECT_EQ(
      count_of(listing,
               "             20         7               6            1.50000             0.00000    \n"),
      1);
}

TEST(solution_writer, units_0_2_and_5_write_the_second_vector_as_it_is) {
  for (const std::int32_t unit : {0, 2, 5}) {
    dairy c;
    c.second(1) = -2.0;
    c.solwrite(unit);
    const auto rows = c.rows();
    EXPECT_EQ(rows[0], "0  " + std::to_string(unit) + "  7   2" + three_zeros + nought + nought);
    EXPECT_EQ(rows[1],
              "1  1  0   1           1           0           0        0.250000            -2.00000    ");
    EXPECT_EQ(rows[18],
              "3  2  1   2           8           9           2         4.00000             4.00000    ");
  }
}

TEST(solution_writer, units_0_and_3_list_nothing) {
  for (const std::int32_t option : {0, 3}) {
    dairy c;
    c.solwrite(option);
    EXPECT_EQ(c.said(), "");
    EXPECT_EQ(c.report.nlines, 0);
    EXPECT_EQ(c.rows().size(), 19u);
  }
}

TEST(solution_writer, units_3_and_6_leave_the_second_column_zero) {
  for (const std::int32_t unit : {3, 6}) {
    dairy c;
    zeph_test::fill_vec(c.IREST, {1});
    c.n_IREST = 1;
    c.solwrite(unit);
    EXPECT_EQ(c.rows()[2],
              "1  1  1   2           1           0           0        0.750000             0.00000    ");
    EXPECT_EQ(c.second(1), unit == 6 ? 0.0 : 4.0); // only 6 zeroes restricted equations
    EXPECT_EQ(c.second(2), 4.0);
  }
}

TEST(solution_writer, headings_name_the_second_column_by_unit) {
  const std::string previous =
      "                 Prev. solution"; // 8 blanks, then the label with 9 of its own
  dairy two, five, six;
  two.solwrite(2);
  EXPECT_EQ(count_of(two.said(), "Eq-no            P_MEAN  " + previous + "\n"), 4);
  six.solwrite(6);
  EXPECT_EQ(count_of(six.said(), "Eq-no            P_MEAN  \n"), 4);
  five.solwrite(5);
  const std::string listing = five.said();
  EXPECT_EQ(count_of(listing, "Eq-no            BLUE    " + previous + "\n"), 4);
  EXPECT_EQ(count_of(listing, "Eq-no                     BLUP    " + previous + "\n"), 2);
  EXPECT_EQ(count_of(listing, "P_MEAN"), 0);
}

TEST(solution_writer, dust_becomes_zero_in_row_and_vector) {
  const double edge = static_cast<double>(1e-13F); // 9.9999998245167e-14
  dairy c;
  c.first(1) = 9.99e-14;
  c.first(2) = -9.99e-14;
  c.first(3) = edge; // not below the threshold
  c.first(5) = std::nextafter(edge, 0.0);
  c.second(1) = -9e-14;
  c.second(3) = -edge;
  c.solwrite(2);
  const auto rows = c.rows();
  EXPECT_EQ(rows[1], "1  1  0   1           1           0           0" + nought + nought);
  EXPECT_EQ(rows[2],
            "1  1  1   2           1           0           0        0.100000E-12       -0.100000E-12");
  for (const int e : {1, 2, 5}) EXPECT_EQ(c.first(e), 0.0) << e;
  EXPECT_EQ(c.first(3), edge);
  EXPECT_EQ(c.second(1), 0.0);
  EXPECT_EQ(c.second(3), -edge);
}

TEST(solution_writer, second_vector_keeps_dust_under_a_root) {
  dairy c;
  c.second(1) = 1e-20;
  c.solwrite(4);
  EXPECT_EQ(c.second(1), 1e-20);
  EXPECT_EQ(c.rows()[1],
            "1  1  0   1           1           0           0        0.250000            0.100000E-09");
}

TEST(solution_writer, scale_flag_multiplies_solution_and_root_by_the_scale_of_the_trait) {
  dairy c;
  c.m.sol_layout = 1;
  c.m.SPRE(1) = 2.0;
  c.m.SPRE(2) = 10.0;
  c.solwrite(4);
  const auto rows = c.rows();
  // milk: 0.25 x 2, root of 4 x 2; fat: 0.5 x 10, 2 x 10; the vectors keep their scale
  EXPECT_EQ(rows[1],
            "1  1  0   1           1           0           0        0.500000             4.00000    ");
  EXPECT_EQ(rows[4],
            "1  2  0   1           1           0           0         5.00000             20.0000    ");
  EXPECT_EQ(rows[12],
            "3  2  2   1         101           2           1         25.0000             20.0000    ");
  EXPECT_EQ(rows[17],
            "3  2  1   2           7           1           1         37.5000             20.0000    ");
  EXPECT_EQ(c.first(2), 0.5);
  EXPECT_EQ(c.second(2), 4.0);
}

TEST(solution_writer, scale_flag_other_than_1_leaves_values) {
  dairy c;
  c.m.sol_layout = 2;
  c.m.SPRE.fill(7.0);
  c.solwrite(1);
  EXPECT_EQ(c.rows()[1], "1  1  0   1           1           0           0        0.250000    ");
}

TEST(solution_writer, previous_solution_is_not_scaled) {
  dairy c;
  c.m.sol_layout = 1;
  c.m.SPRE.fill(2.0);
  c.solwrite(2);
  EXPECT_EQ(c.rows()[1],
            "1  1  0   1           1           0           0        0.500000             4.00000    ");
}

TEST(solution_writer, option_14_runs_as_unit_4) {
  dairy plain, tens;
  plain.solwrite(4);
  EXPECT_EQ(tens.solwrite(14), 0);
  EXPECT_EQ(tens.content("gibsol"), plain.content("gibsol"));
  EXPECT_EQ(tens.said(), plain.said());
}

TEST(solution_writer, tens_digit_2_leaves_the_file_alone) {
  dairy c;
  c.write("gibsol", "old\n");
  EXPECT_EQ(c.solwrite(22), 0);
  EXPECT_EQ(c.content("gibsol"), "old\n");
  dairy none;
  EXPECT_EQ(none.solwrite(23), 0);
  EXPECT_FALSE(none.exists("gibsol"));
  EXPECT_EQ(none.said(), "");
}

TEST(solution_writer, illegal_tens_digit_stops_with_code_16) {
  for (const std::int32_t option : {30, 34, 100}) {
    dairy c;
    EXPECT_EQ(exit_code_of([&] { c.solwrite(option); }), 16);
    const std::string value = option == 100 ? "100" : " " + std::to_string(option);
    EXPECT_EQ(c.said(), "\nERROR: Wrong options for writing/printing solutions !\n\n"
                        "Specified option:          " +
                            value +
                            "\n"
                            "Legal options are: 0,1,2,3,4,11,21,12,22,13,23\n");
    EXPECT_FALSE(c.exists("gibsol"));
  }
}

TEST(solution_writer, unit_digit_above_6_sets_the_status_and_writes_nothing) {
  for (const std::int32_t option : {7, 19, 28}) {
    dairy c;
    c.write("gibsol", "old\n");
    EXPECT_EQ(c.solwrite(option), 1);
    const std::string number = std::to_string(option);
    EXPECT_EQ(c.said(),
              "SOLWRITE - Illegal options :  " + std::string(11 - number.size(), ' ') + number + "\n");
    EXPECT_EQ(c.content("gibsol"), "old\n");
  }
}

namespace {

// One trait, one class effect of `fixed` levels, a factor of `random` levels of
// order `order`; regressions nested in the class effect when `nested`.
struct wide_case : result_case {
  model_records m;
  vec<double> first, second;
  vec<std::int32_t> none;
  wide_case(std::int32_t fixed, std::int32_t random, std::int32_t order, bool nested = false,
            const std::string& structure = "I") {
    using namespace zeph_test;
    described_model d;
    described_trait t;
    t.effects = {{1, fixed}};
    if (nested) t.regressions = {{2, 1, 1}};
    d.traits = {t};
    described_factor f{structure, random, order, {}};
    for (std::int32_t p = 1; p <= order; ++p) f.contributions.push_back({1, 2, p});
    d.factors = {f};
    m = build_model(d);
    std::vector<std::vector<std::int32_t>> codes;
    for (const std::int32_t levels : {fixed, random})
      for (std::int32_t l = 1; l <= levels; ++l) codes.push_back({1000 + l, 1, l});
    write_codes(codes);
    const std::int32_t neq = m.NBEGRA(2);
    first.take(neq);
    second.take(neq);
    first.fill(1.0);
  }
  int solwrite(std::int32_t option) { return SOLWRITE(option, m, none, 0, first, second, "gibsol", report); }
};

} // namespace

TEST(solution_writer, listing_stops_at_250_rows_of_a_class_effect) {
  wide_case c(251, 1, 1);
  c.solwrite(1);
  const std::string listing = c.said();
  EXPECT_EQ(count_of(listing, "           1250         1"), 1);
  EXPECT_EQ(count_of(listing, "           1251         1"), 0);
  EXPECT_EQ(count_of(c.content("gibsol"), "\n2  1  1   0"), 251);
}

TEST(solution_writer, listing_stops_at_250_rows_not_levels_of_a_random_factor) {
  wide_case c(1, 126, 2);
  c.solwrite(1);
  const std::string listing = c.said();
  EXPECT_EQ(count_of(listing, "           1125      1    2"), 1); // row 250
  EXPECT_EQ(count_of(listing, "           1126      1"), 0);
  EXPECT_EQ(count_of(c.content("gibsol"), "\n3  1"), 252);
}

TEST(solution_writer, listing_stops_at_250_rows_of_the_regressions) {
  wide_case c(251, 1, 1, true);
  c.solwrite(1);
  EXPECT_EQ(count_of(c.said(), "       trait1    reg "), 250);
  EXPECT_EQ(count_of(c.content("gibsol"), "\n1  1  1   1"), 251);
}

TEST(solution_writer, page_turns_before_a_row_of_a_factor_at_line_78) {
  // title 3 lines, class effect 5 + 1, heading of the factor 4: 13 lines. Rows
  // 1..65 fill lines 14..78; row 66 finds the counter at 78 and turns the page.
  for (const std::int32_t rows : {65, 66}) {
    wide_case c(1, rows, 1);
    c.solwrite(1);
    EXPECT_EQ(count_of(c.said(), "\n1ZEPH "), rows - 65);
    EXPECT_EQ(c.report.nlines, rows == 65 ? 78 : 3); // the banner's 2 lines and the row
  }
}

TEST(solution_writer, page_turns_before_a_block_above_line_68) {
  // the title takes 3 lines and is no block: the first block sees the count + 3
  for (const std::int32_t before : {65, 66}) {
    wide_case c(1, 1, 1);
    c.report.nlines = before;
    c.solwrite(1);
    const std::string listing = c.said();
    const bool turned = before == 66;
    const auto page = listing.find("\n1ZEPH "), block = listing.find("Fixed Effect");
    EXPECT_EQ(page != std::string::npos && page < block, turned);
    EXPECT_LT(listing.find("Posterior mean"), page);
  }
}

TEST(solution_writer, rows_of_class_effects_turn_no_page) {
  wide_case c(100, 1, 1);
  c.solwrite(1);
  const std::string listing = c.said();
  EXPECT_EQ(count_of(listing, "1ZEPH "), 1); // before the factor only
  EXPECT_GT(listing.find("1ZEPH "), listing.find("           1100         1"));
}

TEST(solution_writer, nothing_listed_turns_no_page) {
  wide_case c(1, 1, 1);
  c.report.nlines = 500;
  c.solwrite(3);
  EXPECT_EQ(c.said(), "");
  EXPECT_EQ(c.report.nlines, 500);
}

TEST(solution_writer, headings_tell_the_variance_structure) {
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"I", " First 250 equations for Random Factor   1 (variance structure: I(x)G0    )"},
      {"COR", " First 250 equations for Random Factor   1 (variance structure: COR(x)G0  )"},
      {"PED", " First 250 Animal equations for Random Factor   1 (variance structure: A(x)G0    )"},
      {"DOM", " First 250 Dominance equations for Random Factor   1 (variance structure: DOM(x)G0  )"},
      {"ABS_QTL", " First 250 QTL equations for Random Factor   1 (variance structure: IBD(X)G0  )"},
      {"PGMIX", " First 250 Animal equations for Random Factor   1 (variance structure: PGMIX(x)G0)"},
      {"GREL", " First 250 Animal equations for Random Factor   1 (variance structure: G(x)G0    )"},
      {"SNP", " First 250 SNP equations for Random Factor   1 (variance structure: I(x)G0    )"}};
  for (const auto& [structure, heading] : expected) {
    wide_case c(1, 1, 1, false, structure);
    c.solwrite(1);
    EXPECT_EQ(count_of(c.said(), "\n\n" + heading + "\n\n"), 1) << structure;
  }
}

TEST(solution_writer, model_without_regressions_has_no_such_block) {
  wide_case c(1, 1, 1);
  c.solwrite(1);
  EXPECT_EQ(count_of(c.said(), "Regression coefficients"), 0);
}

TEST(solution_writer, short_code_table_stops_with_its_text_and_leaves_the_old_file) {
  dairy c;
  c.write("gibsol", "old\n");
  c.write_codes({{10, 5, 1}, {20, 7, 2}, {1, 6, 1}}); // sex has two levels
  EXPECT_EQ(exit_code_of([&] { c.solwrite(3); }), 16);
  EXPECT_EQ(c.said(), "READ  CODE_TABLE - iostat =           -1\n\n\n"
                      "i2 :            2\n"
                      "nralev(k) :            2\n");
  EXPECT_EQ(c.content("gibsol"), "old\n");
  EXPECT_FALSE(c.exists("gibsol.part"));
}

TEST(solution_writer, second_walk_reads_the_code_table_from_its_start) {
  dairy c;
  c.solwrite(3);
  const std::string once = c.content("gibsol");
  c.solwrite(3);
  EXPECT_EQ(c.content("gibsol"), once);
}

TEST(solution_writer, write_to_a_full_device_stops_with_code_16) {
  dairy c;
  std::filesystem::create_symlink("/dev/full", c.path("gibsol"));
  EXPECT_EQ(exit_code_of([&] { c.solwrite(3); }), 16);
  EXPECT_EQ(c.said(), "\nERROR - gibsol: no space left on the device\n\nZEPH terminates.\n");
}

TEST(solution_writer, directory_in_the_way_stops_with_code_16) {
  dairy c;
  std::filesystem::create_directory(c.path("gibsol"));
  EXPECT_EQ(exit_code_of([&] { c.solwrite(3); }), 16);
  EXPECT_EQ(c.said(),
            zeph_test::illegal_input_text("gibsol", "write", "open", "the file can be opened and written"));
}
