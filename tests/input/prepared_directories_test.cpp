// Directories that another writer prepared are read whole: model, layout, every
// record, every relationship element, the pedigree and the table of codes.
#include "input/code_table.h"
#include "input/data_loading.h"
#include "input/model_information.h"

#include "input_frame.h"
#include "support/skip_reasons.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace zeph_test;
using namespace zeph;

// Passes over the codes of all levels: class effects of the traits, then factors.
void walk_codes(const model_records& m, reporting& report) {
  code_table table;
  rewind_codes(table, report);
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j) skip_codes(table, m.NLEV(i, j), report);
  for (std::int32_t k = 1; k <= m.nramat; ++k) skip_codes(table, m.NRALEV(k), report);
  EXPECT_EQ(table.file.next(), -1); // nothing is left
}

void read_whole(const std::string& directory) {
  heard_run run(directory);
  model_records m;
  equation_layout layout;
  design_store design;
  relationship_store relations;
  try {
    ASSERT_EQ(QVAMRD(m, run.report), 0) << run.text();
    count_equations(m, layout, run.report);
    check_model_indices(m, layout, run.report);
    number_fixed_equations(m, layout, run.report);
    SETGROUPS(m, layout, run.report, 2);
    EXPECT_EQ(READTOMEM(m, layout, design, relations, run.report), 0) << run.text();
    EXPECT_EQ(design.nobs, m.nobs());
    if (m.L_PTD) PEDFILE(m, relations, run.report);
    walk_codes(m, run.report);
  } catch (const run_stop& stop) {
    FAIL() << "exit code " << stop.exit_code << '\n' << run.text();
  }
}

TEST(prepared_directories, are_read_whole) {
  const std::string folder = shared_folder("data/workdirs");
  if (folder.empty()) GTEST_SKIP() << no_shared;
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_directory()) continue;
    SCOPED_TRACE(entry.path().filename().string());
    read_whole(entry.path().string() + "/");
    ++n;
  }
  EXPECT_GT(n, 0);
}

} // namespace
