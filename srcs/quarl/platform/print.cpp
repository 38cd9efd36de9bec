// SPDX-License-Identifier: Apache-2.0
#include "platform/print.h"

#include <string.h>

#include "platform/confinement.h"
#include "platform/environment.h"
#include "platform/libc_hooks.h"
#include "platform/system.h"

namespace quarl {

struct Text::Conversion {
  bool left = false;
  bool zero = false;
  size_t width = 0;
  int longs = 0;
  unsigned base = 10;
};

Text& Text::cut_line_end() {
  if (size_ > 0 && data_[size_ - 1] == '\n') --size_;
  return *this;
}

void Text::terminate() {
  if (size_ == capacity_) --size_;
  data_[size_] = '\0';
}

void Text::put_padded(const char* text, size_t length, const Conversion& conversion) {
  const size_t pad = conversion.width > length ? conversion.width - length : 0;
  if (!conversion.left)
    for (size_t i = 0; i < pad; ++i) put(conversion.zero ? '0' : ' ');
  for (size_t i = 0; i < length; ++i) put(text[i]);
  if (conversion.left)
    for (size_t i = 0; i < pad; ++i) put(' ');
}

void Text::put_number(unsigned long long value, bool negative, const Conversion& conversion) {
  char digits[24];
  size_t at = sizeof digits;
  do {
    digits[--at] = "0123456789abcdef"[value % conversion.base];
    value /= conversion.base;
  } while (value != 0);
  if (negative) digits[--at] = '-';
  put_padded(digits + at, sizeof digits - at, conversion);
}

// Formats the conversion whose text starts behind the '%'; returns where the pattern goes on.
const char* Text::convert(const char* at, va_list* args) {
  Conversion conversion;
  for (; *at == '-' || *at == '0'; ++at) (*at == '-' ? conversion.left : conversion.zero) = true;
  for (; *at >= '0' && *at <= '9'; ++at) conversion.width = conversion.width * 10 + static_cast<size_t>(*at - '0');
  for (; *at == 'l'; ++at) ++conversion.longs;
  switch (*at) {
    case 'd': {
      const long long value = conversion.longs >= 2   ? va_arg(*args, long long)
                              : conversion.longs == 1 ? va_arg(*args, long)
                                                      : va_arg(*args, int);
      put_number(value < 0 ? -static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value),
                 value < 0, conversion);
      break;
    }
    case 'x':
      conversion.base = 16;
      [[fallthrough]];
    case 'u':
      put_number(conversion.longs >= 2   ? va_arg(*args, unsigned long long)
                 : conversion.longs == 1 ? va_arg(*args, unsigned long)
                                         : va_arg(*args, unsigned),
                 false, conversion);
      break;
    case 'p':
      put('0');
      put('x');
      conversion.base = 16;
      put_number(reinterpret_cast<unsigned long>(va_arg(*args, void*)), false, conversion);
      break;
    case 's': {
      const char* text = va_arg(*args, const char*);
      put_padded(text, strlen(text), conversion);
      break;
    }
    case 'c':
      put(static_cast<char>(va_arg(*args, int)));
      break;
    default:
      put(*at);
  }
  return at + 1;
}

Text& Text::format_list(const char* pattern, va_list args) {
  va_list rest;
  va_copy(rest, args);
  while (*pattern != '\0') {
    if (*pattern == '%' && pattern[1] != '\0') {
      pattern = convert(pattern + 1, &rest);
    } else {
      put(*pattern++);
    }
  }
  va_end(rest);
  return *this;
}

Text& Text::format(const char* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  format_list(pattern, args);
  va_end(args);
  return *this;
}

