#include "state/held_text.h"

#include <string.h>

#include "state/own_memory.h"

namespace quarl {

struct HeldText {
  HeldText* next;
  size_t size;
  char data[];
};

namespace {

constinit HeldText* first_text GUARDED_BY(hook_mutex) = nullptr;
constinit HeldText* last_text GUARDED_BY(hook_mutex) = nullptr;

size_t page_size(size_t text_size) {
  return sizeof(HeldText) + text_size;
}

HeldText* make_held(const Text& text) {
  void* memory = map_own(page_size(text.size()));
  if (memory == MAP_FAILED) return nullptr;
  auto* held = static_cast<HeldText*>(memory);
  held->size = text.size();
  memcpy(held->data, text.data(), text.size());
  return held;
}

void append(HeldText* held) REQUIRES(hook_mutex) {
  (first_text == nullptr ? first_text : last_text->next) = held;
  last_text = held;
  hook_mutex.leave_for_release(kPendingTexts);
}

void write_what_this_thread_holds() {
  if (!hook_mutex.held_by_this_thread()) return;
  hook_mutex.assert_held();
  write_held_texts(take_held_texts());
}

}  // namespace

void hold_text(const Text& text) {
  HeldText* held = hook_mutex.held_by_this_thread() ? make_held(text) : nullptr;
  if (held == nullptr) return write_message(kStdout, text);
  hook_mutex.assert_held();
  append(held);
}

void hold_print(const char* pattern, ...) {
  TextBuffer<640> text;
  va_list args;
  va_start(args, pattern);
  text.format_list(pattern, args);
  va_end(args);
  hold_text(text);
}

HeldText* take_held_texts() {
  HeldText* texts = first_text;
  first_text = last_text = nullptr;
  return texts;
}

namespace {

HeldText* drop_first(HeldText* text) {
  HeldText* next = text->next;
  unmap_own(text, page_size(text->size));
  return next;
}

}  // namespace

void write_held_texts(HeldText* texts) {
  while (texts != nullptr) {
    message_writer(kStdout, texts->data, texts->size);
    texts = drop_first(texts);
  }
}

void drop_held_texts(HeldText* texts) {
  while (texts != nullptr) texts = drop_first(texts);
}

void keep_texts_in_order() {
  before_message = write_what_this_thread_holds;
}

}  // namespace quarl
