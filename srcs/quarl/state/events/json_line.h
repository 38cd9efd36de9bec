// SPDX-License-Identifier: Apache-2.0
// One line of JSON, built in place: an object whose values are appended one behind the other. What does not fit is left
// out whole, or cut where the function says so, so that the line is always valid. Pure; safe in a signal handler.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarl {

class JsonLine {
 public:
  static constexpr size_t kMost = 4095;  // bytes of a line with its line end

  // Begins the object anew.
  void begin();

  JsonLine& number(const char* key, uint64_t value);
  JsonLine& integer(const char* key, int64_t value);  // may be negative
  JsonLine& time(const char* key, uint64_t seconds, uint32_t microseconds);
  JsonLine& flag(const char* key, bool value);
  JsonLine& address(const char* key, uint32_t value);
  // Bytes of memory, by their digits.
  JsonLine& bytes(const char* key, const void* data, size_t size);
  // Cut at its end so that it takes no more than `most` bytes. Null and "" are left out.
  JsonLine& text(const char* key, const char* value, size_t most = kMost);

  // What is appended from here on stands in it, until it is closed. A null key: an element of an array.
  JsonLine& open_object(const char* key = nullptr) { return open(key, '{', '}'); }
  JsonLine& open_array(const char* key) { return open(key, '[', ']'); }
  JsonLine& close();

  // Frames, without a key elements of an array. False when there is no room for one more.
  bool frame(uint32_t module, uint32_t offset, const char* key = nullptr);
  bool frame_outside(uint32_t address, const char* key = nullptr);

  // The finished line; of no more than kMost bytes.
  const char* finish(size_t* size);

 private:
  static constexpr int kDeepest = 6;

  JsonLine& open(const char* key, char opening, char closing);
  bool begin_value(const char* key);
  bool end_value();
  void put(char c);
  void put_text(const char* text);
  void put_number(uint64_t value, unsigned base, int digits = 1);
  void put_escaped(unsigned char byte);
  size_t put_character(const unsigned char* at);
  void put_cut(const char* value, size_t most);

  char data_[kMost + 1] = {};
  size_t size_ = 0;
  size_t value_start_ = 0;
  size_t limit_ = 0;  // of the value that is being put
  bool whole_ = false;
  char closers_[kDeepest] = {};
  int depth_ = 0;
  int left_out_ = 0;  // objects and arrays that were opened and are not there
};

}  // namespace quarl
