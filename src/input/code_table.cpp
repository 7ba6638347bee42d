#include "input/code_table.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <array>
#include <string>

namespace zeph {
namespace {

[[noreturn]] void failed_read(reporting& report, int code, std::int64_t i2, std::int32_t levels) {
  say(report, free_row().text("READ  CODE_TABLE - iostat = ").i(code).str());
  say(report);
  say(report);
  say(report, free_row().text("i2 : ").i(i2).str());
  say(report, free_row().text("nralev(k) : ").i(levels).str());
  stop_run(report, exit_diagnosed);
}

} // namespace

void rewind_codes(code_table& table, const reporting& report) {
  if (table.file.is_open())
    table.file.rewind();
  else
    table.file.open(path_of(report, "CODE_TABLE"));
  table.record = 0;
}

code_record next_code(code_table& table, std::int64_t i2, std::int32_t levels, reporting& report) {
  std::array<std::int32_t, 6> items{};
  table.file.next();
  table.file.take(items.data(), 6);
  if (table.file.code() != 0) failed_read(report, table.file.code(), i2, levels);
  ++table.record;
  const code_record found{items[1], items[2], items[3]};
  if (found.level < 1 || found.level > levels)
    illegal_input(report, "CODE_TABLE", "level", {table.record}, std::to_string(found.level),
                  "1.." + std::to_string(levels));
  return found;
}

void skip_codes(code_table& table, std::int32_t levels, reporting& report) {
  for (std::int32_t level = 1; level <= levels; ++level) next_code(table, level, levels, report);
}

void check_codes(const model_records& m, reporting& report) {
  code_table table;
  rewind_codes(table, report);
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j) skip_codes(table, m.NLEV(i, j), report);
  for (std::int32_t k = 1; k <= m.nramat; ++k) skip_codes(table, m.NRALEV(k), report);
}

} // namespace zeph
