// operator new by malloc, for builds with the address sanitizer: its own operator
// ends the process where there is no storage, this one throws as the language
// says. Sizes that a file asks for and no machine has are then refused with a
// message, as in the product.
#include <cstdlib>
#include <new>

void* operator new(std::size_t size) {
  void* place = std::malloc(size > 0 ? size : 1);
  if (place == nullptr) throw std::bad_alloc();
  return place;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* place) noexcept { std::free(place); }
void operator delete[](void* place) noexcept { std::free(place); }
void operator delete(void* place, std::size_t) noexcept { std::free(place); }
void operator delete[](void* place, std::size_t) noexcept { std::free(place); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size > 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size > 0 ? size : 1);
}
void operator delete(void* place, const std::nothrow_t&) noexcept { std::free(place); }
void operator delete[](void* place, const std::nothrow_t&) noexcept { std::free(place); }
