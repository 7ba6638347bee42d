// Text that is not UTF-8. Byte sequences from the table of well-formed sequences of the Unicode standard
// (3-7).
#include "prepare/tables/text_encoding.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

TEST(text_encoding, knows_well_formed_utf8) {
  for (const char* good :
       {"", "abc", "\xC3\xB8", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
    EXPECT_TRUE(is_utf8(good)) << good;
  for (const char* bad : {"\xF8", "\xC3", "\xC0\x80", "\xE0\x9F\x80", "\xED\xA0\x80", "\xF0\x8F\x80\x80",
                          "\xF4\x90\x80\x80", "\x80",
                          "a\xE5"
                          "b"})
    EXPECT_FALSE(is_utf8(bad)) << bad;
}

TEST(text_encoding, lines_that_are_not_utf8_are_read_as_latin1_and_reported) {
  message_log log;
  EXPECT_EQ(utf8_content("id\nBj\xF8rn\nBj\xC3\xB8rn\nK\xE5re\r\n", "d.csv", log),
            "id\nBj\xC3\xB8rn\nBj\xC3\xB8rn\nK\xC3\xA5re\r\n");
  EXPECT_EQ(full_text(log), "d.csv:2: warning: not UTF-8; read as Latin-1 (2 in all, lines 2, 4)\n");
  message_log quiet;
  EXPECT_EQ(utf8_content("\xC3\xB8", "d.csv", quiet), "\xC3\xB8");
  const std::string wide("\xFF\xFEi\0d\0\n\0", 8); // UTF-16: no line of it is Latin-1
  EXPECT_EQ(utf8_content(wide, "d.csv", quiet), wide);
  EXPECT_TRUE(quiet.entries.empty());
}

TEST(text_encoding, the_files_of_a_model_may_differ) {
  const zeph_test::prepared_case c(
      "[data]\nfile = \"d.csv\"\n[trait.y]\nformula = \"1 + (1 | animal)\"\n[factor.animal]\npedigree = "
      "\"p.csv\"\n",
      {{"d.csv", "animal,y\nBj\xF8rn,1\nAda,2\nEva,4\n"},
       {"p.csv", "animal,sire,dam\nBj\xC3\xB8rn,0,0\nAda,Bj\xC3\xB8rn,0\nEva,0,0\n"}});
  EXPECT_TRUE(c.p.complete) << c.messages();
  EXPECT_TRUE(c.says("d.csv:2: warning: not UTF-8; read as Latin-1\n")) << c.messages();
}

} // namespace
} // namespace zeph::prepare
