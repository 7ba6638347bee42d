// The files of a work directory hold names of 8 (or 18) ASCII characters. Longer ones are cut and made
// unique; the listing and names.json show the long ones beside them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zeph::prepare {

constexpr std::size_t short_width = 8;
constexpr std::size_t nesting_width = 18;

// One name per long name, in order, each at most `width` bytes of printable ASCII, no two equal: the name
// itself when it fits, else its first characters ("tarsus_l" for tarsus_left). A name that is taken ends in a
// number instead ("tarsus_2"). A character outside ASCII becomes one '_'.
std::vector<std::string> short_names(const std::vector<std::string>& long_names,
                                     std::size_t width = short_width);

// The name cut to the width, without regard to others.
std::string cut_name(const std::string& long_name, std::size_t width = short_width);

// Blank padded to the width, as the files hold it.
std::string padded(const std::string& name, std::size_t width);

} // namespace zeph::prepare
