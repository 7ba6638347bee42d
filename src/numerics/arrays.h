// Arrays of the run: owning, zero-filled, indexed from 1 unless a lower bound
// is given, first index fastest. Storage is taken through one door, `allocate`,
// which knows the variable's and the routine's name for the failure report and
// lets a test make the n-th allocation fail.
//
// x(i), x(i,j), ... check their bounds in builds with ZEPH_DEBUG_VIEWS.
// m.unchecked_col(j) is the raw pointer to column j; its element i is col[i-1].
#pragma once

#include "numerics/storage_door.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace zeph {

// Out of line so that the accessors stay small: prints index and bounds, aborts.
[[noreturn]] void bounds_fault(std::int64_t index, std::int64_t low, std::int64_t high);

#ifdef ZEPH_DEBUG_VIEWS
inline void check_bound(std::int64_t index, std::int64_t low, std::int64_t count) {
  if (index < low || index - low >= count) bounds_fault(index, low, low + count - 1);
}
#else
inline void check_bound(std::int64_t, std::int64_t, std::int64_t) {}
#endif

// calloc; large blocks ask the machine for large pages, since gathers over
// millions of equations would otherwise wait for the page tables.
void* zeroed_storage(std::size_t count, std::size_t size);

struct release_storage {
  void operator()(void* p) const { std::free(p); }
};

// Zeroed storage of plain elements. Pages that are never written are never
// taken from the machine.
template <class T> class storage {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  // False when the product overflows or the machine has no room.
  bool take(std::int64_t count) {
    if (count < 0 || count > static_cast<std::int64_t>(PTRDIFF_MAX / sizeof(T))) return false;
    cells_.reset(static_cast<T*>(zeroed_storage(count > 0 ? static_cast<std::size_t>(count) : 1, sizeof(T))));
    size_ = cells_ ? count : 0;
    return cells_ != nullptr;
  }
  void release() {
    cells_.reset();
    size_ = 0;
  }
  T* data() { return cells_.get(); }
  const T* data() const { return cells_.get(); }
  std::int64_t size() const { return size_; }

private:
  std::unique_ptr<T[], release_storage> cells_;
  std::int64_t size_ = 0;
};

// Lower bound and number of elements of one axis.
struct axis {
  std::int64_t low = 1;
  std::int64_t count = 0;
  axis() = default;
  axis(std::int64_t n) : count(n) {}
  axis(std::int64_t low_bound, std::int64_t n) : low(low_bound), count(n) {}
};
// The axis low..high.
inline axis range(std::int64_t low, std::int64_t high) { return {low, high - low + 1}; }

template <class T, int N> class array {
public:
  template <class... I> T& operator()(I... index) {
    static_assert(sizeof...(I) == N);
    return cells_.data()[place(static_cast<std::int64_t>(index)...)];
  }
  template <class... I> const T& operator()(I... index) const {
    static_assert(sizeof...(I) == N);
    return cells_.data()[place(static_cast<std::int64_t>(index)...)];
  }
  // Column j of a two-dimensional array, as a plain 0-based pointer.
  T* unchecked_col(std::int64_t j) {
    static_assert(N == 2);
    check_bound(j, axes_[1].low, axes_[1].count);
    return cells_.data() + (j - axes_[1].low) * axes_[0].count;
  }
  const T* unchecked_col(std::int64_t j) const {
    static_assert(N == 2);
    check_bound(j, axes_[1].low, axes_[1].count);
    return cells_.data() + (j - axes_[1].low) * axes_[0].count;
  }
  // Matrix (:,:,k) of a three-dimensional array, column-major, 0-based pointer.
  T* unchecked_slice(std::int64_t k) {
    static_assert(N == 3);
    check_bound(k, axes_[2].low, axes_[2].count);
    return cells_.data() + (k - axes_[2].low) * axes_[0].count * axes_[1].count;
  }
  const T* unchecked_slice(std::int64_t k) const { return const_cast<array*>(this)->unchecked_slice(k); }

  T* data() { return cells_.data(); }
  const T* data() const { return cells_.data(); }
  std::int64_t size() const { return cells_.size(); }
  bool allocated() const { return cells_.data() != nullptr; }
  // Extent of axis d = 1..N.
  std::int64_t extent(int d) const { return axes_[d - 1].count; }
  std::int64_t low(int d) const { return axes_[d - 1].low; }
  T* begin() { return data(); }
  T* end() { return data() + size(); }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size(); }
  void fill(const T& value) {
    for (T& cell : *this) cell = value;
  }

  // Allocates zeroed storage for these axes; false when there is none. Called by
  // `allocate` only, and by work areas of trait size.
  template <class... A> bool take(A... sizes) {
    static_assert(sizeof...(A) == N);
    const axis wanted[N] = {axis(sizes)...};
    std::int64_t count = 1;
    for (int d = 0; d < N; ++d) {
      axes_[d] = wanted[d];
      if (wanted[d].count < 0 || __builtin_mul_overflow(count, wanted[d].count, &count)) return false;
    }
    return cells_.take(count);
  }
  void release() {
    cells_.release();
    for (axis& a : axes_) a.count = 0;
  }

private:
  template <class... I> std::int64_t place(I... index) const {
    const std::int64_t at[N] = {index...};
    std::int64_t where = 0;
    for (int d = N - 1; d >= 0; --d) {
      check_bound(at[d], axes_[d].low, axes_[d].count);
      where = where * axes_[d].count + (at[d] - axes_[d].low);
    }
    return where;
  }
  storage<T> cells_;
  axis axes_[N];
};

template <class T> using vec = array<T, 1>;
template <class T> using mat = array<T, 2>;
template <class T> using cube = array<T, 3>;
using logical = std::uint8_t; // a logical of the run, 0 or 1

// Allocates `x` with the given axes (sizes, or range(low, high)), zero-filled.
// A failure goes to the allocation report under the two names, code 16.
template <class T, int N, class... A>
void allocate(reporting& report, array<T, N>& x, std::string_view variable, std::string_view routine,
              A... sizes) {
  if (door_opens(report) && x.take(sizes...)) return;
  const axis wanted[N] = {axis(sizes)...};
  std::int64_t count = 1;
  for (const axis& a : wanted)
    if (__builtin_mul_overflow(count, a.count, &count)) count = INT64_MAX;
  allocation_failure(report, routine, variable, count, allocation_status);
}

// The same door for rows of records (anything with resize, such as std::vector).
template <class Rows>
void allocate_rows(reporting& report, Rows& rows, std::string_view variable, std::string_view routine,
                   std::int64_t count) {
  bool taken = false;
  if (door_opens(report) && count >= 0) {
    try {
      rows.clear();
      rows.resize(static_cast<std::size_t>(count));
      taken = true;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {}
  }
  if (!taken) allocation_failure(report, routine, variable, count, allocation_status);
}

} // namespace zeph
