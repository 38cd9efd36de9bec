// SPDX-License-Identifier: Apache-2.0
// Messages: formatted into a buffer on the stack, written at once with one write. Never enters the application's
// stdio, keeps errno, allocates nothing, raises no SIGPIPE: safe in a signal handler and under the hook lock.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace quarl {

inline constexpr int kStdin = 0;
inline constexpr int kStdout = 1;
inline constexpr int kStderr = 2;

// A bounded text: what does not fit is cut. Conversions: %d %u %x %s %p %c %%, with l, ll, '-', '0' and a width.
class Text {
 public:
  Text(char* data, size_t capacity) : data_(data), capacity_(capacity) {}
  [[gnu::format(printf, 2, 3)]] Text& format(const char* pattern, ...);
  Text& format_list(const char* pattern, va_list args);
  const char* data() const { return data_; }
  size_t size() const { return size_; }
  Text& cut_line_end();
  void terminate();  // puts a NUL behind the text, cutting a last character when it is full

 private:
  struct Conversion;
  void put(char c) {
    if (size_ < capacity_) data_[size_++] = c;
  }
  void put_padded(const char* text, size_t length, const Conversion& conversion);
  void put_number(unsigned long long value, bool negative, const Conversion& conversion);
  const char* convert(const char* at, va_list* args);

  char* data_;
  size_t capacity_;
  size_t size_ = 0;
};

template <size_t kCapacity>
class TextBuffer : public Text {
 public:
  TextBuffer() : Text(storage_, kCapacity) {}

 private:
  char storage_[kCapacity];
};

// Tests swap the writer; the default one writes to the descriptor.
using MessageWriter = void (*)(int fd, const char* data, size_t size);
extern MessageWriter message_writer;

// Takes a message that is to be written later; false when it is to be written now. Null: nobody takes any.
using MessageKeeper = bool (*)(int fd, const Text& text);
extern MessageKeeper message_keeper;

void write_message(int fd, const Text& text);

// From now on no message waits longer than a second for whoever reads it, and what nobody reads is lost: the process
// ends.
void write_messages_without_waiting();

// What the checker says of its own accord on standard error, at once: nowhere when that is a connection of the
// program's.
void write_to_standard_error(const Text& text);

// Messages of at most 640 characters; longer ones are built in a TextBuffer of their own.
[[gnu::format(printf, 2, 3)]] void print(int fd, const char* pattern, ...);

// What the checker could not do, and why, besides what it prints about it.
struct Trouble {
  const char* what;            // the part of the checker
  const char* path = nullptr;  // the file that it is about
  int error = 0;               // an errno
  const char* text = nullptr;  // as printed
};

// Hears of every trouble; null: nobody does.
using TroubleListener = void (*)(const Trouble& trouble);
extern TroubleListener trouble_listener;

// A message that tells of trouble.
[[gnu::format(printf, 3, 4)]] void print_failure(int fd, Trouble trouble, const char* pattern, ...);

// What goes wrong with the checker's own files and timer: on standard output. Where that is the program's
// (libc_hooks.h), on standard error, and only the first time in the process, of which `told` keeps account (a forked
// child goes on with its parent's); nowhere when that is a connection of the program's.
[[gnu::format(printf, 3, 4)]] void print_trouble(bool* told, Trouble trouble, const char* pattern, ...);

// Reads QUARL_MESSAGES, which says where all messages go: "stdout", "stderr" or "none". Once, by the constructor; what
// is printed before goes where it always does.
void settle_messages();

}  // namespace quarl
