// Where the sources and the build are. Known to one object file, so that all
// others compile to the same wherever the tree is.
#pragma once

#include <string>

namespace zeph_test {

const std::string& source_folder();
const std::string& binary_folder();

} // namespace zeph_test
