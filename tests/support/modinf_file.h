// A built model as a file MODINF.
#pragma once

#include "input/modinf_items.h"
#include "input/modinf_writer.h"
#include "support/model_builder.h"

#include <gtest/gtest.h>

#include <string>

namespace zeph_test {

// Takes every array of MODINF that a built model leaves out.
struct array_completer {
  template <class... Items> bool record(std::string_view, const Items&...) { return true; }
  bool version(const model_records&) { return true; }
  bool size(std::string_view, std::initializer_list<std::int64_t>, std::int64_t, std::int64_t, std::int64_t) {
    return true;
  }
  template <class T, int N, class... A>
  bool array(zeph::array<T, N>& x, std::string_view, std::string_view, A... axes) {
    const axis wanted[N] = {axis(axes)...};
    bool same = x.allocated();
    for (int d = 0; d < N; ++d)
      same = same && x.extent(d + 1) == wanted[d].count && x.low(d + 1) == wanted[d].low;
    return same || x.take(axes...);
  }
  bool texts(text_row& row, std::int64_t width, std::string_view, std::string_view, std::int64_t count) {
    row.cells.resize(static_cast<std::size_t>(count), std::string(static_cast<std::size_t>(width), ' '));
    return true;
  }
  template <class Rows> bool rows(const Rows&, std::string_view, std::string_view, std::int64_t) {
    return true;
  }
};

inline void write_model(model_records& m, const std::string& path) {
  m.qv_version = "6";
  m.qv_release = "5.6";
  m.run_stamp = {20, 11, 2026, 23, 14, 5};
  m.mi_text[0] = "dir";
  array_completer completer;
  ASSERT_TRUE(walk_modinf(completer, m));
  std::string fault;
  ASSERT_TRUE(write_modinf(m, path, fault)) << fault;
}

} // namespace zeph_test
