// Which folder may include which, judged from names and includes alone.
#pragma once

#include <string>
#include <vector>

namespace zeph_test {

// A source file: its name from the root of its tree ("prepare/tables/csv_shape.cpp") and the names that it
// includes in quotation marks, in order.
struct source_file {
  std::string name;
  std::vector<std::string> includes;
};

// Folders, the lowest first: a file includes its own folder and those before it. A folder may be in several
// orders; files of two folders that no order has together know nothing of each other.
using folder_order = std::vector<std::string>;

// The file with its includes.
source_file read_source(const std::string& path, const std::string& name);

// The folder that a file belongs to: the longest one of the orders that its name begins with; empty: none.
std::string folder_of(const std::string& name, const std::vector<folder_order>& orders);

// A text for each file in a folder of no order, and for each include that no order allows.
std::vector<std::string> faulty_includes(const std::vector<source_file>& files,
                                         const std::vector<folder_order>& orders);

// A unit is a header with the source of the same name. The units of a cycle of includes, "a -> b -> a", for
// each cycle found by a walk from the first file on; empty: the units can be put in an order.
std::vector<std::string> unit_cycles(const std::vector<source_file>& files);

// A text for each source that has a header of its own and doesn't include it first.
std::vector<std::string> headers_not_first(const std::vector<source_file>& files);

} // namespace zeph_test