namespace {

constexpr int kNowhere = -1;
constinit int destination = 0;  // of all messages; 0: each has its own

constinit bool waits_for_readers = true;

// In pieces that a pipe takes at once when it takes anything; nothing more behind one that there was no room for.
void write_where_there_is_room(int fd, const char* data, size_t size) {
  constexpr size_t kPiece = 4096;
  constexpr int kPatience = 1000;  // milliseconds
  static bool nobody_reads[kStderr + 1] = {};
  bool& given_up = nobody_reads[fd];
  while (size > 0 && !given_up) {
    const size_t piece = size < kPiece ? size : kPiece;
    given_up = !sys::wait_writable(fd, kPatience);
    if (!given_up) sys::write_quietly(fd, data, piece);
    data += piece;
    size -= piece;
  }
}

// Behind a filter of system calls only faults are told, and for them it is worth a try.
void write_to_descriptor(int fd, const char* data, size_t size) {
  if (destination == kNowhere) return;
  if (destination != 0) fd = destination;
  const KeepErrno keep;
  if (confined()) {
    sys::write_regardless(fd, data, size);
  } else if (waits_for_readers) {
    sys::write_quietly(fd, data, size);
  } else {
    write_where_there_is_room(fd, data, size);
  }
}

}  // namespace

constinit MessageWriter message_writer = write_to_descriptor;
constinit MessageKeeper message_keeper = nullptr;
constinit TroubleListener trouble_listener = nullptr;

void write_messages_without_waiting() {
  waits_for_readers = false;
}

void write_message(int fd, const Text& text) {
  if (message_keeper != nullptr && message_keeper(fd, text)) return;
  message_writer(fd, text.data(), text.size());
}

void settle_messages() {
  const char* wanted = environment("QUARL_MESSAGES");
  if (wanted == nullptr || *wanted == '\0') return;
  if (strcmp(wanted, "stdout") == 0) {
    destination = kStdout;
  } else if (strcmp(wanted, "stderr") == 0) {
    destination = kStderr;
  } else if (strcmp(wanted, "none") == 0) {
    destination = kNowhere;
  } else {
    print(kStderr, "QUARL_MESSAGES is stdout, stderr or none, not %s\n", wanted);
  }
}

namespace {

using Message = TextBuffer<640>;

[[gnu::noinline]] void print_list(int fd, const char* pattern, va_list args) {
  Message text;
  text.format_list(pattern, args);
  write_message(fd, text);
}

[[gnu::noinline]] void tell_listener(Trouble trouble, const char* pattern, va_list args) {
  if (trouble_listener == nullptr) return;
  Message text;
  text.format_list(pattern, args).cut_line_end().terminate();
  trouble.text = text.data();
  trouble_listener(trouble);
}

}  // namespace

void print(int fd, const char* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  print_list(fd, pattern, args);
  va_end(args);
}

void print_failure(int fd, Trouble trouble, const char* pattern, ...) {
  va_list args;
  va_start(args, pattern);
  print_list(fd, pattern, args);
  tell_listener(trouble, pattern, args);
  va_end(args);
}

namespace {

// Who serves a connection (from inetd, or as inetd would) has it in the place of the standard descriptors: what is
// written there is said to the other end.
bool standard_error_is_connection() {
  const KeepErrno keep;
  struct stat64 in {};
  struct stat64 error {};
  return sys::stat_fd(kStdin, &in) && sys::stat_fd(kStderr, &error) && S_ISSOCK(error.st_mode) &&
         in.st_dev == error.st_dev && in.st_ino == error.st_ino;
}

}  // namespace

void write_to_standard_error(const Text& text) {
  if (keeps_libc_promises() && standard_error_is_connection()) return;
  message_writer(kStderr, text.data(), text.size());
}

void print_trouble(bool* told, Trouble trouble, const char* pattern, ...) {
  if (confined()) return;
  const bool quiet = keeps_libc_promises();
  va_list args;
  va_start(args, pattern);
  tell_listener(trouble, pattern, args);
  const bool silent = quiet && (standard_error_is_connection() || __atomic_exchange_n(told, true, __ATOMIC_RELAXED));
  if (!silent) print_list(quiet ? kStderr : kStdout, pattern, args);
  va_end(args);
}

}  // namespace quarl
