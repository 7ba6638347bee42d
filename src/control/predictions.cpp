#include "control/predictions.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

namespace zeph {
namespace {

constexpr std::string_view file_name = "ytopredict";

// The next pair; false at the end of the file.
bool next_pair(free_reader& file, std::int64_t row, prediction& y, reporting& report) {
  file.begin_read();
  int code = file.integer(y.record);
  const bool first = code != 0;
  if (code == 0) code = file.integer(y.trait);
  if (code == free_reader::bad_token)
    illegal_input(report, file_name, first ? "record" : "trait", {row}, "a text", "integer");
  file.end_read();
  if (code == free_reader::read_fault) read_fault(report, file_name);
  return code == 0;
}

} // namespace

void read_ytopredict(const model_records& m, prediction_store& predictions, reporting& report) {
  free_reader file;
  if (!file.open(path_of(report, file_name)))
    illegal_input(report, file_name, "file", {}, "unreadable", "pairs of record and trait");
  prediction pair;
  std::int32_t npred = 0;
  while (next_pair(file, npred + 1, pair, report)) ++npred;
  say(report);
  say_count(report, "No of records to predict .......................", npred);
  allocate_rows(report, predictions.YPRED, "YPRED", "ZEPH", npred);

  file.rewind();
  std::int32_t illegal = 0, n = 0;
  for (prediction& y : predictions.YPRED) {
    next_pair(file, ++n, y, report);
    if (y.record >= 1 && y.record <= m.nobs() && y.trait >= 1 && y.trait <= m.nt) continue;
    say(report, free_row().text("Illegal record to be predicted").i(y.record).i(y.trait).str());
    ++illegal;
  }
  if (illegal > 0) zeph_terminates(report);
}

} // namespace zeph
