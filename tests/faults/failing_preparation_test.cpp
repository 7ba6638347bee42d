// zeph-prepare, when the files of the work directory can't be written: code 2 and the
// file on standard error; a directory prepared before stays as it was, whole.
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

namespace {

using namespace zeph_test;

struct preparation {
  preparation() {
    place.write("pedigree.csv", "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,3,2\n");
    place.write("data.csv", "animal,sex,y1\n1,M,12.1\n2,F,9.3\n3,M,10.5\n4,F,10.2\n5,M,11.8\n3,F,12.6\n");
    describe("1 + sex + (1 | animal)");
    EXPECT_EQ(go().code, 0);
    before = files_in(place / "work/");
    EXPECT_GE(before.size(), 8U);
    describe("1 + (1 | animal)"); // the next preparation leaves other files
  }
  void describe(const std::string& formula) const {
    place.write("model.toml",
                "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.y1]\nformula = \"" +
                    formula +
                    "\"\n[factor.animal]\npedigree = \"pedigree.csv\"\nstart = 2.0\n"
                    "[residual]\nstart = 3.0\n");
  }
  [[nodiscard]] child_end go(const child_options& with = {}) const {
    return run_child({program("zeph-prepare"), "model.toml", "--into", "work"}, place.path(), with);
  }
  [[nodiscard]] long calls(const std::string& kind) const {
    child_options with;
    with.fault = {kind, 0};
    with.count_file = place / "count";
    EXPECT_EQ(go(with).code, 0);
    put_files(place / "work/", before);
    return std::atol(place.read("count").c_str());
  }
  // Each file is the former one. `beside`: new ones may have been left beside them, where the
  // program could not even clear up.
  void expect_former_files(const std::string& what, bool beside = false) const {
    file_set now = files_in(place / "work/");
    if (beside) std::erase_if(now, [](const auto& file) { return file.first.ends_with(".part"); });
    EXPECT_EQ(now, before) << what;
  }
  scratch_directory place;
  file_set before;
};

void expect_told(const child_end& end, const std::string& what) {
  EXPECT_EQ(end.code, 2) << what << end.all();
  EXPECT_NE(end.errors.find("zeph-prepare: can't "), std::string::npos) << what << end.errors;
  EXPECT_NE(end.errors.find("work"), std::string::npos) << what << end.errors;
}

class failing_preparation : public testing::TestWithParam<const char*> {};

TEST_P(failing_preparation, leaves_the_former_directory) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const std::string kind = GetParam();
  const preparation p;
  const long calls = p.calls(kind);
  EXPECT_GE(calls, 8);
  for (long n = 1; n <= calls; ++n) {
    child_options with;
    with.fault = {kind, n};
    const std::string what = kind + " " + std::to_string(n) + " of " + std::to_string(calls) + ": ";
    expect_told(p.go(with), what);
    p.expect_former_files(what);
  }
}

INSTANTIATE_TEST_SUITE_P(by, failing_preparation, testing::Values("write", "full", "close", "open"),
                         [](const auto& info) { return std::string(info.param); });

// Once names are given, files are whole, each the former or the new one.
TEST(a_preparation_that_can_not_name_a_file, leaves_whole_files) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const preparation p;
  const long calls = p.calls("rename");
  EXPECT_GE(calls, 8);
  EXPECT_EQ(p.go().code, 0);
  const file_set after = files_in(p.place / "work/");
  for (long n = 1; n <= calls; ++n) {
    put_files(p.place / "work/", p.before);
    child_options with;
    with.fault = {"rename", n};
    const std::string what = "rename " + std::to_string(n) + ": ";
    expect_told(p.go(with), what);
    for (const auto& [name, bytes] : files_in(p.place / "work/")) {
      if (p.before.contains(name) && p.before.at(name) == bytes) continue;
      // the model and the listing hold the time of their making
      EXPECT_TRUE(after.contains(name) && after.at(name).size() == bytes.size()) << what << name;
    }
  }
}

TEST(a_preparation_without_storage, ends_with_words) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const preparation p;
  const long calls = p.calls("storage");
  // the last requests are those after the new files have their names
  constexpr long last_ones = 60;
  const long step = std::getenv("ZEPH_EVERY_FAULT") != nullptr ? 1 : std::max(calls / 60, 1L);
  for (long n = 1; n <= calls; n += n + last_ones < calls ? step : 1) {
    child_options with;
    with.fault = {"storage", n};
    const child_end end = p.go(with);
    EXPECT_TRUE(end.code == 0 || end.code == 1 || end.code == 2) << n << ": " << end.code << end.all();
    if (end.code == 0) {
      put_files(p.place / "work/", p.before);
    } else {
      EXPECT_NE(end.errors, "") << n;
    }
    p.expect_former_files("storage " + std::to_string(n) + ": ", true);
  }
}

TEST(a_preparation_with_a_limit_of_file_sizes, names_the_file) {
  const preparation p;
  for (const rlim_t n : {0U, 10U, 100U, 500U}) {
    child_options with;
    with.file_bytes = n;
    with.listing = "/dev/null";
    EXPECT_EQ(p.go(with).code, 2) << n;
    p.expect_former_files("limit " + std::to_string(n) + ": ");
  }
}

TEST(a_preparation_whose_screen_is_full, has_code_2) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << no_dev_full;
  const preparation p;
  child_options with;
  with.listing = "/dev/full";
  const child_end end = p.go(with);
  EXPECT_EQ(end.code, 2);
  EXPECT_NE(end.errors.find("zeph-prepare: "), std::string::npos);
}

} // namespace
