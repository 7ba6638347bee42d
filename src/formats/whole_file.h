// Files that are written whole: each is written under a name beside its own and
// gets its own name when it is complete, so that no reader finds half a file and a
// failure leaves the former file as it was. Where the name already belongs to
// something other than a plain file (a link, a device), it is written in place.
#pragma once

#include <string>

namespace zeph {

class whole_file {
public:
  // `target` is the full name that the file shall have; nothing is opened here.
  explicit whole_file(const std::string& target);
  ~whole_file(); // takes away what was never published
  whole_file(const whole_file&) = delete;
  whole_file& operator=(const whole_file&) = delete;

  // Full name to open for writing.
  const std::string& path() const { return path_; }
  // Gives the closed file its own name. False when it can't have it: what was
  // there stays, and the new file is removed.
  bool publish();

private:
  std::string path_, target_;
  bool published_ = false;
};

} // namespace zeph
