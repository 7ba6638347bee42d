#include "control/state_file.h"

#include "formats/sha256.h"
#include "support/run_case.h"

#include <cstring>
#include <random>

namespace {

using namespace zeph;
using namespace zeph_test;

constexpr std::string_view fault = "ERROR - Illegal input in r_state: ";

// The small model of five calves as a chain whose state is saved.
struct saved_case : run_case {
  explicit saved_case(const std::string& words = "state 0\n") { directory.write("sampler", words); }
  void take_up() const { directory.write("r_state", directory.read("statelast")); }
  // A run that ends with this fault of r_state, and leaves the growing files alone.
  void refuse(const std::string& lines, const std::string& text) {
    const std::string samples = directory.read("gib.samples");
    EXPECT_EQ(go(lines), 16) << text;
    EXPECT_NE(this->text().find(std::string(fault) + text), std::string::npos) << this->text();
    EXPECT_TRUE(ends_with("\n\nZEPH terminates.\n"));
    EXPECT_TRUE(directory.read("gib.samples") == samples);
  }
};

std::string chain(int rounds) { return run_case::lines(3, 2, rounds, 1); }

// With a right sum again after a change.
std::string sealed(const std::string& state) {
  const std::string body = state.substr(0, state.size() - sha256::length);
  return body + sha256_of(body);
}

// The place of the elements of a block.
std::size_t elements_of(const std::string& state, const std::string& name) {
  std::string head(4, '\0');
  const auto length = static_cast<std::int32_t>(name.size());
  std::memcpy(head.data(), &length, 4);
  const std::size_t at = state.find(head + name);
  EXPECT_NE(at, std::string::npos) << name;
  return at + 4 + name.size() + 12;
}

template <class T> std::string with_element(std::string state, const std::string& name, T x) {
  std::memcpy(state.data() + elements_of(state, name), &x, sizeof x);
  return sealed(state);
}

TEST(state_file, is_written_at_the_end_and_continued_by_name) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0) << c.text();
  ASSERT_TRUE(c.directory.has("statelast"));
  EXPECT_FALSE(c.directory.has("statelast.part"));
  c.take_up();
  ASSERT_EQ(c.go(chain(9)), 0) << c.text();
  EXPECT_NE(c.text().find("The chain continues from r_state after round           6\nwith the seeds"),
            std::string::npos)
      << c.text();
  saved_case whole;
  ASSERT_EQ(whole.go(chain(9)), 0);
  EXPECT_TRUE(c.directory.read("gib.samples") == whole.directory.read("gib.samples"));
  EXPECT_TRUE(c.directory.read("statelast") == whole.directory.read("statelast"));
}

TEST(state_file, is_not_written_and_ignored_with_a_line_without_the_word) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  c.take_up();
  c.directory.remove("statelast");
  const std::string samples = c.directory.read("gib.samples");
  for (const char* words : {"# state\n", ""}) {
    c.directory.write("sampler", words);
    ASSERT_EQ(c.go(chain(4)), 0) << c.text();
    EXPECT_NE(c.text().find("\nr_state is ignored: no word state in the file sampler\n"), std::string::npos);
    EXPECT_FALSE(c.directory.has("statelast"));
    EXPECT_TRUE(c.directory.read("gib.samples") == samples);
  }
}

TEST(state_file, is_refused_beside_r_parm_and_oldsol) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  c.take_up();
  c.directory.write("r_parm", c.directory.read("gparlast"));
  c.directory.write("oldsol", c.directory.read("lastsol"));
  c.refuse(chain(4), "file = beside r_parm, legal: alone: all of the chain is taken from r_state");
  // one of them alone ends every run
  c.directory.remove("oldsol");
  EXPECT_EQ(c.go(chain(4)), 16);
}

TEST(state_file, is_refused_on_other_inputs_by_their_names) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  c.take_up();
  const auto another = [](const std::string& name) {
    return "SHA-256 of " + name + " = another, legal: the same " + name + " as the chain had";
  };
  c.refuse(run_case::lines(3, 3, 4, 1), another("directive file"));
  c.refuse(run_case::lines(2, 2, 4, 1), another("directive file"));
  c.directory.write("sampler", "state 0\nexact\n");
  c.refuse(chain(4), another("sampler"));
  c.directory.write("sampler", "# often\nstate 3\n"); // only its line state has changed
  EXPECT_EQ(c.go(chain(4)), 0) << c.text();
  c.directory.write("sampler", "state 0\n");
  const std::string relationship = c.directory.read("AINV1");
  write_elements(c.directory / "AINV1", {{1, 1, 2.0}});
  c.refuse(chain(4), another("AINV1"));
  c.directory.write("AINV1", relationship);
  c.reals[0][0] = 4.6F;
  c.refuse(chain(4), another("RCDATA_R"));
  c.reals[0][0] = 4.5F;
  c.integers[0][0] = 2;
  c.refuse(chain(4), another("RCDATA_I"));
  c.integers[0][0] = 1;
  c.m->RMAT(1).COV_MAT(1, 1) += 1.0;
  c.refuse(chain(4), another("MODINF"));
}

TEST(state_file, is_refused_when_fewer_rounds_are_asked_for_than_it_has) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  c.take_up();
  c.refuse(chain(3), "round = 6, legal: 0..5, the last round that the directive file asks for");
  EXPECT_EQ(c.go(chain(4)), 0); // none is left
}

