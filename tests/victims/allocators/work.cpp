// SPDX-License-Identifier: Apache-2.0
// Takes and releases blocks by every way that a program has: on its own, by C++, by the C library, on several threads.
// With an argument it writes a byte behind a block of malloc and releases it. Prints "done" at its end.
//
// SPARING: what a program must not do whose allocator has no realloc of its own.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

void expect(bool holds) {
  if (!holds) abort();
}

void aligned(std::size_t size) {
  void* block = nullptr;
  expect(posix_memalign(&block, 256, size) == 0);
  free(block);
  free(aligned_alloc(64, size));
  free(memalign(4096, size));
  free(valloc(size));
  free(pvalloc(size));
}

void resized(std::size_t size) {
#ifndef SPARING
  char* block = static_cast<char*>(malloc(size));
  memset(block, 'r', size);
  block = static_cast<char*>(reallocarray(block, size, 3));
  expect(block[0] == 'r' && block[size - 1] == 'r' && malloc_usable_size(block) >= 3 * size);
  block = static_cast<char*>(realloc(block, size / 2 + 1));
  expect(block[size / 2] == 'r');
  free(block);
  free(reallocarray(nullptr, 5, size));
#else
  (void)size;
#endif
}

void cleared(std::size_t size) {
  char* block = static_cast<char*>(calloc(3, size));
  for (std::size_t i = 0; i < 3 * size; ++i) expect(block[i] == 0);
  memset(block, 'c', 3 * size);
  free(block);
}

void by_the_c_library(std::size_t size) {
  std::string text(size, 't');
  char* copy = strdup(text.c_str());
  expect(copy == text);
  free(copy);
#ifndef SPARING
  char* written = nullptr;
  expect(asprintf(&written, "%s %s", text.c_str(), text.c_str()) == static_cast<int>(2 * size + 1));
  free(written);
  char* line = nullptr;
  std::size_t room = 0;
  FILE* file = fmemopen(text.data(), size, "r");
  expect(getline(&line, &room, file) == static_cast<ssize_t>(size));
  fclose(file);
  free(line);
#endif
}

void work() {
  std::vector<std::unique_ptr<std::string>> kept;
  for (std::size_t size = 1; size < 400000; size = size * 3 / 2 + 1) {
    kept.push_back(std::make_unique<std::string>(size, 'k'));
    aligned(size);
    resized(size);
    cleared(size);
    by_the_c_library(size);
    if (size % 3 == 0) kept.clear();
  }
}

}  // namespace

int main(int argc, char**) {
  if (argc > 1) {
    char* volatile block = static_cast<char*>(malloc(24));
    block[24] = 1;
    free(block);
  }
  std::thread threads[3];
  for (auto& thread : threads) thread = std::thread(work);
  for (auto& thread : threads) thread.join();
  work();
  puts("done");
}
