// SPDX-License-Identifier: Apache-2.0
// Vectors of 16 bytes, read and written by instructions that fault where they are not aligned (i686: movaps), in blocks
// of every origin and size, in the main thread and in others. Prints how many vectors it has looked at.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <list>
#include <map>
#include <thread>
#include <vector>

namespace {

typedef float Vector __attribute__((vector_size(16)));

struct Part {
  char name;
  Vector place;
};

unsigned long looked_at = 0;

void expect(bool holds) {
  if (!holds) abort();
}

// Volatile: each is one instruction on a whole vector.
void put(void* block, unsigned count, float value) {
  auto* vectors = static_cast<volatile Vector*>(block);
  for (unsigned i = 0; i < count; ++i) vectors[i] = Vector{value, static_cast<float>(i), value, value};
}

void look(void* block, unsigned count, float value) {
  auto* vectors = static_cast<volatile Vector*>(block);
  for (unsigned i = 0; i < count; ++i) {
    const Vector vector = vectors[i];
    expect(vector[0] == value && vector[1] == static_cast<float>(i));
  }
  __atomic_fetch_add(&looked_at, count, __ATOMIC_RELAXED);
}

// A block with that many vectors in it.
void* filled(void* block, unsigned count) {
  expect(block != nullptr && reinterpret_cast<size_t>(block) % alignof(max_align_t) == 0);
  expect(malloc_usable_size(block) >= count * sizeof(Vector));
  put(block, count, 3);
  return block;
}

// Grown and cut, from and to what is a mapping of its own.
void resize(void* block, unsigned count) {
  look(block, count, 3);
  for (unsigned factor : {3, 7, 2, 1}) {
    block = realloc(block, count * factor * sizeof(Vector) + factor);
    expect(block != nullptr);
    look(block, count, 3);
    put(block, count * factor, 3);
  }
  free(block);
}

void every_way(unsigned count) {
  const size_t size = count * sizeof(Vector);
  resize(filled(malloc(size), count), count);
  resize(filled(calloc(count, sizeof(Vector)), count), count);
  resize(filled(realloc(nullptr, size), count), count);
  resize(filled(reallocarray(nullptr, count, sizeof(Vector)), count), count);
  resize(filled(realloc(malloc(0), size), count), count);
  resize(filled(realloc(calloc(0, 5), size), count), count);
  resize(filled(realloc(memalign(64, 0), size), count), count);
  resize(filled(memalign(32, size), count), count);
  resize(filled(aligned_alloc(16, size), count), count);
  resize(filled(valloc(size), count), count);
  void* block = nullptr;
  expect(posix_memalign(&block, sizeof(void*), size) == 0);
  resize(filled(block, count), count);
  auto* vectors = new Vector[count];
  look(filled(vectors, count), count, 3);
  delete[] vectors;
}

void containers() {
  std::vector<Vector> vectors;
  std::list<Part> parts;
  std::map<int, Part> tree;
  for (int i = 0; i < 3000; ++i) {
    const Vector vector{1, static_cast<float>(i), 3, 4};
    vectors.push_back(vector);
    parts.push_back({'p', vector});
    tree[i * 7 % 1000] = {'t', vector};
    if (i % 3 == 0) parts.pop_front();
  }
  for (const Part& part : parts) expect(part.place[0] == 1);
  for (const auto& [number, part] : tree) expect(part.place[2] == 3 && part.name == 't');
  expect(vectors[2999][1] == 2999);
}

void work() {
  for (unsigned count = 1; count < 40; ++count) every_way(count);
  for (unsigned count = 40; count < 30000; count = count * 2 + 1) every_way(count);
  containers();
}

}  // namespace

int main() {
  work();
  std::thread threads[2];
  for (auto& thread : threads) thread = std::thread(work);
  for (auto& thread : threads) thread.join();
  printf("%lu\n", looked_at);
}
