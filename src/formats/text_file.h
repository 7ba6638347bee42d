// Text files by lines. Lines end in a line feed; a carriage return before it
// is taken off on reading and never written.
#pragma once

#include "formats/byte_file.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

// Writes lines through a buffer. Every write is checked: after a failure
// nothing more is written and every call returns false. The destructor closes.
class text_writer {
public:
  text_writer() = default;
  ~text_writer() { close(); }
  text_writer(const text_writer&) = delete;
  text_writer& operator=(const text_writer&) = delete;

  bool open(const std::string& path);        // made, or emptied when it exists
  bool open_append(const std::string& path); // made, or continued at its end
  bool open_new(const std::string& path);    // fails when the name exists
  bool is_open() const { return sink_.is_open(); }
  bool ok() const { return ok_; }

  // One line, without its end: "" gives an empty line. False when an earlier
  // or this write failed; what stays in the buffer is judged by flush or close.
  bool line(std::string_view text);
  bool flush(); // all lines handed to the system
  bool sync();  // flushes and waits until the device has them; true also when nothing is open
  bool close(); // flushes; true also when nothing is open and nothing failed

private:
  bool start(const std::string& path, open_mode mode);

  byte_sink sink_;
  std::string buffer_;
  bool ok_ = true;
};

// Makes `text` the whole content of a file, as one line. A reader finds one whole
// line at any time, however the run ends: a line as long as the file goes over it in
// one piece, any other is written beside it and then gets its name. The file is not
// emptied first, as some file systems hand files that were to the disk when they are
// closed. False when it can't be written; the old line stays.
bool rewrite_line(const std::string& path, std::string_view text);

// Reads bytes through a buffer; shared by the line reader and the free-format
// reader.
class byte_reader {
public:
  bool open(const std::string& path);
  void rewind();
  void close();
  bool is_open() const { return source_.is_open(); }
  bool failed() const { return source_.failed(); } // an end that is not the file's

  // The next byte, 0..255, or -1 at the end. `peek` leaves it in place.
  int peek() { return at_ < limit_ || fill() ? static_cast<unsigned char>(buffer_[at_]) : -1; }
  int get() { return at_ < limit_ || fill() ? static_cast<unsigned char>(buffer_[at_++]) : -1; }

private:
  bool fill(); // false at the end of the file

  byte_source source_;
  std::string buffer_;
  std::size_t at_ = 0;
  std::size_t limit_ = 0;
};

// Reads lines. A last line without a line feed counts as a line.
class text_reader {
public:
  bool open(const std::string& path) { return bytes_.open(path); } // false when it can't be opened
  bool is_open() const { return bytes_.is_open(); }
  bool line(std::string& text); // false at the end of the file; text is then empty
  void rewind() { bytes_.rewind(); }
  void close() { bytes_.close(); }

private:
  byte_reader bytes_;
};

} // namespace zeph
