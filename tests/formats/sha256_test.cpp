// Examples of FIPS 180-4
// (https://csrc.nist.gov/projects/cryptographic-standards-and-guidelines/example-values) and the long message
// of FIPS 180-2, appendix B.3.
#include "formats/sha256.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph;

TEST(sha256_of, gives_the_published_examples) {
  EXPECT_EQ(sha256_of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha256_of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha256_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(sha256_of(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// The padding needs a second block from 56 bytes on.
TEST(sha256_of, differs_for_every_length_around_a_block) {
  std::vector<std::string> sums;
  for (std::size_t n = 54; n < 66; ++n) sums.push_back(sha256_of(std::string(n, 'x')));
  std::sort(sums.begin(), sums.end());
  EXPECT_EQ(std::unique(sums.begin(), sums.end()), sums.end());
}

TEST(print_of_file, is_that_of_its_bytes_and_fails_without_a_file) {
  const zeph_test::scratch_directory place;
  const std::string bytes(2500000, 'q'); // more than two pieces
  place.write("data", bytes);
  file_print print;
  ASSERT_TRUE(print_of_file(place / "data", print));
  EXPECT_EQ(print.bytes, 2500000);
  EXPECT_EQ(print.sha256, sha256_of(bytes));
  EXPECT_FALSE(print_of_file(place / "absent", print));
}

} // namespace
