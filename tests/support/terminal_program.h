// A program on a terminal of its own: what it shows, and keys for it.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace zeph_test {

class terminal_program {
public:
  terminal_program(const std::vector<std::string>& words, unsigned short columns) {
    terminal_ = ::posix_openpt(O_RDWR | O_NOCTTY);
    ::grantpt(terminal_);
    ::unlockpt(terminal_);
    const std::string name = ::ptsname(terminal_);
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 24;
    ::ioctl(terminal_, TIOCSWINSZ, &size);
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::setsid();
    const int own = ::open(name.c_str(), O_RDWR);
    for (const int fd : {0, 1, 2}) ::dup2(own, fd);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ~terminal_program() {
    if (pid_ > 1) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(terminal_);
  }
  terminal_program(const terminal_program&) = delete;
  terminal_program& operator=(const terminal_program&) = delete;

  // Reads until the text has been shown since the last call that found one; false after half a minute, or at
  // the end.
  bool shows(const std::string& text) {
    for (int i = 0; i < 300; ++i) {
      const std::size_t at = shown_.find(text, seen_);
      if (at != std::string::npos) {
        seen_ = at + text.size();
        return true;
      }
      if (!read_more()) return false;
    }
    return false;
  }
  void key(char c) const { static_cast<void>(::write(terminal_, &c, 1) == 1); }
  void send(int signal) const {
    if (pid_ > 1) ::kill(pid_, signal);
  }
  // Reads to the end of the program: its exit code, or 128 + the signal.
  int wait() {
    int status = 0;
    while (::waitpid(pid_, &status, WNOHANG) == 0) read_more();
    pid_ = -1;
    while (read_more()) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  const std::string& shown() const { return shown_; }
  // Line mode and echo are on.
  bool keys_as_usual() const {
    termios now{};
    return ::tcgetattr(terminal_, &now) == 0 && (now.c_lflag & ICANON) != 0 && (now.c_lflag & ECHO) != 0;
  }

private:
  bool read_more() {
    pollfd p{terminal_, POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0) return pid_ > 0;
    char piece[4096];
    const ssize_t n = ::read(terminal_, piece, sizeof piece);
    if (n <= 0) return false;
    shown_.append(piece, static_cast<std::size_t>(n));
    return true;
  }

  int terminal_ = -1;
  pid_t pid_ = -1;
  std::string shown_;
  std::size_t seen_ = 0;
};

} // namespace zeph_test
