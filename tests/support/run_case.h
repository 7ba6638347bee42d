// A work directory of a test's own with a small model that ZEPH can run: five
// calves, a class effect of sex (2 levels) and a pedigree factor of 8 animals
// (R. A. Mrode, Linear Models for the Prediction of Animal Breeding Values:
// example 3.1 of the third edition, 4.1 of the fourth). Tests change the
// description, the model or the files before the run.
#pragma once

#include "control/run_driver.h"
#include "support/check.h"
#include "support/model_builder.h"
#include "support/modinf_file.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace zeph_test {

inline const std::string banner_text = " ZEPH    " + std::string(20, ' ') +
                                       "Ostrelo Linear Effects Workbench" + std::string(15, ' ') +
                                       "   20-11-2026 - 23:14:05\n\n";

struct run_case {
  run_case() {
    d.traits.resize(1);
    d.traits[0].effects = {{1, 2}};
    d.factors = {{"PED", 8, 1, {{1, 2, 1}}}};
    d.integers = 5, d.reals = 1, d.records = 5;
    d.residual = {40.0};
    integers = {{1, 4, 1, 1, 1}, {2, 5, 1, 1, 2}, {2, 6, 1, 1, 3}, {1, 7, 1, 1, 4}, {1, 8, 1, 1, 5}};
    reals = {{4.5F}, {2.9F}, {3.9F}, {3.5F}, {5.0F}};
    make_model();
    // Henderson's rules, parents (0,0) (0,0) (0,0) (1,0) (3,2) (1,2) (4,5) (3,6)
    write_elements(directory / "AINV1",
                   {{1, 1, 11.0 / 6}, {2, 1, 0.5},      {2, 2, 2.0},  {3, 2, 0.5},  {3, 3, 2.0},
                    {4, 1, -2.0 / 3}, {4, 4, 11.0 / 6}, {5, 2, -1.0}, {5, 3, -1.0}, {5, 4, 0.5},
                    {5, 5, 2.5},      {6, 1, -1.0},     {6, 2, -1.0}, {6, 3, 0.5},  {6, 6, 2.5},
                    {7, 4, -1.0},     {7, 5, -1.0},     {7, 7, 2.0},  {8, 3, -1.0}, {8, 6, -1.0},
                    {8, 8, 2.0}});
    std::vector<std::vector<std::int32_t>> codes;
    for (std::int32_t l = 1; l <= 2; ++l) codes.push_back({0, l, 3, l, 0, 0});
    for (std::int32_t l = 1; l <= 8; ++l) codes.push_back({0, 100 + l, 1, l, 0, 0});
    write_integer_records(directory / "CODE_TABLE", codes);
  }
  void make_model() {
    m = std::make_unique<model_records>(build_model(d));
    if (m->nramat > 0) m->RMAT(1).GIF(1, 1) = 1.0 / 20.0;
  }

  // Directive lines of this type; proposal values close them for types that allow it.
  static std::string lines(std::int32_t type, std::int32_t burn, std::int32_t rounds, std::int32_t interval,
                           std::int32_t test_level = 0, const std::string& tail = "") {
    std::ostringstream text;
    text << type << ' ' << test_level << "\n12 34\n"
         << burn << ' ' << rounds << ' ' << interval << "\n1 0\n2 0\n"
         << tail;
    return text.str();
  }
  void write(const std::string& directives) {
    write_model(*m, directory / "MODINF");
    write_integer_records(directory / "RCDATA_I", integers);
    write_real_records(directory / "RCDATA_R", reals);
    directory.write("dir", directives);
  }

  // A run over the directory as it is; its listing.
  int go() {
    listing.str("");
    run r(listing, directory.path());
    return exit_code_of_run(r);
  }
  int go(const std::string& directives) {
    write(directives);
    return go();
  }
  std::string text() const { return listing.str(); }
  bool ends_with(const std::string& end) const {
    const std::string all = text();
    return all.size() >= end.size() && all.compare(all.size() - end.size(), end.size(), end) == 0;
  }

  scratch_directory directory;
  std::ostringstream listing;
  described_model d;
  std::unique_ptr<model_records> m;
  std::vector<std::vector<std::int32_t>> integers;
  std::vector<std::vector<float>> reals;
};

// Solutions of the example's equations to 16 digits: two sexes, eight animals.
inline constexpr double example_solutions[10] = {
    4.358502329854957,    3.4044300059066783,    0.09844457570387843,  -0.018770099100875903,
    -0.04108420292708659, -0.008663122661941913, -0.18573209949465452, 0.17687208768129992,
    -0.249458554833632,   0.18261468793069413};

} // namespace zeph_test
