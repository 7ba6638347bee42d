#include "formats/byte_file.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zeph {

namespace {

constexpr std::int64_t largest_call = std::int64_t{1} << 30; // the system takes less than 2^31 bytes at once

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
  failed_ = false;
}

std::int64_t byte_source::read(char* to, std::int64_t n) {
  std::int64_t done = 0;
  while (fd_ >= 0 && done < n) {
    const auto ask = static_cast<std::size_t>(std::min(n - done, largest_call));
    const ssize_t got = ::read(fd_, to + done, ask);
    // a call cut short by a signal is repeated; a short read is not the end
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failed_ = true;
    if (got <= 0) break;
    done += got;
  }
  return done;
}

bool byte_source::move_to(std::int64_t n) {
  failed_ = false;
  return fd_ >= 0 && n >= 0 && ::lseek(fd_, n, SEEK_SET) == n;
}

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

bool byte_sink::write(const char* from, std::int64_t n) {
  std::int64_t done = 0;
  while (fd_ >= 0 && done < n) {
    const auto ask = static_cast<std::size_t>(std::min(n - done, largest_call));
    const ssize_t put = ::write(fd_, from + done, ask);
    if (put < 0 && errno == EINTR) continue;
    // writing nothing without an error would loop forever
    if (put == 0) errno = EIO;
    if (put <= 0) return false;
    done += put;
  }
  return done == n;
}

bool byte_sink::sync() {
  int code = 0;
  do {
    code = ::fsync(fd_);
  } while (code != 0 && errno == EINTR);
  // a pipe or a device has nothing to wait for
  return code == 0 || errno == EINVAL || errno == EROFS;
}

bool cut_file(const std::string& path, std::int64_t n) { return ::truncate(path.c_str(), n) == 0; }

bool sync_folder_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const int fd = open_fd(slash == std::string::npos ? "." : path.substr(0, slash + 1), O_RDONLY);
  if (fd < 0) return false;
  const bool done = ::fsync(fd) == 0 || errno == EINVAL; // file systems without such a call
  ::close(fd);
  return done;
}

std::int64_t size_of_file(const std::string& path) {
  struct stat about {};
  return ::stat(path.c_str(), &about) == 0 ? about.st_size : -1;
}

void let_size_limit_fail_writes() { std::signal(SIGXFSZ, SIG_IGN); }

} // namespace zeph
