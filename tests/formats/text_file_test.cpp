#include "formats/text_file.h"

#include "scratch_file.h"
#include "support/skip_reasons.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using zeph::text_reader;
using zeph::text_writer;
using zeph_test::scratch_file;

TEST(text_writer, open_empties_append_continues_new_refuses) {
  const scratch_file file("old\n");
  text_writer out;
  EXPECT_FALSE(out.open_new(file.path()));
  EXPECT_FALSE(out.is_open());
  EXPECT_EQ(file.read(), "old\n");

  ASSERT_TRUE(out.open_append(file.path()));
  EXPECT_TRUE(out.line("more"));
  EXPECT_TRUE(out.close());
  EXPECT_EQ(file.read(), "old\nmore\n");

  ASSERT_TRUE(out.open(file.path()));
  EXPECT_TRUE(out.line("first"));
  EXPECT_TRUE(out.line(""));
  EXPECT_TRUE(out.close());
  EXPECT_EQ(file.read(), "first\n\n");

  std::filesystem::remove(file.path());
  EXPECT_TRUE(out.open_new(file.path()));
}

TEST(text_writer, flush_shows_the_lines_and_the_destructor_closes) {
  const scratch_file file;
  {
    text_writer out;
    ASSERT_TRUE(out.open(file.path()));
    EXPECT_TRUE(out.line("a"));
    EXPECT_EQ(file.read(), "");
    EXPECT_TRUE(out.flush());
    EXPECT_EQ(file.read(), "a\n");
    EXPECT_TRUE(out.line("b"));
  }
  EXPECT_EQ(file.read(), "a\nb\n");
}

TEST(text_writer, writing_without_an_open_file_fails) {
  text_writer out;
  EXPECT_TRUE(out.close());
  EXPECT_FALSE(out.line("a"));
  EXPECT_FALSE(out.ok());
  EXPECT_FALSE(out.open("/no/such/directory/file"));
}

TEST(text_writer, a_full_disk_is_reported_at_the_flush_and_kept) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << zeph_test::no_dev_full;
  text_writer out;
  ASSERT_TRUE(out.open_append("/dev/full"));
  EXPECT_TRUE(out.line("a"));
  EXPECT_FALSE(out.flush());
  EXPECT_FALSE(out.line("b"));
  EXPECT_FALSE(out.ok());
  EXPECT_FALSE(out.close());
}

TEST(text_writer, a_full_disk_is_reported_by_a_line_that_fills_the_buffer) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << zeph_test::no_dev_full;
  text_writer out;
  ASSERT_TRUE(out.open_append("/dev/full"));
  EXPECT_FALSE(out.line(std::string(1000000, 'x')));
}

TEST(rewrite_line, leaves_exactly_one_line_whatever_was_there) {
  const scratch_file file("a line that is longer\nand another\n");
  ASSERT_TRUE(zeph::rewrite_line(file.path(), "short"));
  EXPECT_EQ(file.read(), "short\n");
  ASSERT_TRUE(zeph::rewrite_line(file.path(), "somewhat longer"));
  EXPECT_EQ(file.read(), "somewhat longer\n");
}

// Who reads while the line is written finds the old one or the new one, whatever their lengths.
TEST(rewrite_line, leaves_the_old_line_to_a_reader_when_the_new_one_has_another_length) {
  const scratch_file file;
  for (const char* const text : {"a long line", "short", "a longer one"}) {
    zeph::text_reader before;
    const std::string old = file.read();
    const bool was = before.open(file.path());
    ASSERT_TRUE(zeph::rewrite_line(file.path(), text));
    EXPECT_EQ(file.read(), std::string(text) + "\n");
    std::string line;
    EXPECT_EQ(was && before.line(line), !old.empty());
    EXPECT_EQ(line, old.substr(0, old.find('\n')));
  }
}

TEST(rewrite_line, makes_the_file_and_fails_where_it_can_t) {
  const scratch_file file;
  ASSERT_TRUE(zeph::rewrite_line(file.path(), ""));
  EXPECT_EQ(file.read(), "\n");
  EXPECT_FALSE(zeph::rewrite_line(file.directory() + "/missing/file", "x"));
  EXPECT_FALSE(zeph::rewrite_line("/dev/full", "x"));
}

TEST(text_reader, lines_come_without_their_ends) {
  const scratch_file file("one\n\ntwo \r\nlast");
  text_reader in;
  ASSERT_TRUE(in.open(file.path()));
  std::string text;
  for (const char* expected : {"one", "", "two ", "last"}) {
    ASSERT_TRUE(in.line(text));
    EXPECT_EQ(text, expected);
  }
  EXPECT_FALSE(in.line(text));
  EXPECT_EQ(text, "");
  in.rewind();
  ASSERT_TRUE(in.line(text));
  EXPECT_EQ(text, "one");
}

TEST(text_reader, a_file_that_ends_in_a_line_feed_has_no_line_after_it) {
  const scratch_file file("a\n");
  text_reader in;
  ASSERT_TRUE(in.open(file.path()));
  std::string text;
  EXPECT_TRUE(in.line(text));
  EXPECT_FALSE(in.line(text));
}

TEST(text_reader, lines_longer_than_the_buffer_are_whole) {
  const std::string longest(300000, 'x');
  const scratch_file file(longest + "\nb\n");
  text_reader in;
  ASSERT_TRUE(in.open(file.path()));
  std::string text;
  ASSERT_TRUE(in.line(text));
  EXPECT_EQ(text, longest);
  ASSERT_TRUE(in.line(text));
  EXPECT_EQ(text, "b");
}

TEST(text_reader, missing_file_does_not_open) {
  const scratch_file file;
  text_reader in;
  EXPECT_FALSE(in.open(file.path()));
  std::string text;
  EXPECT_FALSE(in.line(text));
}

TEST(text_writer, hands_its_lines_to_the_device) {
  const scratch_file file;
  text_writer out;
  EXPECT_TRUE(out.sync()); // nothing is open
  ASSERT_TRUE(out.open(file.path()));
  out.line("a");
  EXPECT_TRUE(out.sync());
  EXPECT_EQ(file.read(), "a\n");
}

TEST(text_writer, to_a_full_device_can_not_be_synced) {
  text_writer out;
  ASSERT_TRUE(out.open("/dev/full"));
  out.line("a");
  EXPECT_FALSE(out.sync());
  EXPECT_FALSE(out.ok());
}

TEST(cut_file, keeps_the_first_bytes) {
  const scratch_file file("abcdef");
  ASSERT_TRUE(zeph::cut_file(file.path(), 2));
  EXPECT_EQ(file.read(), "ab");
  EXPECT_FALSE(zeph::cut_file(file.directory() + "/other", 0));
  EXPECT_TRUE(zeph::sync_folder_of(file.path()));
  EXPECT_FALSE(zeph::sync_folder_of("/no/such/directory/file"));
}

TEST(byte_source, moves_to_a_place) {
  const scratch_file file("abcdef");
  zeph::byte_source in;
  EXPECT_FALSE(in.move_to(0));
  ASSERT_TRUE(in.open(file.path()));
  char two[2] = {};
  ASSERT_TRUE(in.move_to(3));
  ASSERT_EQ(in.read(two, 2), 2);
  EXPECT_EQ(std::string(two, 2), "de");
  EXPECT_FALSE(in.move_to(-1));
}

} // namespace
