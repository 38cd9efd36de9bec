// SPDX-License-Identifier: Apache-2.0
// System calls made directly: no cancellation point, no lock and no allocation of the C library. Safe in a signal
// handler; all leave errno as the kernel's answer. Failures are -1. In a process that has confined itself
// (confinement.h) they are refused, but for the last ones.
#pragma once

#include <signal.h>
#include <sys/stat.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

namespace quarl::sys {

int open(const char* path, int flags, int mode = 0);
int close(int fd);
long read(int fd, void* data, size_t size);
long write(int fd, const void* data, size_t size);
int64_t seek(int fd, int64_t offset, int whence);
int duplicate_above(int fd, int lowest);  // close-on-exec
bool readable(const char* path);
bool wait_readable(int fd, int milliseconds);  // something to read, or the end; false when the time is over
bool stat_fd(int fd, struct stat64* out);
bool stat_path(const char* path, struct stat64* out);  // a link itself, not what it leads to

// pthread_sigmask, of a set that sigemptyset or sigfillset began: they leave the C library's own signals alone.
void set_signal_mask(int how, const sigset_t* wanted, sigset_t* before);

// Timers of the kernel's, which come as signals to one thread. False with errno.
struct Timer {
  int id = 0;
};
bool make_timer(int clock, int signal, int thread, void* value, Timer* timer);
bool arm_timer(Timer timer, const struct itimerspec& period);  // relative
void delete_timer(Timer timer);
int unlink(const char* path);
int make_directory(const char* path);                      // mode 0777 before the umask
long read_link(const char* path, char* out, size_t size);  // no NUL behind it
long current_directory(char* out, size_t size);
bool file_sizes_limited();                                  // a write beyond a limit raises SIGXFSZ
int descriptor_limit();                                     // descriptors of the program are below it
bool copy_memory(const void* from, void* to, size_t size);  // at most 4096 bytes; false when they are not all there
bool thread_name(char* out);                                // the calling thread's, 16 bytes with its NUL
bool on_alternate_stack(stack_t* out);                      // of signal handlers; which one it is

// Writes all bytes, going on after an interruption or a short write. False with errno set when not all are out.
bool write_all(int fd, const void* data, size_t size);
bool write_all_at(int fd, int64_t offset, const void* data, size_t size);  // the file's position stays

// The same, raising neither SIGPIPE (no reader) nor SIGXFSZ (file size limit): errno alone tells.
bool write_quietly(int fd, const void* data, size_t size);
bool write_quietly_at(int fd, int64_t offset, const void* data, size_t size);

// As quietly, by one write: how many bytes are out, -1 with errno.
long write_once_quietly(int fd, const void* data, size_t size);

// Cuts a file or makes it longer, as quietly.
bool truncate(int fd, int64_t size);

void nap(int milliseconds);                    // no cancellation point
bool wait_writable(int fd, int milliseconds);  // room for PIPE_BUF bytes of a pipe; false when the time is over

// Sends a signal to the calling thread, with the words that it came with when it did. Blocked, it waits for the thread.
void send_to_this_thread(int number, siginfo_t* info);

// Whether the process has a thread of that id.
bool thread_exists(int thread);

// Also in a process that has confined itself: a report of a fault, and what a lock cannot do without.
void write_regardless(int fd, const void* data, size_t size);  // one plain write
// Whether the aligned word at this address can be read: the kernel is asked, which answers without a fault.
bool word_exists(const uint32_t* word);

// Not the C library's, in whose place another may stand that takes locks (libraries that pretend another time).
struct TimeOfDay {
  long seconds;
  long microseconds;
};
TimeOfDay time_of_day();  // zeros where calls are refused

void futex_wait(const uint32_t* word, uint32_t expected);
bool futex_wait_for(const uint32_t* word, uint32_t expected, int milliseconds);  // false: nobody woke it in time
void futex_wake(const uint32_t* word, int count);

}  // namespace quarl::sys

namespace quarl {

// Keeps errno over its lifetime: the application never sees the checker's.
class KeepErrno {
 public:
  KeepErrno();
  ~KeepErrno();
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int saved_;
};

}  // namespace quarl
