// Files of the work directory: their full names, and whether they are there.
#pragma once

#include <string>
#include <string_view>

namespace zeph {

struct reporting;

// Full name of a file of the work directory.
std::string path_of(const reporting& report, std::string_view file);
bool file_exists(const reporting& report, std::string_view file);

// The four input files RCDATA_I, RCDATA_R, MODINF, CODE_TABLE: each missing one
// gets a line on the listing. Returns 0 only when all exist, else 1.
int check_input_files(reporting& report);

} // namespace zeph
