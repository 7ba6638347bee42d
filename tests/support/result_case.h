// Frame of the tests of this folder: a work directory of its own, a kept
// listing, and one small model whose solutions are e / 4 for equation e.
//
// Two traits, "milk" and "fat":
//   equation 1       milk, plain regression "age"
//   equation 2       fat, plain regression "age"
//   equations 3-4    milk, regression "dim" nested in herd
//   equations 5-6    milk, herd; milk's second effect, sex, has no equations
//   equations 7-8    fat, herd
//   equations 9-14   factor 1, "PED": 3 levels of (milk, fat)
//   equations 15-16  factor 2, "I": 2 levels of fat
// milk has a third regression, a random one. CODE_TABLE gives the levels of
// factor 1 in the order 1, 3, 2.
#pragma once

#include "formats/sequential_file.h"
#include "input/equation_layout.h"
#include "listing/reporting.h"
#include "support/check.h"
#include "support/model_builder.h"
#include "support/scratch_directory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace results_test {

class result_case {
  zeph_test::scratch_directory directory_;

public:
  result_case() : report(listing, directory_.path()) {}

  std::ostringstream listing;
  zeph::reporting report;

  std::string path(const std::string& file) const { return directory_ / file; }
  bool exists(const std::string& file) const { return directory_.has(file); }
  std::string content(const std::string& file) const { return directory_.read(file); }
  void write(const std::string& file, const std::string& text) const { directory_.write(file, text); }
  // What the listing has gained since the last call.
  std::string said() {
    std::string text = listing.str();
    listing.str("");
    return text;
  }

  // The two ways in which a write fails: a device without room, a directory.
  void make_full(const std::string& file) const { std::filesystem::create_symlink("/dev/full", path(file)); }
  void make_directory(const std::string& file) const { std::filesystem::create_directory(path(file)); }

  // One record per row: no use, code, observations, level, and what fills it up.
  void write_codes(const std::vector<std::vector<std::int32_t>>& rows) const {
    std::vector<std::vector<std::int32_t>> records;
    for (const std::vector<std::int32_t>& row : rows) {
      records.push_back({-1, row[0], row[1], row[2], -1, -1});
      if (row.size() > 3) records.back().resize(static_cast<std::size_t>(row[3]), -1);
    }
    zeph_test::write_integer_records(path("CODE_TABLE"), records);
  }
};

// Exit code of the stop that f ends in, 0 when it returns.
template <class F> int exit_code_of(F f) {
  try {
    f();
  } catch (const zeph::run_stop& stop) {
    return stop.exit_code;
  }
  return 0;
}

// The text of a literal in which each line ends in '|', so that blanks at line
// ends can be seen.
inline std::string edged(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] != '|' || i + 1 == text.size() || text[i + 1] != '\n') plain.push_back(text[i]);
  return plain;
}

// Bytes of framed records made of 4-byte integers and 8-byte reals.
class record_bytes {
public:
  record_bytes& i(std::int32_t x) { return add(&x, sizeof x); }
  record_bytes& r(double x) { return add(&x, sizeof x); }
  record_bytes& end() {
    const auto n = static_cast<std::int32_t>(body_.size());
    const std::string frame(reinterpret_cast<const char*>(&n), sizeof n);
    bytes_ += frame + body_ + frame;
    body_.clear();
    return *this;
  }
  const std::string& str() const { return bytes_; }

private:
  record_bytes& add(const void* x, std::size_t n) {
    body_.append(static_cast<const char*>(x), n);
    return *this;
  }
  std::string body_, bytes_;
};

inline zeph::model_records dairy_model() {
  using namespace zeph_test;
  described_model d;
  described_trait milk, fat;
  milk.regressions = {{3}, {4, 1, 1}, {5, 2}};
  milk.effects = {{1, 2}, {2, 2, false}};
  fat.regressions = {{3}};
  fat.effects = {{1, 2}};
  d.traits = {milk, fat};
  d.factors = {{"PED", 3, 2, {{1, 3, 1}, {2, 3, 2}}}, {"I", 2, 1, {{2, 4, 1}}}};
  d.integers = 7;
  d.reals = 5;
  zeph::model_records m = build_model(d);
  m.MODEL(1).TRAIT_NAME = "milk    ";
  m.MODEL(2).TRAIT_NAME = "fat     ";
  m.MODEL(1).F_EF_NAME(1) = m.MODEL(2).F_EF_NAME(1) = "herd    ";
  m.MODEL(1).F_EF_NAME(2) = "sex     ";
  m.MODEL(1).REG_NAME(1) = m.MODEL(2).REG_NAME(1) = "age     ";
  m.MODEL(1).REG_NAME(2) = "dim     ";
  m.RMAT(1).T_NAME(1) = "milk    ";
  m.RMAT(1).T_NAME(2) = m.RMAT(2).T_NAME(1) = "fat     ";
  m.RMAT(2).T_NO(1) = 0; // the row has the number of the trait in the list
  return m;
}

inline void write_dairy_codes(const result_case& c) {
  c.write_codes({{10, 5, 1},
                 {20, 7, 2},
                 {1, 6, 1},
                 {2, 6, 2},
                 {10, 4, 1},
                 {20, 3, 2},
                 {101, 2, 1, 13},
                 {103, 1, 3, 13},
                 {102, 0, 2, 13},
                 {7, 1, 1, 13},
                 {8, 9, 2, 13}});
}

inline constexpr std::int32_t dairy_neq = 16;

inline void fill_quarters(zeph::vec<double>& x) {
  x.take(dairy_neq);
  for (std::int32_t e = 1; e <= dairy_neq; ++e) x(e) = 0.25 * e;
}

// The groups of the dairy model; n1 rows of factor 1 are active.
inline zeph::equation_layout dairy_layout(std::int32_t n1 = 2) {
  using zeph::group_kind;
  zeph::equation_layout layout;
  layout.nbegr = 8;
  layout.neq = dairy_neq;
  layout.ngroups = 6;
  layout.groups = {{group_kind::plain_regressions, 0, 0, 0, 2}, {group_kind::nested_regression, 1, 2, 2, 1},
                   {group_kind::fixed_effect, 1, 1, 4, 1},      {group_kind::fixed_effect, 2, 1, 6, 1},
                   {group_kind::random_factor, 0, 1, 8, 2},     {group_kind::random_factor, 0, 2, 14, 1}};
  layout.NGR.take(layout.ngroups, 2);
  const std::int32_t sizes[6][2] = {{1, 2}, {2, 1}, {2, 1}, {2, 1}, {3, n1}, {2, 1}};
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    for (std::int32_t i = 1; i <= 2; ++i) layout.NGR(g, i) = sizes[g - 1][i - 1];
  return layout;
}

} // namespace results_test
