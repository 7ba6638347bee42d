#include "input/categorical_traits.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/normal_draws.h"
#include "numerics/normal_functions.h"

#include <algorithm>

namespace zeph {
namespace {

constexpr double start_mean = 0.5; // of the start liabilities, between the fixed thresholds 0 and 1
constexpr std::int32_t beyond_codes = 1 << 30;

void allocate_stores(const model_records& m, const design_store& design, category_store& categories,
                     reporting& report) {
  allocate_rows(report, categories.catstr, "catstr", "CATSET", m.ncat);
  allocate(report, categories.catobs, "catobs", "CATSET", m.ncat, design.nobs);
  std::size_t c = 0;
  for (std::int32_t t = 1; t <= m.nt; ++t)
    if (m.MODEL(t).TRAIT_TYPE == trait_categorical) categories.catstr[c++].trait = t;
}

// Integer part of y + 1/2.
std::int32_t code_of(float y) {
  const double x = static_cast<double>(y) + 0.5;
  return std::fabs(x) < beyond_codes ? static_cast<std::int32_t>(x) : (x > 0 ? beyond_codes : -1);
}

void find_categories(const model_records& m, const design_store& design, category_store& categories,
                     std::int32_t c) {
  category_record& record = categories.catstr[static_cast<std::size_t>(c - 1)];
  for (std::int32_t r = 1; r <= design.nobs; ++r) {
    // the highest code found is the number of categories
    const bool present = trait_present(design.ISIT_M(r), record.trait, m.nt);
    categories.catobs(c, r) = present ? code_of(design.Y_M(record.trait, r)) : -1;
    record.ncat_t = std::max(record.ncat_t, categories.catobs(c, r));
  }
}

void allocate_record(category_record& record, reporting& report) {
  const std::int64_t n = record.ncat_t;
  allocate(report, record.thr, "catstr(i)%thr", "SETCAT", range(0, n));
  allocate(report, record.thrpostm, "catstr(i)%thrpostm", "SETCAT", range(0, n));
  allocate(report, record.thrpostsd, "catstr(i)%thrpostsd", "SETCAT", range(0, n));
  allocate(report, record.minu, "catstr(i)%minu", "SETCAT", n);
  allocate(report, record.maxu, "catstr(i)%maxu", "SETCAT", n);
}

[[noreturn]] void wrong_codes(std::int32_t trait, reporting& report) {
  say(report, free_row().text("Fail in category code for trait").i(trait).str());
  say(report, "Categories should be coded as 1, 2, ..., n");
  say(report, "Each category should have at least one record");
  stop_run(report, exit_diagnosed);
}

std::int64_t count_code(const category_store& categories, std::int32_t c, std::int32_t nobs,
                        std::int32_t code) {
  std::int64_t count = 0;
  for (std::int32_t r = 1; r <= nobs; ++r) count += categories.catobs(c, r) == code ? 1 : 0;
  return count;
}

// Prints the frequencies and sets thr(1..n-1) from them.
void count_categories(const model_records& m, const design_store& design, category_store& categories,
                      std::int32_t c, bool may_be_empty, reporting& report) {
  category_record& record = categories.catstr[static_cast<std::size_t>(c - 1)];
  const std::int32_t n = record.ncat_t;
  say(report, free_row().text("       Trait").i(record.trait).str());
  say(report, free_row().text("       Number of category").i(n).str());
  say(report, "       Catagory   Freq");
  std::int64_t total = 0, coded = 0; // present records; those with a code of at least 1
  for (std::int32_t r = 1; r <= design.nobs; ++r) {
    total += trait_present(design.ISIT_M(r), record.trait, m.nt) ? 1 : 0;
    coded += categories.catobs(c, r) >= 1 ? 1 : 0;
  }
  if (n < 2 || n > design.nobs) wrong_codes(record.trait, report);
  allocate_record(record, report);
  bool failed = coded != total;
  std::int64_t below = 0;
  for (std::int32_t g = 1; g <= n; ++g) {
    const std::int64_t count = count_code(categories, c, design.nobs, g);
    say(report, free_row().i(g).i(count).str());
    failed = failed || (count == 0 && !(may_be_empty && g > 1 && g < n));
    below += count;
    if (g == n) break;
    // start threshold k: Phi^-1 of the share of records in categories up to k
    double p = static_cast<double>(below) / static_cast<double>(total);
    record.thr(g) = NORMAL_INVCDF(report, p);
  }
  if (failed) wrong_codes(record.trait, report);
}

// Moves and stretches the thresholds; returns the variance of the start liabilities.
double scale_thresholds(category_record& record) {
  const std::int32_t n = record.ncat_t;
  record.thr(0) = -outer_limit;
  record.thr(n) = outer_limit;
  // thr -> (thr - thr(1)) / (thr(n-1) - thr(1)): the outer two at 0 and 1; the liabilities' s.d. is then s
  if (n > 2 && !(record.thr(n - 1) > record.thr(1))) // all inner categories are empty
    for (std::int32_t k = 1; k < n; ++k) record.thr(k) = k;
  const double a = record.thr(1), s = 1.0 / (record.thr(n - 1) - a);
  for (std::int32_t k = 0; k <= n; ++k) record.thr(k) = (record.thr(k) - a) * s;
  record.thr(1) = 0.0;
  record.thr(n - 1) = 1.0;
  return n == 2 ? 1.0 : s * s;
}

void start_liabilities(design_store& design, const category_store& categories, std::int32_t c,
                       double variance, combined_source& source) {
  const category_record& record = categories.catstr[static_cast<std::size_t>(c - 1)];
  for (std::int32_t r = 1; r <= design.nobs; ++r) {
    const std::int32_t g = categories.catobs(c, r);
    if (g < 1) continue;
    // one uniform a record, records ascending, within the record's category
    const double low = threshold_bound(record, g - 1), high = threshold_bound(record, g);
    const double x = GEN_TRUNC_NORMAL(source, low, high, start_mean, variance);
    design.Y_M(record.trait, r) = static_cast<float>(std::clamp(x, low, high));
  }
}

} // namespace

void SETCAT(const model_records& m, design_store& design, category_store& categories, combined_source& source,
            bool may_be_empty, reporting& report) {
  say(report, free_row().text("       Number of Category traits =").i(m.ncat).str());
  allocate_stores(m, design, categories, report);
  for (std::int32_t c = 1; c <= m.ncat; ++c) find_categories(m, design, categories, c);
  for (std::int32_t c = 1; c <= m.ncat; ++c) count_categories(m, design, categories, c, may_be_empty, report);
  for (std::int32_t c = 1; c <= m.ncat; ++c) {
    const double variance = scale_thresholds(categories.catstr[static_cast<std::size_t>(c - 1)]);
    start_liabilities(design, categories, c, variance, source);
  }
}

} // namespace zeph
