#include "formats/byte_file.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zeph {

namespace {

constexpr int64_t largest_call = int64_t{1} << 30; // the system takes less than 2^31 bytes at once

int open_fd(const std::string& path, int flags) {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

} // namespace

bool byte_source::open(const std::string& path) {
  close();
  fd_ = open_fd(path, O_RDONLY);
  if (fd_ < 0) return false;
  struct stat about {};
  if (::fstat(fd_, &about) != 0 || S_ISDIR(about.st_mode)) {
    close();
    return false;
  }
  size_ = about.st_size;
  return true;
}

void byte_source::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  size_ = 0;
}

int64_t byte_source::read(char* to, int64_t n) {
  int64_t done = 0;
  while (fd_ >= 0 && done < n) {
    const auto ask = static_cast<std::size_t>(std::min(n - done, largest_call));
    const ssize_t got = ::read(fd_, to + done, ask);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += got;
  }
  return done;
}

bool byte_source::rewind() { return fd_ >= 0 && ::lseek(fd_, 0, SEEK_SET) == 0; }

bool byte_sink::open(const std::string& path, open_mode mode) {
  close();
  int how = 0;
  if (mode == open_mode::truncate) how = O_TRUNC;
  if (mode == open_mode::append) how = O_APPEND;
  if (mode == open_mode::fresh) how = O_EXCL;
  fd_ = open_fd(path, O_WRONLY | O_CREAT | how);
  return fd_ >= 0;
}

bool byte_sink::close() {
  const int fd = std::exchange(fd_, -1);
  return fd < 0 || ::close(fd) == 0;
}

bool byte_sink::write(const char* from, int64_t n) {
  int64_t done = 0;
  while (fd_ >= 0 && done < n) {
    const auto ask = static_cast<std::size_t>(std::min(n - done, largest_call));
    const ssize_t put = ::write(fd_, from + done, ask);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += put;
  }
  return done == n;
}

bool byte_sink::cut(int64_t n) {
  struct stat about {};
  if (fd_ < 0 || ::fstat(fd_, &about) != 0) return false;
  return about.st_size <= n || !S_ISREG(about.st_mode) || ::ftruncate(fd_, n) == 0;
}

} // namespace zeph