TEST(state_file, is_refused_when_a_growing_file_is_not_what_it_was) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  c.take_up();
  const std::string samples = c.directory.read("gib.samples");
  c.directory.write("gib.samples", samples.substr(0, samples.size() - 1));
  c.refuse(chain(8), "length of gib.samples = " + std::to_string(samples.size() - 1) + ", legal: at least " +
                         std::to_string(samples.size()) + " bytes, as the chain has left it");
  std::string changed = samples;
  changed[samples.size() - 30] ^= 1;
  c.directory.write("gib.samples", changed);
  c.refuse(chain(8), "end of gib.samples = other bytes, legal: those that the chain has written");
  c.directory.remove("gib.samples");
  c.refuse(chain(8), "length of gib.samples = no file, legal: at least ");
  // rows after those of the state are cut
  c.directory.write("gib.samples", samples + "rows of a chain that was killed\n");
  ASSERT_EQ(c.go(chain(4)), 0) << c.text();
  EXPECT_TRUE(c.directory.read("gib.samples") == samples);
}

// Every state that is cut, and 2,000 with random changes: of one byte, of a few, bytes taken out or put in.
TEST(state_file, cut_or_changed_anywhere_is_refused) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  const std::string state = c.directory.read("statelast");
  std::ostringstream listing;
  reporting report(listing, c.directory.path());
  state_reader reader(report);
  const auto refused = [&](const std::string& bytes) {
    c.directory.write("r_state", bytes);
    try {
      reader.open(c.directory / "r_state");
    } catch (const run_stop& stop) {
      return stop.exit_code == exit_diagnosed;
    }
    return false;
  };
  for (std::size_t n = 0; n < state.size(); ++n) ASSERT_TRUE(refused(state.substr(0, n))) << n;
  std::mt19937 random(20261122);
  const auto below = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
  };
  for (int i = 0; i < 2000; ++i) {
    std::string changed = state;
    switch (i % 4) {
    case 0:
      changed[below(state.size())] ^= static_cast<char>(1 + below(255));
      break;
    case 1:
      for (int k = 0; k < 5; ++k) changed[below(state.size())] = static_cast<char>(below(256));
      break;
    case 2:
      changed.erase(below(state.size()), 1 + below(40));
      break;
    default:
      changed.insert(below(state.size()), 1 + below(40), static_cast<char>(below(256)));
    }
    if (changed != state) {
      ASSERT_TRUE(refused(changed)) << i;
    }
  }
  // and by the whole run
  for (std::size_t n = 0; n < state.size(); n += 211) {
    c.directory.write("r_state", state.substr(0, n));
    ASSERT_EQ(c.go(), 16) << n;
    EXPECT_NE(c.text().find(std::string(fault) + (n < 76 ? "head" : "checksum")), std::string::npos) << n;
  }
}

// A right sum over values that no chain can have.
TEST(state_file, of_impossible_values_is_refused_by_the_name_of_the_block) {
  saved_case c;
  ASSERT_EQ(c.go(chain(4)), 0);
  const std::string state = c.directory.read("statelast");
  const auto refused = [&](const std::string& bytes, const std::string& text) {
    c.directory.write("r_state", bytes);
    c.refuse(chain(4), text);
  };
  refused(with_element(state, "IRESG_M", std::int32_t{2}), "IRESG_M(1) = 2, legal: 1..1");
  refused(with_element(state, "model", std::int32_t{-1}), "model(1) = -1, legal: 1..1");
  refused(with_element(state, "round", std::int64_t{-1}), "round = -1, legal: 0..6");
  refused(with_element(state, "P_ROUND", INT64_MAX), "P_ROUND = 9223372036854775807, legal: 2..2");
  refused(with_element(state, "Marsaglia source U", 1.5), "Marsaglia source = no such state");
  refused(with_element(state, "Marsaglia source I97", std::int32_t{98}), "Marsaglia source = no such state");
  refused(with_element(state, "combined source", std::int32_t{33}), "combined source = no such state");
  refused(with_element(state, "analysis type", std::int32_t{4}), "analysis type = 4, legal: 3");
  std::string other = state;
  other[elements_of(state, "sol") - 8] = 9;
  refused(sealed(other), "sol = 9 elements of 8 bytes, legal: 10 elements of 8 bytes");
}

// A save goes through a file beside it; a failure is a fault of statelast.
TEST(state_file, that_can_not_be_written_ends_the_run_before_its_first_round) {
  saved_case c;
  std::filesystem::create_directory(c.directory / "statelast");
  EXPECT_EQ(c.go(chain(4)), 16);
  EXPECT_NE(c.text().find("ERROR - Illegal input in statelast: write = open"), std::string::npos) << c.text();
}

TEST(state_file, is_saved_when_its_time_has_come) {
  saved_case c("state 1\n");
  c.write(chain(4));
  run r(c.listing, c.directory.path());
  start_run(r);
  r.state.iround = 1;
  EXPECT_FALSE(round_ends_the_run(r, false));
  EXPECT_FALSE(c.directory.has("statelast"));
  r.saved.last_save -= std::chrono::seconds(59);
  EXPECT_FALSE(round_ends_the_run(r, false));
  EXPECT_FALSE(c.directory.has("statelast"));
  r.saved.last_save -= std::chrono::seconds(1);
  EXPECT_FALSE(round_ends_the_run(r, false));
  EXPECT_TRUE(c.directory.has("statelast"));
  c.directory.remove("statelast");
  EXPECT_FALSE(round_ends_the_run(r, false)); // the time begins again
  EXPECT_FALSE(c.directory.has("statelast"));
  c.directory.write("STOP", "");
  EXPECT_TRUE(round_ends_the_run(r, false));
  r.saved.wanted = false;
  EXPECT_FALSE(round_ends_the_run(r, false));
  EXPECT_TRUE(round_ends_the_run(r, true));
}

} // namespace
