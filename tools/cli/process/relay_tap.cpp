#include "process/relay_tap.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "refusal.h"

namespace quarl {
namespace {

bool same_file(int a, int b) {
  struct stat first, second;
  if (fstat(a, &first) != 0 || fstat(b, &second) != 0) return false;
  return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// A terminal that looks like the real one, but leaves the line ends for the real one to translate.
bool open_terminal(int ends[2]) {
  struct termios modes;
  struct winsize size;
  bool known = tcgetattr(STDOUT_FILENO, &modes) == 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
  if (known) modes.c_oflag &= ~OPOST;
  return openpty(&ends[0], &ends[1], nullptr, known ? &modes : nullptr, known ? &size : nullptr) == 0;
}

// False when nobody takes the output any more. What another error keeps from being written (a full device) is lost;
// the program cannot learn of it.
bool write_all(int fd, const char* bytes, size_t size) {
  while (size > 0) {
    ssize_t done = write(fd, bytes, size);
    if (done < 0 && errno == EAGAIN) {
      struct pollfd ready = {fd, POLLOUT, 0};
      poll(&ready, 1, -1);
      continue;
    }
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return errno != EPIPE;
    bytes += done;
    size -= static_cast<size_t>(done);
  }
  return true;
}

}  // namespace

std::unique_ptr<RelayTap> RelayTap::open(bool terminal) {
  int ends[2];
  if (terminal ? !open_terminal(ends) : pipe(ends) != 0) {
    refuse("cannot read along the program's output: {}; try --direct", std::strerror(errno));
  }
  for (int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return std::unique_ptr<RelayTap>(new RelayTap(ends[0], ends[1], terminal));
}

RelayTap::RelayTap(int reader, int writer, bool terminal)
    : reader_(reader),
      writer_(writer),
      stop_(eventfd(0, EFD_CLOEXEC)),
      terminal_(terminal),
      with_errors_(same_file(STDOUT_FILENO, STDERR_FILENO)) {}

RelayTap::~RelayTap() {
  for (int fd : {reader_, writer_, stop_}) {
    if (fd >= 0) close(fd);
  }
}

void RelayTap::attach_child() {
  dup2(writer_, STDOUT_FILENO);
  if (with_errors_) dup2(writer_, STDERR_FILENO);
}

void RelayTap::start() {
  close(writer_);
  writer_ = -1;
  thread_ = std::thread([this] { relay(); });
}

void RelayTap::resize() {
  struct winsize size;
  if (terminal_ && !ended_ && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) ioctl(reader_, TIOCSWINSZ, &size);
}

void RelayTap::relay() {
  while (wait_for_output() && pass_piece()) {
  }
}

bool RelayTap::wait_for_output() const {
  struct pollfd sources[] = {{reader_, POLLIN, 0}, {stop_, POLLIN, 0}};
  while (poll(sources, 2, -1) < 0 && errno == EINTR) {
  }
  return sources[0].revents != 0;
}

bool RelayTap::pass_piece() {
  char piece[64 * 1024];
  ssize_t got = read(reader_, piece, sizeof piece);
  if (got < 0 && errno == EINTR) return true;
  // A pseudo-terminal whose other end is closed gives EIO. When nobody takes the output any more, closing our end
  // lets the program learn of it as it would have without us.
  if (got <= 0 || !write_all(STDOUT_FILENO, piece, static_cast<size_t>(got))) {
    ended_ = true;
    close(reader_);
    reader_ = -1;
    return false;
  }
  scanner_.feed({piece, static_cast<size_t>(got)});
  faults_ = scanner_.faults();
  agent_port_ = scanner_.agent_port();
  return true;
}

void RelayTap::finish() {
  uint64_t one = 1;
  if (write(stop_, &one, sizeof one) != sizeof one) return;
  thread_.join();
  if (ended_ || fork() != 0) return;
  // Processes that the program left behind may still print; a process of our own passes that on until they end.
  while (pass_piece()) {
  }
  _exit(0);
}

}  // namespace quarl
