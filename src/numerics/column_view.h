// Views of elements that follow one another in storage: a column of a matrix, a range of a vector.
//
//   v(i)                     element i = 1, 2, ..
//   v[i]                     element i = 0, 1, .., for equations, records and levels numbered from 0
//   v.part(from, count)      `count` elements after the first `from`, numbered from 0 again
//   v.numbered_from(first)   the same elements: v[first] is now the first of them
//   v.unchecked()            plain pointer to what v[0] is: no bounds from here on
//
// Builds with ZEPH_DEBUG_VIEWS know the length and check each index; others hold the pointer alone, and an
// access costs what one through the pointer does. A view owns nothing and doesn't outlive its array.
#pragma once

#include "numerics/arrays.h"

#include <cstdint>
#include <type_traits>

namespace zeph {

template <class T> class column_view {
public:
  column_view() = default; // of no array: false
#ifdef ZEPH_DEBUG_VIEWS
  column_view(T* first, std::int64_t count, std::int64_t low = 0)
      : at_(first - low), low_(low), count_(count) {}
#else
  column_view(T* first, std::int64_t, std::int64_t low = 0) : at_(first - low) {}
#endif

  // of what may be changed, to read only
  template <class U>
  requires(std::is_same_v<const U, T> && !std::is_const_v<U>)
#ifdef ZEPH_DEBUG_VIEWS
      column_view(const column_view<U>& v)
      : at_(v.at_), low_(v.low_), count_(v.count_) {
  }
#else
      column_view(const column_view<U>& v)
      : at_(v.at_) {
  }
#endif

  T& operator()(std::int64_t i) const {
    check_index(i, 1);
    return at_[i - 1];
  }
  T& operator[](std::int64_t i) const {
    check_index(i, 0);
    return at_[i];
  }
  column_view part(std::int64_t from, std::int64_t count) const {
    if (count > 0) {
      check_index(from, 0);
      check_index(from + count - 1, 0);
    }
    return {at_ + from, count};
  }
#ifdef ZEPH_DEBUG_VIEWS
  column_view numbered_from(std::int64_t first) const { return {at_ + low_, count_, first}; }
#else
  // numbered from 0 before
  column_view numbered_from(std::int64_t first) const { return {at_, 0, first}; }
#endif
  explicit operator bool() const { return at_ != nullptr; }
  T* unchecked() const { return at_; }

private:
  template <class> friend class column_view;
#ifdef ZEPH_DEBUG_VIEWS
  void check_index(std::int64_t i, std::int64_t origin) const { check_bound(i, low_ + origin, count_); }
  T* at_ = nullptr;
  std::int64_t low_ = 0, count_ = 0; // of [] the first index; elements
#else
  void check_index(std::int64_t, std::int64_t) const {}
  T* at_ = nullptr;
#endif
};

// All elements of an array in the order of storage.
template <class T, int N> column_view<T> view_of(array<T, N>& x) { return {x.data(), x.size()}; }
template <class T, int N> column_view<const T> view_of(const array<T, N>& x) { return {x.data(), x.size()}; }
// `count` of them after the first `from`.
template <class T, int N> column_view<T> part_of(array<T, N>& x, std::int64_t from, std::int64_t count) {
  return view_of(x).part(from, count);
}
template <class T, int N>
column_view<const T> part_of(const array<T, N>& x, std::int64_t from, std::int64_t count) {
  return view_of(x).part(from, count);
}
// Column j of a matrix.
template <class T> column_view<T> col_of(mat<T>& x, std::int64_t j) {
  return {x.unchecked_col(j), x.extent(1)};
}
template <class T> column_view<const T> col_of(const mat<T>& x, std::int64_t j) {
  return {x.unchecked_col(j), x.extent(1)};
}
// Matrix (:,:,k), column-major.
template <class T> column_view<const T> slice_of(const cube<T>& x, std::int64_t k) {
  return {x.unchecked_slice(k), x.extent(1) * x.extent(2)};
}

} // namespace zeph
