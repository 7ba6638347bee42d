#include "input/modinf_writer.h"

#include "formats/sequential_file.h"
#include "input/modinf_items.h"

#include <type_traits>

namespace zeph {

namespace {

// Walks the list and puts each record; the first thing that does not fit ends it.
struct modinf_sink {
  sequential_writer& file;
  std::string& fault;

  template <class... Items> bool record(std::string_view, const Items&... items) {
    file.begin();
    (put(items), ...);
    return fits(file.end(), "write");
  }
  bool version(const model_records&) { return true; }

  bool size(std::string_view item, std::initializer_list<std::int64_t>, std::int64_t value, std::int64_t low,
            std::int64_t high) {
    return fits(low <= value && value <= high, item);
  }
  template <class T, int N, class... A>
  bool array(const zeph::array<T, N>& x, std::string_view variable, std::string_view, A... axes) {
    // each axis with its lower bound; an array without elements fits whatever its axes
    const axis wanted[N] = {axis(axes)...};
    std::int64_t count = 1;
    bool same = true;
    for (int d = 0; d < N; ++d) {
      if (__builtin_mul_overflow(count, wanted[d].count, &count)) return fits(false, variable);
      same = same && x.extent(d + 1) == wanted[d].count && x.low(d + 1) == wanted[d].low;
    }
    return fits(x.size() == count && (same || count == 0), variable);
  }
  bool texts(const text_row& row, std::int64_t, std::string_view variable, std::string_view,
             std::int64_t count) {
    return fits(static_cast<std::int64_t>(row.cells.size()) == count, variable);
  }
  template <class Rows>
  bool rows(const Rows& elements, std::string_view variable, std::string_view, std::int64_t count) {
    return fits(static_cast<std::int64_t>(elements.size()) == count, variable);
  }

private:
  bool fits(bool well, std::string_view item) {
    if (!well) fault = item;
    return well;
  }

  template <class T> void put(const T& x) { file.put(x); }
  template <class T, int N> void put(const zeph::array<T, N>& x) { file.put(x.data(), x.size()); }
  template <class T, std::size_t N> void put(const std::array<T, N>& x) {
    file.put(x.data(), static_cast<std::int64_t>(N));
  }
  template <class Text> void put(const text_item<Text>& x) {
    if constexpr (std::is_same_v<std::remove_const_t<Text>, text_row>) {
      for (const std::string& cell : x.value.cells) file.put_text(cell, x.width);
    } else {
      file.put_text(x.value, x.width);
    }
  }
};

} // namespace

bool write_modinf(const model_records& m, const std::string& path, std::string& fault) {
  fault.clear();
  sequential_writer file;
  if (!file.open(path)) {
    fault = "write";
    return false;
  }
  modinf_sink sink{file, fault};
  const bool walked = walk_modinf(sink, m);
  const bool closed = file.close();
  if (walked && !closed) fault = "write";
  return walked && closed;
}

} // namespace zeph
