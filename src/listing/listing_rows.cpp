// kept: some texts are misspelt and stay so, since readers search for them as they are: "Kode", "More then",
// "calle with", "graceously", "switchning ocure", "occure", "Retur status", "messaged", "wth exit",
// "infomation(s)", "filen", "reccords", "obsevations", "catagorical", "Catagory", "cencored",
// "the once used", "file wiht".
#include "listing/listing_rows.h"

#include "formats/column_format.h"
#include "listing/reporting.h"

#include <iostream>

namespace zeph {
namespace {

constexpr std::string_view package_title = "Ostrelo Linear Effects Workbench";

} // namespace

void say(reporting& report, std::string_view line) {
  *report.listing << line << '\n' << std::flush;
  // a listing that has failed once: the line is not lost
  if (!report.listing->good()) std::cerr << line << '\n' << std::flush;
}

void say_lines(reporting& report, std::initializer_list<std::string_view> lines) {
  for (const std::string_view text : lines) say(report, text);
}

void say_count(reporting& report, std::string_view label, std::int64_t value) {
  say(report, column_line().X(1).T(1).A(label, 60).I(value, 11).str());
}

void say_label(reporting& report, std::string_view label) {
  say(report, column_line().X(1).T(1).A(label, 60).str());
}

void say_real(reporting& report, std::string_view label, double value) {
  say(report, column_line().X(1).T(1).A(label, 60).F(value, 18, 8).str());
}

void banner(reporting& report) {
  const std::array<std::int32_t, 6>& stamp = report.run_stamp;
  column_line line;
  // 1 in column 1 is the page eject of a line printer; columns 2, 30 and 77 as in the header
  if (report.nlines != 0) line.A("1", 1);
  line.T(2).A(report.program_name, 8).T(30).A(package_title, static_cast<int>(package_title.size()));
  line.T(77).X(1).I(stamp[0], 4).A("-", 1).I(stamp[1], 2, 2).A("-", 1).I(stamp[2], 4, 4).A(" - ", 3);
  line.I(stamp[3], 2, 2).A(":", 1).I(stamp[4], 2, 2).A(":", 1).I(stamp[5], 2, 2);
  say(report, line.str());
  say(report);
  report.nlines = 2;
}

} // namespace zeph
