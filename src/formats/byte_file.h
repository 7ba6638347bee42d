// Bytes of a file in and out: the one place of this folder that talks to the
// operating system. No buffering; the readers and writers above own their
// buffers. Nothing here throws or stops the run: failures are returned.
#pragma once

#include <cstdint>
#include <string>

namespace zeph {

// A file opened for reading. Closed by the destructor; neither copied nor moved.
class byte_source {
public:
  byte_source() = default;
  ~byte_source() { close(); }
  byte_source(const byte_source&) = delete;
  byte_source& operator=(const byte_source&) = delete;

  // False when the file can't be opened, or is a directory.
  bool open(const std::string& path);
  void close();
  bool is_open() const { return fd_ >= 0; }

  // Size in bytes, taken once when the file was opened.
  std::int64_t size() const { return size_; }

  // Reads up to n bytes into `to`: the number read, fewer than n only at the
  // end of the file or after a read error.
  std::int64_t read(char* to, std::int64_t n);
  // True when the system could not read the file since it was opened or rewound.
  bool failed() const { return failed_; }

  // Back to the first byte. False when the file can't be positioned.
  bool rewind();

private:
  int fd_ = -1;
  std::int64_t size_ = 0;
  bool failed_ = false;
};

// The code that readers give when reading fails other than by the end of the file: the
// system's number of an input or output error.
inline constexpr int read_fault_code = 5;

// How an output file is created.
enum class open_mode {
  truncate, // made, or emptied when it exists
  append,   // made, or continued at its end
  in_place, // made, or written over from its first byte; what is not written over stays
  fresh     // made; fails when the name exists
};

// A file opened for writing. Closed by the destructor; neither copied nor moved.
class byte_sink {
public:
  byte_sink() = default;
  ~byte_sink() { close(); }
  byte_sink(const byte_sink&) = delete;
  byte_sink& operator=(const byte_sink&) = delete;

  bool open(const std::string& path, open_mode mode);
  bool close(); // false when the system reports a failure of earlier writes
  bool is_open() const { return fd_ >= 0; }

  // True only when all n bytes were taken.
  bool write(const char* from, std::int64_t n);

private:
  int fd_ = -1;
};

// Size in bytes of the file of this name; -1 when there is none.
std::int64_t size_of_file(const std::string& path);

// From then on a write beyond the process's limit of file sizes (RLIMIT_FSIZE) is a
// failed write as any other, not the end of the process. For main.
void let_size_limit_fail_writes();

} // namespace zeph
