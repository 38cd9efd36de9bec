// SPDX-License-Identifier: Apache-2.0
#include "state/held_text.h"

#include <string.h>

#include "state/own_memory.h"

namespace quarl {

struct HeldText {
  HeldText* next;
  int fd;
  size_t size;
  char data[];
};

namespace {

constexpr int kMostHeld = 64;  // a mapping each; more are written under the lock

constinit HeldText* first_text GUARDED_BY(hook_mutex) = nullptr;

size_t bytes_for(size_t text_size) {
  return sizeof(HeldText) + text_size;
}

HeldText* make_held(int fd, const Text& text) {
  void* memory = map_own(bytes_for(text.size()));
  if (memory == MAP_FAILED) return nullptr;
  auto* held = static_cast<HeldText*>(memory);
  held->fd = fd;
  held->size = text.size();
  memcpy(held->data, text.data(), text.size());
  return held;
}

// By one store: a signal handler of the application that interrupts it may call exit, and the destructor goes on here.
bool append(HeldText* held) REQUIRES(hook_mutex) {
  HeldText** end = &first_text;
  int count = 0;
  for (; *end != nullptr; end = &(*end)->next) ++count;
  *end = held;
  return count < kMostHeld;
}

bool hold(int fd, const Text& text) {
  if (!hook_mutex.held_by_this_thread()) return false;
  hook_mutex.assert_held();
  HeldText* held = make_held(fd, text);
  if (held == nullptr || !append(held)) write_held_texts(take_held_texts());
  hook_mutex.leave_for_release(kPendingTexts);
  return held != nullptr;
}

HeldText* drop_first(HeldText* text) {
  HeldText* next = text->next;
  unmap_own(text, bytes_for(text->size));
  return next;
}

}  // namespace

void hold_texts() {
  message_keeper = hold;
}

void write_at_once(const Text& text) {
  write_held_texts(take_held_texts());
  message_writer(kStdout, text.data(), text.size());
}

HeldText* take_held_texts() {
  HeldText* texts = first_text;
  first_text = nullptr;
  return texts;
}

void write_held_texts(HeldText* texts) {
  while (texts != nullptr) {
    message_writer(texts->fd, texts->data, texts->size);
    texts = drop_first(texts);
  }
}

void drop_held_texts(HeldText* texts) {
  while (texts != nullptr) texts = drop_first(texts);
}

}  // namespace quarl
