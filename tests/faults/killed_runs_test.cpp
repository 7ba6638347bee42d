// Runs that are killed at random times: what is in their files is whole but for
// the last row or record.
#include "faults/small_runs.h"

#include <chrono>
#include <cstring>
#include <random>
#include <thread>

namespace {

using namespace zeph_test;

// Four kinds of run that together grow every file, with rounds without end; the
// state of an earlier run is in the directory.
const std::vector<small_run>& endless_runs() {
  static const std::vector<small_run> all = {
      {"kept_samples", "herd", "0 2000000 1"},
      {"ordered", "cat3_t3", "0 2000000 1"},
      {"mixture", "mix2_t3", "0 2000000 1"},
      {"jump", "jumpI3_t6", "0 2000000 1"},
  };
  return all;
}

// Length of the whole rows of a text.
std::size_t whole_rows(const std::string& text) {
  const std::size_t last = text.rfind('\n');
  return last == std::string::npos ? 0 : last + 1;
}

void expect_whole_rows(const std::string& name, const std::string& text, std::size_t items) {
  std::istringstream rows(text.substr(0, whole_rows(text)));
  for (std::string row; std::getline(rows, row);) {
    if (name == "zeinfo") continue; // rows of six forms
    std::istringstream words(row);
    std::size_t n = 0;
    for (std::string word; words >> word;) ++n;
    ASSERT_EQ(n, items) << name << ": " << row;
  }
}

// Records framed by their lengths, the last one possibly cut.
void expect_whole_records(const std::string& name, const std::string& bytes) {
  std::size_t at = 0;
  std::int32_t before = 0, after = 0;
  while (at + 4 <= bytes.size()) {
    std::memcpy(&before, bytes.data() + at, 4);
    ASSERT_GE(before, 0) << name;
    const std::size_t end = at + 8 + static_cast<std::size_t>(before);
    if (end > bytes.size()) return;
    std::memcpy(&after, bytes.data() + end - 4, 4);
    ASSERT_EQ(before, after) << name << " at " << at;
    at = end;
  }
}

class killed_run : public testing::TestWithParam<small_run> {
protected:
  // The directory as a run before left it: the same model, a few rounds, its state kept.
  file_set left_before() {
    small_run first = GetParam();
    first.rounds = "0 3 1";
    put_files(place.path(), input_of(first));
    EXPECT_EQ(run_zeph(place.path()).code, 0);
    file_set files = files_in(place.path());
    files["zeph.dir"] = input_of(GetParam()).at("zeph.dir");
    files.erase("mixz_prob"); // these must not exist
    files.erase("mixz_last");
    return files;
  }
  void expect_whole(const file_set& before) {
    const std::string status = place.read("status");
    EXPECT_EQ(std::count(status.begin(), status.end(), '\n'), 1) << status;
    EXPECT_TRUE(status.ends_with("\n")) << status;
    for (const char* name : {"lastsol", "gparlast", "gibsol", "solpostmean"})
      EXPECT_EQ(place.read(name), before.at(name)) << name;
    for (const char* name : {"gib.samples", "py", "lpm", "threshold", "mix_pi", "zeinfo"}) {
      if (!place.has(name)) continue;
      const std::string text = place.read(name), row = before.at(name).substr(0, before.at(name).find('\n'));
      std::istringstream words(row);
      std::size_t items = 0;
      for (std::string word; words >> word;) ++items;
      expect_whole_rows(name, text, items);
    }
    for (const char* name : {"sol.samples", "res.samples", "scr31"})
      expect_whole_records(name, place.read(name));
  }
  // Kills a run after this time, or, at 0, as soon as it has kept some samples; looks at what it
  // leaves. The time that it had, in microseconds.
  long kill_one(const file_set& before, long after) {
    using clock = std::chrono::steady_clock;
    put_files(place.path(), before);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto start = clock::now();
    const auto time = [&] {
      return std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - start).count();
    };
    const started_child child = start_child({program("ZEPH")}, place.path(), {}, "/dev/null", nowhere);
    ::close(nowhere);
    const auto sampled = [&] {
      const std::string py = place.read("py");
      return py.size() > before.at("py").size();
    };
    constexpr long most = 60000000;
    while (time() < after || (after == 0 && time() < most && !sampled()))
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    const long had = time();
    ::kill(child.id, SIGKILL);
    EXPECT_EQ(child.wait(), 1000 + SIGKILL);
    expect_whole(before);
    longest = std::max(longest, place.read("py").size());
    return had;
  }
  void kill_often(int times) {
    const file_set before = left_before();
    const long until_samples = kill_one(before, 0);
    std::mt19937 random(20261121);
    std::uniform_int_distribution<long> times_of_death(1, 2 * until_samples);
    for (int i = 1; i < times; ++i) kill_one(before, times_of_death(random));
    EXPECT_GT(longest, before.at("py").size()); // some were killed in their chains
  }
  scratch_directory place;
  std::size_t longest = 0; // bytes of py
};

// 200 times in all.
TEST_P(killed_run, leaves_whole_rows_and_the_state_of_the_run_before) { kill_often(50); }

INSTANTIATE_TEST_SUITE_P(of, killed_run, testing::ValuesIn(endless_runs()),
                         [](const auto& info) { return info.param.name; });

} // namespace
