// The streams of the Marsaglia source over 10^8 draws, against one number at a time.
#include "numerics/normal_draws.h"
#include "numerics/plain_ranmar.h"
#include "numerics/stops.h"

#include <gtest/gtest.h>

#include <vector>

namespace zeph {
namespace {

constexpr std::int64_t length = 100000000;

// Draws in pieces of 1 to 10006; how many of `length` differ from the plain ones.
template <class fill, class plain> std::int64_t differences(fill pieces, plain one) {
  std::vector<double> x(10007);
  std::int64_t wrong = 0;
  for (std::int64_t drawn = 0, n = 1; drawn < length; drawn += n, n = n * 3 % 10007) {
    pieces(x.data(), n);
    for (std::int64_t i = 0; i < n; ++i) wrong += x[static_cast<std::size_t>(i)] != one();
  }
  return wrong;
}

struct both : kept_listing {
  marsaglia_source ahead{report};
  zeph_test::plain_ranmar plain{start(ahead)};
  static marsaglia_state start(marsaglia_source& source) {
    RMARIN(source, 31328, 30081);
    return ranmar_state(source);
  }
};

TEST(ranmar_fill, gives_100_million_uniforms_of_the_published_generator) {
  both s;
  EXPECT_EQ(
      differences([&](double* x, std::int64_t n) { ranmar_fill(s.ahead, x, n); }, [&] { return s.plain(); }),
      0);
  EXPECT_GT(s.plain.zeros, 0); // about 6 of them
  EXPECT_TRUE(zeph_test::same_state(ranmar_state(s.ahead), s.plain));
}

TEST(ranmar_snorms, gives_100_million_normals_of_the_published_algorithm) {
  both s;
  EXPECT_EQ(differences([&](double* x, std::int64_t n) { ranmar_snorms(s.ahead, x, n); },
                        [&] { return fl5_normal<double>(s.plain); }),
            0);
  EXPECT_TRUE(zeph_test::same_state(ranmar_state(s.ahead), s.plain));
}

TEST(ranmar_snorm, gives_100_million_normals_of_the_published_algorithm) {
  both s;
  const auto by_one = [&](double* x, std::int64_t n) {
    for (std::int64_t i = 0; i < n; ++i) x[i] = ranmar_snorm(s.ahead);
  };
  EXPECT_EQ(differences(by_one, [&] { return fl5_normal<double>(s.plain); }), 0);
  EXPECT_TRUE(zeph_test::same_state(ranmar_state(s.ahead), s.plain));
}

} // namespace
} // namespace zeph
