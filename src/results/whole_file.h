// Result files that are written whole at the end of a run: they are written
// under a name beside their own and get their own name when complete, so that
// no reader finds half a file. Where the name already stands for something
// other than a plain file (a link, a device), it is written in place.
#pragma once

#include "control/reporting.h"

#include <string>

namespace zeph {

class whole_file {
public:
  // `file` is a name in the work directory; nothing is opened here.
  whole_file(const reporting& report, std::string_view file);
  ~whole_file(); // takes away what was never published
  whole_file(const whole_file&) = delete;
  whole_file& operator=(const whole_file&) = delete;

  // Full name to open for writing.
  const std::string& path() const { return path_; }
  // Gives the closed file its own name; a failure is a write_fault.
  void publish(reporting& report);

private:
  std::string name_, path_, target_;
  bool published_ = false;
};

} // namespace zeph
