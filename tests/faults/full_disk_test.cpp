// Disks that are full, directories and files that can't be written: real ones, in
// place of calls that fail.
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

#include <sys/mount.h>

namespace {

using namespace zeph_test;

small_run run_named(const std::string& name) {
  for (const small_run& run : small_runs())
    if (run.name == name) return run;
  throw std::runtime_error("no run of this name");
}

void expect_message(const child_end& end, const std::string& what) {
  EXPECT_EQ(end.code, 16) << what << '\n' << end.all();
  EXPECT_NE(file_named_in(end.all()), "") << what << '\n' << end.all();
}

// Limits of file sizes: the system's signal would end the program without a word.
TEST(a_run_with_a_limit_of_file_sizes, names_the_file_that_reaches_it) {
  prepared_run run(run_named("kept_samples"));
  std::size_t largest = 0;
  for (const auto& [name, bytes] : run.whole)
    if (!run.input.contains(name)) largest = std::max(largest, bytes.size());
  for (std::size_t n = 0; n < largest; n += 1 + n / 4) {
    put_files(run.place.path(), run.input);
    child_options with;
    with.file_bytes = n;
    with.listing = "/dev/null"; // the listing has no limit here
    const child_end end = run_zeph(run.place.path(), with);
    EXPECT_EQ(end.code, 16) << n;
    for (const auto& [name, bytes] : files_in(run.place.path()))
      if (name != "status") {
        EXPECT_TRUE(run.whole.contains(name) && run.whole.at(name).starts_with(bytes)) << n << name;
      }
    for (const std::string& name : whole_names())
      if (run.place.has(name)) {
        EXPECT_EQ(run.place.read(name), run.whole.at(name)) << n;
      }
  }
}

// The listing reaches the limit too: output continues on standard error.
TEST(a_run_with_a_limit_of_file_sizes, reports_it_where_the_listing_can_not) {
  prepared_run run(run_named("kept_samples"));
  put_files(run.place.path(), run.input);
  child_options with;
  with.file_bytes = 300; // of the listing as well
  const child_end end = run_zeph(run.place.path(), with);
  expect_message(end, "300 bytes");
  EXPECT_LE(end.listing.size(), 300U);
  EXPECT_NE(end.errors.find("\nERROR - Illegal input in "), std::string::npos) << end.errors;
  EXPECT_NE(end.errors.find("ZEPH: the listing could not be written; exit code 16\n"), std::string::npos);
}

TEST(a_run_whose_listing_goes_nowhere, leaves_its_files_and_code_16) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << no_dev_full;
  prepared_run run(run_named("gaussian"));
  put_files(run.place.path(), run.input);
  child_options with;
  with.listing = "/dev/full";
  const child_end end = run_zeph(run.place.path(), with);
  EXPECT_EQ(end.code, 16);
  EXPECT_EQ(files_in(run.place.path()), run.whole);
  EXPECT_NE(end.errors.find(" End of ZEPH"), std::string::npos);
}

// A disk in memory of some pages, filled but for n bytes by another file.
class small_disk {
public:
  explicit small_disk(int kilobytes) {
    const std::string size = "size=" + std::to_string(kilobytes) + "k";
    mounted_ = ::mount("none", place_.path().c_str(), "tmpfs", 0, size.c_str()) == 0;
  }
  ~small_disk() {
    if (mounted_) ::umount2(place_.path().c_str(), MNT_DETACH);
  }
  small_disk(const small_disk&) = delete;
  small_disk& operator=(const small_disk&) = delete;
  [[nodiscard]] bool mounted() const { return mounted_; }
  [[nodiscard]] const scratch_directory& place() const { return place_; }

private:
  scratch_directory place_;
  bool mounted_ = false;
};

TEST(a_run_on_a_full_disk, names_the_file_and_keeps_what_was_whole) {
  prepared_run run(run_named("kept_samples"));
  int full = 0;
  for (int kilobytes = 40; kilobytes < 200; kilobytes += 4) {
    const small_disk disk(kilobytes);
    if (!disk.mounted()) GTEST_SKIP() << no_right;
    try {
      put_files(disk.place().path(), run.input);
    } catch (const std::exception&) {}
    if (files_in(disk.place().path()) != run.input) continue; // no room for the input
    const child_end end = run_zeph(disk.place().path());
    if (end.code == 0) break;
    ++full;
    expect_message(end, std::to_string(kilobytes) + " kB");
    for (const auto& [name, bytes] : files_in(disk.place().path())) {
      ASSERT_TRUE(name == "status" || run.whole.contains(name)) << name;
      if (whole_names().contains(name)) {
        EXPECT_EQ(bytes, run.whole.at(name)) << name;
      }
      if (growing_names().contains(name)) {
        EXPECT_TRUE(run.whole.at(name).starts_with(bytes)) << name;
      }
    }
  }
  EXPECT_GT(full, 3);
}

