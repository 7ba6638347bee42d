#include "jump/pedigree_order.h"

#include "listing/stops.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zeph {
namespace {

constexpr double vanished = 1e-10; // share of the diagonals: a link that eliminations have cancelled

// Element between a level and another one, by the place of the other in the order.
struct link {
  std::int32_t place;
  double val;
};

// Places descending; the parts of an element that is there in several become their sum.
void sort_and_add_up(std::vector<link>& row) {
  std::stable_sort(row.begin(), row.end(), [](const link& a, const link& b) { return a.place > b.place; });
  std::size_t n = 0;
  for (const link& part : row) {
    if (n > 0 && row[n - 1].place == part.place)
      row[n - 1].val += part.val;
    else
      row[n++] = part;
  }
  row.resize(n);
}

// links[x]: elements between the level at place x and those eliminated after it,
// places descending, each once.
std::vector<std::vector<link>> links_by_place(const relationship_rows& rows,
                                              const std::vector<std::int32_t>& settled) {
  std::vector<std::int32_t> place(settled.size());
  for (std::size_t x = 0; x < settled.size(); ++x)
    place[static_cast<std::size_t>(settled[x] - 1)] = static_cast<std::int32_t>(x);
  std::vector<std::vector<link>> links(settled.size());
  for (std::size_t x = 0; x < settled.size(); ++x) {
    const std::int32_t level = settled[x];
    for (std::int64_t node = rows.start(level); node < rows.start(level + 1); ++node) {
      const std::int32_t other = place[static_cast<std::size_t>(rows.col(node) - 1)];
      if (static_cast<std::size_t>(other) < x) links[x].push_back({other, rows.val(node)});
    }
    sort_and_add_up(links[x]);
  }
  return links;
}

// The element between the levels at places x > y; made when there is none.
double& element_of(std::vector<link>& row, std::int32_t y) {
  const auto at =
      std::lower_bound(row.begin(), row.end(), y, [](const link& a, std::int32_t p) { return a.place > p; });
  if (at != row.end() && at->place == y) return at->val;
  return row.insert(at, {y, 0.0})->val;
}

} // namespace

std::vector<std::int32_t> settle_levels(const mat<std::int32_t>& pedmat, std::int32_t n,
                                        std::string_view name, reporting& report) {
  std::vector<std::int32_t> settled;
  std::vector<logical> done(static_cast<std::size_t>(n) + 1, 0);
  settled.reserve(static_cast<std::size_t>(n));
  done[0] = 1; // an unknown parent
  const auto parent_done = [&](std::int32_t parent, std::int32_t level) {
    return done[static_cast<std::size_t>(std::abs(pedmat(parent, level)))] != 0;
  };
  std::vector<std::int32_t> waiting(static_cast<std::size_t>(n)), later;
  for (std::int32_t level = 1; level <= n; ++level) waiting[static_cast<std::size_t>(level - 1)] = level;
  while (!waiting.empty()) {
    later.clear();
    for (const std::int32_t level : waiting) {
      if (!parent_done(1, level) || !parent_done(2, level)) {
        later.push_back(level);
        continue;
      }
      settled.push_back(level);
      done[static_cast<std::size_t>(level)] = 1;
    }
    // a walk that settles nobody: a level is its own ancestor
    if (later.size() == waiting.size())
      illegal_input(report, name, "level", {}, fmt::format("{}", later.front()),
                    "no level among its own ancestors");
    waiting.swap(later);
  }
  return settled;
}

double log_det_relationship(const relationship_rows& rows, const std::vector<std::int32_t>& settled,
                            std::string_view name, reporting& report) {
  std::vector<std::vector<link>> links = links_by_place(rows, settled);
  std::vector<double> diag(settled.size());
  for (std::size_t x = 0; x < settled.size(); ++x) diag[x] = rows.diag(settled[x]);
  double sum = 0;
  // Gaussian elimination of the youngest level first: with d its pivot and a its links to older levels the
  // rest loses a a'/d. In a pedigree the links that this makes are cancelled by its own elements.
  for (std::size_t x = settled.size(); x-- > 0;) {
    const double pivot = diag[x];
    if (!(pivot > 0))
      illegal_input(report, name, "pivot of level", {settled[x]}, fmt::format("{:g}", pivot), "above 0");
    sum += std::log(pivot);
    std::vector<link> own = std::move(links[x]);
    std::erase_if(own, [&](const link& a) {
      return std::fabs(a.val) <=
             vanished * std::sqrt(pivot * std::fabs(diag[static_cast<std::size_t>(a.place)]));
    });
    for (std::size_t i = 0; i < own.size(); ++i) {
      diag[static_cast<std::size_t>(own[i].place)] -= own[i].val * own[i].val / pivot;
      for (std::size_t j = i + 1; j < own.size(); ++j)
        element_of(links[static_cast<std::size_t>(own[i].place)], own[j].place) -=
            own[i].val * own[j].val / pivot;
    }
  }
  return -sum;
}

} // namespace zeph
