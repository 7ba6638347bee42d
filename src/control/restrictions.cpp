#include "control/restrictions.h"

#include "formats/column_format.h"
#include "input/structures.h"
#include "listing/listing_rows.h"

#include <vector>

namespace zeph {
namespace {

struct restricted_equation {
  std::int32_t trait, equation;
};

// First pedigree factor with phantom groups and without restrictions of its
// own for them; 0: none.
std::int32_t group_factor(const model_records& m) {
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    if (is_pedigree(m.RMAT(k)) && m.RMAT(k).r36 % 10 == 6 && !m.RMAT(k).r216) return k;
  return 0;
}

bool has_trait(const structure_record& factor, std::int32_t trait) {
  for (std::int32_t j = 1; j <= factor.n_t; ++j)
    if (factor.TRAIT_NO(j) == trait) return true;
  return false;
}

std::vector<restricted_equation> last_levels(const model_records& m) {
  std::vector<restricted_equation> list;
  const std::int32_t marked = group_factor(m);
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    // the last level of every effect but the trait's first, which carries the mean; of the first one too
    // where phantom parent groups do so
    bool spared = marked != 0 && has_trait(m.RMAT(marked), i);
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j) {
      if (!m.MODEL(i).INTERCEPT(j) || m.NLEV(i, j) < 1) continue;
      if (spared) list.push_back({i, m.NBEGF(i, j) + m.NLEV(i, j)});
      spared = true;
    }
  }
  return list;
}

} // namespace

void impose_restrictions(const model_records& m, const directives& asked, sampler_store& s,
                         reporting& report) {
  s.n_IREST = 0;
  if (samples_matrices(asked.analysis_type)) {
    say(report);
    say_label(report, "It has been specified that restrictions should be  ");
    say_label(report, "imposed, but this do not work for analyse type > 2 ");
    say_label(report, "The  analysis continues without restrictions       ");
    say(report);
    return;
  }
  const std::vector<restricted_equation> list = last_levels(m);
  const std::int32_t count = static_cast<std::int32_t>(list.size());
  say(report);
  say_count(report, "No of restrictions imposed ........................", count);
  say(report);
  allocate(report, s.IREST, "IREST", "ZEPH", count);
  for (const restricted_equation& r : list) {
    s.IREST(++s.n_IREST) = r.equation;
    say(report, column_line().X(30).I(r.trait, 3).I(r.equation, 11).str());
  }
}

} // namespace zeph
