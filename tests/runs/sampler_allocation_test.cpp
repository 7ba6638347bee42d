// A counting allocator: a round of the sampler asks for no storage once the first
// rounds have made its work areas, with or without a sample.
#include "gibbs/residuals/trait_deviations.h"
#include "gibbs/scan/gibscan.h"
#include "runs/small_herd.h"
#include "support/skip_reasons.h"

#include <atomic>

namespace {

std::atomic<bool> counting{false};
std::atomic<long> requests{0};

[[maybe_unused]] void count_request() {
  if (counting.load(std::memory_order_relaxed)) requests.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

// Under a sanitizer the allocator belongs to it, and nothing is counted.
#if defined(__SANITIZE_ADDRESS__)
#define ZEPH_TEST_OWN_ALLOCATOR 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZEPH_TEST_OWN_ALLOCATOR 0
#endif
#endif
#ifndef ZEPH_TEST_OWN_ALLOCATOR
#define ZEPH_TEST_OWN_ALLOCATOR 1
#endif

#if ZEPH_TEST_OWN_ALLOCATOR
// The C library's own allocator under its second name; operator new comes here too.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
  count_request();
  return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) {
  count_request();
  return __libc_calloc(n, size);
}
void* realloc(void* old, std::size_t size) {
  count_request();
  return __libc_realloc(old, size);
}
}
#endif

namespace {

using namespace zeph_test;

// `size` families of ten animals, the progeny of two founders and of each other,
// and twice as many records; every fifth record misses a trait.
struct herd_of_size {
  explicit herd_of_size(int size, const std::string& analysis, const char* tables = plain_tables) {
    std::string pedigree = "animal,sire,dam\n", data = "animal,sex,pen,group,y1,y2\n";
    for (int a = 1; a <= 10 * size; ++a) { // sires are odd and dams even
      const int sire = a - 1 - a % 2, dam = a - 1 - (a - 1) % 2;
      pedigree += std::to_string(a) + "," +
                  (a % 10 > 2 || a % 10 == 0 ? std::to_string(sire) + "," + std::to_string(dam) : "0,0") +
                  "\n";
    }
    for (int r = 0; r < 20 * size; ++r)
      data += std::to_string(1 + r % (10 * size)) + "," + (r % 3 == 0 ? "M," : "F,") +
              std::to_string(1 + r % (3 * size)) + "," + (r % 7 < 3 ? "a," : "b,") +
              std::to_string(10 + r * r % 17) + "," + (r % 5 == 4 ? "NA" : std::to_string(30 + r * r % 13)) +
              "\n";
    directory.write("data.csv", data);
    directory.write("pedigree.csv", pedigree);
    directory.write("model.toml",
                    "[data]\nfile = \"data.csv\"\n[keep]\nsolutions = true\n[run]\nanalysis = \"" + analysis +
                        "\"\nburnin = 0\nrounds = 1000\ninterval = 10\nseeds = [3, 4]\n" + tables);
    zeph::prepare::message_log log;
    const auto d = zeph::prepare::read_description(directory / "model.toml", log);
    const auto p = zeph::prepare::assemble_model(d, {}, log);
    EXPECT_EQ(zeph::prepare::exit_code(log), 0) << zeph::prepare::full_text(log);
    EXPECT_TRUE(zeph::prepare::write_work_directory(d, p, directory / "work/", "").ok);
  }
  static constexpr const char* plain_tables = R"toml([trait.y1]
formula = "1 + sex + (1 | animal) + (1 | pen)"
[trait.y2]
formula = "1 + (1 | animal) + (1 | pen)"
[factor.animal]
pedigree = "pedigree.csv"
prior_df = 8
[factor.pen]
prior_df = 8
[residual]
groups = "group"
prior_df = 8
)toml";
  // Solutions of the pens as a covariable, and deviations with progeny.
  static constexpr const char* further_tables = R"toml([trait.y1]
formula = "1 + sex + (1 | animal) + (1 | pen)"
[trait.y2]
formula = "1 + level + (1 | animal)"
[covariable.level]
solution = "y1.pen"
[factor.animal]
pedigree = "pedigree.csv"
prior_df = 8
deviations = "progeny"
[factor.pen]
prior_df = 8
[residual]
groups = "group"
prior_df = 8
)toml";
  scratch_directory directory;
};

// Requests of rounds 115 (no sample) and 120 (the second sample) of a started chain.
std::pair<long, long> requests_of_rounds(const herd_of_size& herd) {
  std::ostringstream listing;
  zeph::run run(listing, herd.directory / "work/");
  zeph::start_run(run);
  zeph::scan_records records = zeph::records_of(run);
  std::pair<long, long> out{-1, -1};
  for (run.state.iround = 101; run.state.iround <= 120; ++run.state.iround) {
    requests = 0;
    counting = run.state.iround == 115 || run.state.iround == 120;
    zeph::GIBSCAN(records, run.asked, run.state, run.counts, run.files);
    if (run.deviations.factor > 0) zeph::TD_PTD(records, run.asked, run.state, run.deviations);
    counting = false;
    if (run.state.iround == 115) out.first = requests;
    if (run.state.iround == 120) out.second = requests;
  }
  return out;
}

TEST(one_round_of_the_sampler, allocates_nothing) {
  if (ZEPH_TEST_OWN_ALLOCATOR == 0) GTEST_SKIP() << zeph_test::sanitizer_build;
  for (const char* analysis : {"predict", "gibbs"}) {
    for (const int size : {2, 20}) {
      const auto [plain, sampled] = requests_of_rounds(herd_of_size(size, analysis));
      EXPECT_EQ(plain, 0) << analysis << size;
      EXPECT_EQ(sampled, 0) << analysis << size;
      const auto [two_stages, with_sample] =
          requests_of_rounds(herd_of_size(size, analysis, herd_of_size::further_tables));
      EXPECT_EQ(two_stages, 0) << analysis << size;
      EXPECT_EQ(with_sample, 0) << analysis << size;
    }
  }
}

TEST(the_counting_allocator, sees_requests_of_both_languages) {
  if (ZEPH_TEST_OWN_ALLOCATOR == 0) GTEST_SKIP() << zeph_test::sanitizer_build;
  requests = 0;
  counting = true;
  std::vector<double>* x = new std::vector<double>(1000);
  void* volatile y = std::malloc(10);
  counting = false;
  std::free(y);
  delete x;
  EXPECT_EQ(requests, 3);
}

} // namespace
