#include "input/sampler_store.h"

#include "listing/stops.h"
#include "numerics/storage_door.h"

#include <algorithm>
#include <new>

namespace zeph {
namespace {

// Allocates without a report: false when storage runs out.
template <class T, int N, class... A> bool taken(reporting& report, array<T, N>& x, A... sizes) {
  return door_opens(report) && x.take(sizes...);
}

bool take_store(reporting& report, inverse_wishart_store& x, std::int64_t order) {
  if (!taken(report, x.sscp_f, order, order) || !taken(report, x.W, order, order) ||
      !taken(report, x.W_INV, order, order) || !taken(report, x.SCALE, order))
    return false;
  x.SCALE.fill(1.0);
  return true;
}

void need_store(const sampler_store& s, std::string_view routine, reporting& report) {
  if (s.IW_STR.empty()) computation_impossible(report, routine, "no storage for IW_STR");
}

} // namespace

int ZEPHVAR_ALLOC(const model_records& m, sampler_store& s, reporting& report) {
  const std::size_t matrices =
      static_cast<std::size_t>(m.nramat) + static_cast<std::size_t>(m.n_groups_residual());
  s.IW_STR.clear();
  bool complete = door_opens(report);
  try {
    if (complete) s.IW_STR.resize(matrices);
  } catch (const std::bad_alloc&) {
    complete = false;
  }
  std::int32_t k = 0;
  for (inverse_wishart_store& x : s.IW_STR)
    complete = complete && take_store(report, x, ++k <= m.nramat ? m.RMAT(k).n_rc : m.nt);
  if (!complete) s.IW_STR.clear();
  return complete ? 0 : allocation_status;
}

inverse_wishart_store& IW_STR_of(sampler_store& s, std::int64_t f, std::string_view routine,
                                 reporting& report) {
  need_store(s, routine, report);
  return s.IW_STR[static_cast<std::size_t>(f - 1)];
}

const inverse_wishart_store& IW_STR_of(const sampler_store& s, std::int64_t f, std::string_view routine,
                                       reporting& report) {
  need_store(s, routine, report);
  return s.IW_STR[static_cast<std::size_t>(f - 1)];
}

void QVAgib_ALLOC(const model_records& m, sampler_store& s, reporting& report) {
  constexpr std::string_view routine = "QVAgib_ALLOC";
  s.nf = m.nt;
  for (const structure_record& r : m.RMAT_rows) s.nf = std::max(s.nf, r.n_rc);
  s.G = m.n_groups_residual();

  allocate(report, s.GIF, "GIF", routine, s.nf, s.nf, m.nramat);
  allocate(report, s.GDET, "GDET", routine, m.nramat);
  allocate(report, s.RDET, "RDET", routine, (std::int64_t{1} << m.nt) - 1); // one per non-empty set of traits
  // kept: COVSAMPM under the name of a routine of its own; nothing reads it
  allocate(report, s.COVSAMPM, "COVSAMPM", "SAMPMRES", m.nt, m.nt);
}

} // namespace zeph
