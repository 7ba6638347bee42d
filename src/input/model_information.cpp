#include "input/model_information.h"

#include "formats/free_format.h"
#include "formats/sequential_file.h"
#include "input/modinf_items.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <string>
#include <type_traits>

namespace zeph {

namespace {

constexpr int end_of_file = -1; // code of a record read: the end, or a broken frame

// Version and release of the input program that this reader goes with.
constexpr std::string_view modinf_version = "6";
constexpr std::string_view modinf_release = "5.6";

// A text row as the allocation door sees it: texts are created blank, in
// their full width.
struct blank_texts {
  text_row& row;
  std::int64_t width;
  void clear() { row.clear(); }
  void resize(std::size_t n) { row.cells.assign(n, std::string(static_cast<std::size_t>(width), ' ')); }
};

// Walks the list and allocates; takes the items from the file, if there is one.
struct modinf_source {
  reporting& report;
  sequential_reader* file;

  template <class... Items> bool record(std::string_view label, Items&&... items) {
    if (file == nullptr) return true;
    // kept: a record too short for its items is reported with its label, and reading continues
    if (file->next() == 0) (take(items), ...);
    if (file->code() == end_of_file) {
      say(report, "  Unexpected end of file on model information");
      say(report, " dataset (unit=53).");
      return false;
    }
    if (file->code() != 0 && !label.empty()) say(report, free_row().text(label).i(file->code()).str());
    return true;
  }

  bool version(const model_records& m) {
    if (file == nullptr || (m.qv_version == modinf_version && m.qv_release == modinf_release)) return true;
    say_wrong_version(m);
    return false;
  }

  bool size(std::string_view item, std::initializer_list<std::int64_t> indices, std::int64_t value,
            std::int64_t low, std::int64_t high) {
    if (value < low || value > high)
      illegal_input(report, "MODINF", item, indices, std::to_string(value), legal_range(low, high));
    return true;
  }

  template <class T, int N, class... A>
  bool array(zeph::array<T, N>& x, std::string_view variable, std::string_view routine, A... axes) {
    allocate(report, x, variable, routine, axes...);
    return true;
  }

  bool texts(text_row& row, std::int64_t width, std::string_view variable, std::string_view routine,
             std::int64_t count) {
    blank_texts blanks{row, width};
    allocate_rows(report, blanks, variable, routine, count);
    return true;
  }

  // Elements that are there already, in the right number, stay.
  template <class Rows>
  bool rows(Rows& elements, std::string_view variable, std::string_view routine, std::int64_t count) {
    if (static_cast<std::int64_t>(elements.size()) != count)
      allocate_rows(report, elements, variable, routine, count);
    return true;
  }

private:
  void say_wrong_version(const model_records& m) {
    say(report, " ");
    say(report, free_row()
                    .text("The file with model information (MODINF) ")
                    .text("has not been created by the version of QVA1")
                    .str());
    say(report, "corresponding to the version of this program");
    say(report, free_row().text("Version of qva1    : ").text(m.qv_version).str());
    say(report, free_row().text("Release of qva1    : ").text(m.qv_release).str());
    say(report, program_row("Version of ", modinf_version));
    say(report, program_row("Release of ", modinf_release));
    say(report, " ");
    say(report, "Rerun qva1 with the right version");
  }
  std::string program_row(std::string_view label, std::string_view value) const {
    return free_row().text(label).text(report.program_name).text(": ").text(value).str();
  }

  template <class T> void take(T& x) { file->take(x); }
  template <class T, int N> void take(zeph::array<T, N>& x) { file->take(x.data(), x.size()); }
  template <class T, std::size_t N> void take(std::array<T, N>& x) {
    file->take(x.data(), static_cast<std::int64_t>(N));
  }
  template <class Text> void take(text_item<Text>& x) {
    if constexpr (std::is_same_v<Text, text_row>) {
      for (std::string& cell : x.value.cells) file->take_text(cell, x.width);
    } else {
      file->take_text(x.value, x.width);
    }
  }
};

} // namespace

std::string legal_range(std::int64_t low, std::int64_t high) {
  if (low == high) return std::to_string(low);
  if (high >= any_size - 1) return ">= " + std::to_string(low);
  return std::to_string(low) + ".." + std::to_string(high);
}

int QVAMRD(model_records& m, reporting& report) {
  sequential_reader file;
  if (!file.open(path_of(report, "MODINF")))
    illegal_input(report, "MODINF", "open", {}, "failed", "the file can be opened and read");
  modinf_source walker{report, &file};
  const bool whole = walk_modinf(walker, m);
  report.run_stamp = m.run_stamp;
  return whole ? 0 : 1;
}

void allocate_modinf(model_records& m, reporting& report) {
  modinf_source walker{report, nullptr};
  walk_modinf(walker, m);
}

} // namespace zeph
