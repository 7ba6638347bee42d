// A chain from given seeds leaves the same bytes in every build: release, bounds
// checks, sanitizers, either compiler. Expectations: tests/data/pinned.
#include "control/run_driver.h"
#include "support/places.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using zeph_test::bytes_of;
using zeph_test::scratch_directory;

const std::string data = zeph_test::source_folder() + "/tests/data/";

TEST(pinned_chain, leaves_the_same_samples_in_every_build) {
  const scratch_directory directory;
  directory.take_files_of(data + "workdirs/three3_t3");
  std::ostringstream listing;
  zeph::run r(listing, directory.path());
  ASSERT_EQ(zeph::exit_code_of_run(r), 0) << listing.str();
  for (const std::string file : {"gib.samples", "py", "gparout"}) {
    const std::string expected = bytes_of(data + "pinned/three3_t3/" + file);
    ASSERT_FALSE(expected.empty()) << file;
    EXPECT_EQ(directory.read(file), expected) << file;
  }
}

} // namespace
