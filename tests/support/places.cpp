#include "support/places.h"

namespace zeph_test {

const std::string& source_folder() {
  static const std::string folder = ZEPH_SOURCE_DIR;
  return folder;
}
const std::string& binary_folder() {
  static const std::string folder = ZEPH_BINARY_DIR;
  return folder;
}

} // namespace zeph_test
