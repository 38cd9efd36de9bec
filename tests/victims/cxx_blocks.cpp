// SPDX-License-Identifier: Apache-2.0
// Blocks by every way in: operator new and delete, malloc and free, the aligned family, on several threads.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

static void churn() {
  std::vector<char*> blocks;
  for (int i = 0; i < 3000; ++i) {
    blocks.push_back(static_cast<char*>(malloc(i * 7 + 1)));
    blocks.back()[0] = 1;
    auto* text = new std::string(i % 5000, 'y');
    if (i % 3 != 0) delete text;
  }
  for (char* block : blocks) free(block);
  void* aligned = nullptr;
  if (posix_memalign(&aligned, 1 << 16, 2000000) != 0) abort();
  free(aligned);
  free(realloc(aligned_alloc(4096, 1500000), 3000000));
  free(reallocarray(nullptr, 3, 7));
  free(calloc(1000, 300));
}

int main() {
  std::map<int, std::string> entries;
  for (int i = 0; i < 20000; ++i) entries[i] = std::string(i % 300, 'x');
  std::vector<std::thread> threads(4);
  for (auto& thread : threads) thread = std::thread(churn);
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < 20000; i += 2) entries.erase(i);
  printf("%u\n", static_cast<unsigned>(entries.size()));
}
