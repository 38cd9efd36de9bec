// SPDX-License-Identifier: Apache-2.0
#include "platform/system.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "platform/confinement.h"
#include "platform/system_call.h"

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace quarl::sys {
namespace {

template <typename... Arguments>
long call(long number, Arguments... arguments) {
  const OwnCall own;
  return own.refused() ? -1 : system_call(number, arguments...);
}

}  // namespace

int open(const char* path, int flags, int mode) {
  return static_cast<int>(call(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE | O_CLOEXEC, mode));
}

int close(int fd) {
  return static_cast<int>(call(SYS_close, fd));
}

long read(int fd, void* data, size_t size) {
  return call(SYS_read, fd, data, size);
}

long write(int fd, const void* data, size_t size) {
  return call(SYS_write, fd, data, size);
}

int64_t seek(int fd, int64_t offset, int whence) {
  int64_t result = 0;
  const long failed = call(SYS__llseek, fd, static_cast<unsigned long>(static_cast<uint64_t>(offset) >> 32),
                           static_cast<unsigned long>(offset & 0xFFFFFFFF), &result, whence);
  return failed != 0 ? -1 : result;
}

int duplicate_above(int fd, int lowest) {
  return static_cast<int>(call(SYS_fcntl64, fd, F_DUPFD_CLOEXEC, lowest));
}

bool readable(const char* path) {
  return call(SYS_access, path, R_OK) == 0;
}

bool wait_readable(int fd, int milliseconds) {
  struct pollfd wanted {
    fd, POLLIN, 0
  };
  long ready = 0;
  do {
    ready = call(SYS_poll, &wanted, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready != 0;
}

bool wait_writable(int fd, int milliseconds) {
  struct pollfd wanted {
    fd, POLLOUT, 0
  };
  return call(SYS_poll, &wanted, 1, milliseconds) != 0;
}

void nap(int milliseconds) {
  call(SYS_poll, nullptr, 0, milliseconds);
}

void send_to_this_thread(int number, siginfo_t* info) {
  const long process = getpid();
  const long thread = system_call(SYS_gettid);
  if (info != nullptr && system_call(SYS_rt_tgsigqueueinfo, process, thread, number, info) == 0) return;
  system_call(SYS_tgkill, process, thread, number);
}

bool thread_exists(int thread) {
  return call(SYS_tgkill, getpid(), thread, 0) == 0 || errno != ESRCH;
}

// The C library's struct is the kernel's, as of every C library that it asks for by a function of another name.
bool stat_fd(int fd, struct stat64* out) {
  return call(SYS_fstat64, fd, out) == 0;
}

bool stat_path(const char* path, struct stat64* out) {
  return call(SYS_lstat64, path, out) == 0;
}

void set_signal_mask(int how, const sigset_t* wanted, sigset_t* before) {
  constexpr unsigned kKernelSet = 8;  // bytes of the mask
  const KeepErrno keep;
  system_call(SYS_rt_sigprocmask, how, wanted, before, kKernelSet);
}

bool make_timer(int clock, int signal, int thread, void* value, Timer* timer) {
  struct sigevent event {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = signal;
  event.sigev_value.sival_ptr = value;
  event.sigev_notify_thread_id = thread;
  return system_call(SYS_timer_create, clock, &event, &timer->id) == 0;
}

bool arm_timer(Timer timer, const struct itimerspec& period) {
  return system_call(SYS_timer_settime, timer.id, 0, &period, nullptr) == 0;
}

void delete_timer(Timer timer) {
  system_call(SYS_timer_delete, timer.id);
}

int unlink(const char* path) {
  return static_cast<int>(call(SYS_unlinkat, AT_FDCWD, path, 0));
}

int make_directory(const char* path) {
  return static_cast<int>(call(SYS_mkdirat, AT_FDCWD, path, 0777));
}

long read_link(const char* path, char* out, size_t size) {
  return call(SYS_readlink, path, out, size);
}

long current_directory(char* out, size_t size) {
  return call(SYS_getcwd, out, size);
}

bool file_sizes_limited() {
  struct rlimit limit {};
  return call(SYS_ugetrlimit, RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

int descriptor_limit() {
  struct rlimit limit {};
  const bool limited = call(SYS_ugetrlimit, RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < INT_MAX;
  return limited ? static_cast<int>(limit.rlim_cur) : INT_MAX;
}

bool copy_memory(const void* from, void* to, size_t size) {
  int ends[2];
  if (call(SYS_pipe2, ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  const auto wanted = static_cast<long>(size);
  const bool copied = write(ends[1], from, size) == wanted && read(ends[0], to, size) == wanted;
  close(ends[0]);
  close(ends[1]);
  return copied;
}

bool thread_name(char* out) {
  return call(SYS_prctl, PR_GET_NAME, out, 0, 0, 0) == 0;
}

bool on_alternate_stack(stack_t* out) {
  return call(SYS_sigaltstack, nullptr, out) == 0 && (out->ss_flags & SS_ONSTACK) != 0;
}

namespace {

// `write` takes what is left and gives how much of it was written.
template <typename Write>
bool write_repeatedly(const void* data, size_t size, Write write) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const long done = write(next, size);
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = ENOSPC;
    if (done <= 0) return false;
    next += done;
    size -= static_cast<size_t>(done);
  }
  return true;
}

// Of the calls that write at an offset the one whose two words of it stand in the same places on every processor.
long write_at(int fd, int64_t offset, const void* data, size_t size) {
  const struct iovec piece { const_cast<void*>(data), size };
  return call(SYS_pwritev, fd, &piece, 1, static_cast<unsigned long>(offset & 0xFFFFFFFF),
              static_cast<unsigned long>(static_cast<uint64_t>(offset) >> 32));
}

}  // namespace

bool write_all(int fd, const void* data, size_t size) {
  return write_repeatedly(data, size, [fd](const char* next, size_t left) { return write(fd, next, left); });
}

bool write_all_at(int fd, int64_t offset, const void* data, size_t size) {
  return write_repeatedly(data, size, [fd, &offset](const char* next, size_t left) {
    const long done = write_at(fd, offset, next, left);
    if (done > 0) offset += done;
    return done;
  });
}

void write_regardless(int fd, const void* data, size_t size) {
  system_call(SYS_write, fd, data, size);
}

bool word_exists(const uint32_t* word) {
  // Compares the word with itself unread, wakes nobody and moves nobody; its answer says whether the word was there.
  constexpr int kCompareRequeue = FUTEX_CMP_REQUEUE | FUTEX_PRIVATE_FLAG;
  const KeepErrno keep;
  return system_call(SYS_futex, word, kCompareRequeue, 0, 0, word, 0) != -1 || errno != EFAULT;
}

TimeOfDay time_of_day() {
  TimeOfDay now{};
  call(SYS_gettimeofday, &now, nullptr);
  return now;
}

void futex_wait(const uint32_t* word, uint32_t expected) {
  system_call(SYS_futex, word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

bool futex_wait_for(const uint32_t* word, uint32_t expected, int milliseconds) {
  const struct timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  return system_call(SYS_futex, word, FUTEX_WAIT_PRIVATE, expected, &limit, nullptr, 0) == 0 || errno != ETIMEDOUT;
}

void futex_wake(const uint32_t* word, int count) {
  system_call(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace quarl::sys

namespace quarl {

KeepErrno::KeepErrno() : saved_(errno) {}
KeepErrno::~KeepErrno() {
  errno = saved_;
}

}  // namespace quarl