// A user without rights: nobody, when the tests run as the superuser. It has a ZEPH of its own, since the
// directory of the build may be closed to it.
struct plain_user {
  plain_user() {
    with.nobody = ::getuid() == 0;
    std::filesystem::copy_file(program("ZEPH"), own_ZEPH);
    std::filesystem::permissions(programs.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(own_ZEPH, std::filesystem::perms(0755));
  }
  // False where the right to become this user is missing.
  [[nodiscard]] bool exists() const { return run_child({"/bin/true"}, "/", with).code == 0; }
  void enter(const std::string& directory) const {
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    EXPECT_EQ(
        run_child({"/bin/sh", "-c", "test -x " + own_ZEPH + " && test -r " + directory}, "/", with).code, 0);
  }
  [[nodiscard]] child_end run_zeph(const std::string& directory) const {
    return run_child({own_ZEPH}, directory, with);
  }
  void own(const std::string& path) const {
    if (with.nobody) {
      EXPECT_EQ(::chown(path.c_str(), nobody_id, nobody_id), 0);
    }
  }
  child_options with;
  scratch_directory programs;
  std::string own_ZEPH = programs / "ZEPH";
};

TEST(a_read_only_directory, is_reported_by_the_first_file_and_stays_as_it_was) {
  prepared_run run(run_named("gaussian"));
  const plain_user user;
  if (!user.exists()) GTEST_SKIP() << no_right;
  user.enter(run.place.path());
  put_files(run.place.path(), run.before);
  user.own(run.place.path());
  std::filesystem::permissions(run.place.path(), std::filesystem::perms(0555));
  const child_end end = user.run_zeph(run.place.path());
  std::filesystem::permissions(run.place.path(), std::filesystem::perms(0755));
  expect_message(end, "read-only");
  EXPECT_EQ(file_named_in(end.listing), "status");
  EXPECT_EQ(files_in(run.place.path()), run.before);
}

TEST(input_without_the_right_to_read_it, is_reported) {
  prepared_run run(run_named("deviations"));
  const plain_user user;
  if (!user.exists()) GTEST_SKIP() << no_right;
  user.enter(run.place.path());
  for (const auto& [name, bytes] : run.input) {
    put_files(run.place.path(), run.input);
    user.own(run.place.path());
    for (const auto& entry : std::filesystem::directory_iterator(run.place.path()))
      user.own(entry.path().string());
    std::filesystem::permissions(run.place / name, std::filesystem::perms::none);
    const child_end end = user.run_zeph(run.place.path());
    if (end.code == 0) { // a file that this run does not read
      std::filesystem::remove(run.place / name);
      EXPECT_EQ(user.run_zeph(run.place.path()).code, 0) << name;
      continue;
    }
    EXPECT_TRUE(end.code == 2 || end.code == 16) << name << end.code;
    EXPECT_NE(end.listing, "") << name;
  }
}

// The report of model fit reads py: one that may be written and not read ends the run before its first round.
TEST(samples_without_the_right_to_read_them, end_the_run_before_its_first_round) {
  prepared_run run(run_named("gaussian"));
  const plain_user user;
  if (!user.exists()) GTEST_SKIP() << no_right;
  user.enter(run.place.path());
  put_files(run.place.path(), run.input);
  std::ofstream(run.place / "py") << "";
  user.own(run.place.path());
  for (const auto& entry : std::filesystem::directory_iterator(run.place.path()))
    user.own(entry.path().string());
  std::filesystem::permissions(run.place / "py", std::filesystem::perms::owner_write);
  const child_end end = user.run_zeph(run.place.path());
  EXPECT_EQ(end.code, 16) << end.listing;
  EXPECT_NE(end.listing.find("Illegal input in py: read = open, legal: the file can be opened and read"),
            std::string::npos)
      << end.listing;
  EXPECT_EQ(run.place.read("status"), "Program QVAgib initializing\n");
}

// Each result in turn can't be opened, since a directory has its name.
TEST(a_result_whose_name_is_a_directory, is_named) {
  for (const char* kind : {"kept_samples", "mixture", "jump", "deviations", "predictions"}) {
    prepared_run run(run_named(kind));
    for (const auto& [name, bytes] : run.whole) {
      if (run.input.contains(name)) continue;
      put_files(run.place.path(), run.input);
      std::filesystem::create_directory(run.place / name);
      const child_end end = run_zeph(run.place.path());
      EXPECT_EQ(end.code, 16) << kind << name;
      const std::string told = file_named_in(end.listing);
      EXPECT_EQ(told, name) << kind << end.listing;
    }
  }
}

// Few handles: whatever file can't be opened is reported.
TEST(a_run_with_few_handles, names_a_file_that_it_can_not_open) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  prepared_run run(run_named("kept_samples"));
  for (rlim_t n = 3; n < 40; ++n) {
    put_files(run.place.path(), run.input);
    child_options with;
    with.handles = n;
    const child_end end = run_zeph(run.place.path(), with);
    if (end.code == 0) {
      EXPECT_GT(n, 5U);
      return;
    }
    if (end.code == 127) continue; // not even the libraries could be loaded
    EXPECT_TRUE(end.code == 16 || end.code == 2) << n << ": " << end.code;
    EXPECT_NE(end.listing, "") << n;
  }
  ADD_FAILURE() << "a run takes forty handles and more";
}

} // namespace
