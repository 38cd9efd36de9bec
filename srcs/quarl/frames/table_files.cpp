// SPDX-License-Identifier: Apache-2.0
#include "frames/table_files.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>

#include "platform/environment.h"
#include "platform/print.h"
#include "platform/system.h"
#include "unwind.h"

namespace quarl {
namespace {

constexpr size_t kPathSize = 4096;
constexpr size_t kMaxTables = 256;
constexpr size_t kMaxRefused = 64;
constexpr int64_t kMaxTableSize = 64 << 20;

constinit char folder[kPathSize] = "";  // ends in a slash
constinit FrameTable tables[kMaxTables]{};
constinit size_t table_count = 0;
constinit AddressRange span{};

// What was refused is told once, however often a library is opened.
constinit uint32_t refused[kMaxRefused]{};
constinit size_t refused_count = 0;

uint32_t name_of(const LoadedObject& object) {
  return table_checksum(object.id, sizeof object.id);
}
bool was_refused(const LoadedObject& object) {
  for (size_t i = 0; i < refused_count; ++i) {
    if (refused[i] == name_of(object)) return true;
  }
  return refused_count == kMaxRefused;
}

void put_file_name(const LoadedObject& object, Text* path) {
  path->format("%s%s", folder, object.id_kind == kTextId ? "text-" : "");
  for (int i = 0; i < object.id_size; ++i) path->format("%02x", object.id[i]);
  path->format(".frames").terminate();
}

void* map_file(int fd, size_t size) {
  void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  return data != MAP_FAILED ? data : nullptr;
}

bool is_table_of(const LoadedObject& object, const void* data, size_t size, const char* path) {
  FrameTable table;
  const FrameTable::Answer answer = table.check(data, size, frame::kElfMachine);
  if (answer == FrameTable::kOtherVersion) {
    print_failure(kStderr, {"frames", path}, "unwind table %s is of another version, it is not used\n", path);
  } else if (answer != FrameTable::kSound || !table.is_for(object.id_kind, object.id, object.id_size)) {
    print_failure(kStderr, {"frames", path}, "unwind table %s is damaged, it is not used\n", path);
  } else {
    tables[table_count] = table;
    return true;
  }
  return false;
}

void widen_span(const AddressRange& range) {
  const uint32_t end =
      span.start + span.size > range.start + range.size ? span.start + span.size : range.start + range.size;
  if (span.size == 0 || range.start < span.start) span.start = range.start;
  span.size = end - span.start;
}

const FrameTable* take_file(const LoadedObject& object, int fd, const char* path) {
  struct stat64 info {};
  if (!sys::stat_fd(fd, &info) || !S_ISREG(info.st_mode) || info.st_size > kMaxTableSize) return nullptr;
  const auto size = static_cast<size_t>(info.st_size);
  void* data = size > 0 ? map_file(fd, size) : nullptr;
  if (size > 0 && data == nullptr) return nullptr;
  if (is_table_of(object, data, size, path)) {
    widen_span({address_of(data), static_cast<uint32_t>(size)});
    return &tables[table_count++];
  }
  if (data != nullptr) munmap(data, size);
  refused[refused_count++] = name_of(object);
  return nullptr;
}

const FrameTable* mapped_before(const LoadedObject& object) {
  for (size_t i = 0; i < table_count; ++i) {
    if (tables[i].data() != nullptr && tables[i].is_for(object.id_kind, object.id, object.id_size)) return &tables[i];
  }
  return nullptr;
}

}  // namespace

// A program may leave the directory in which it began.
bool settle_table_folder() {
  const char* named = environment("QUARL_FRAMES");
  if (named == nullptr || named[0] == '\0') return false;
  Text path(folder, sizeof folder);
  if (named[0] != '/') {
    static char current[kPathSize];
    if (sys::current_directory(current, sizeof current) > 1) path.format("%s/", current);
  }
  path.format("%s/", named).terminate();
  return true;
}

const FrameTable* table_of(const LoadedObject& object) {
  if (const FrameTable* known = mapped_before(object)) return known;
  if (object.id_size == 0 || table_count == kMaxTables || was_refused(object)) return nullptr;
  static char path[kPathSize];  // not on a stack that may be a small thread's
  Text text(path, sizeof path);
  put_file_name(object, &text);
  const int fd = sys::open(path, O_RDONLY);
  if (fd < 0) return nullptr;
  const FrameTable* table = take_file(object, fd, path);
  sys::close(fd);
  return table;
}

AddressRange tables_span() {
  return span;
}

bool table_lies_in(const FrameTable& table, const AddressRange& range) {
  return range.overlaps({address_of(table.data()), table.size()});
}

void forget_tables_in(const AddressRange& range) {
  for (size_t i = 0; i < table_count; ++i) {
    if (tables[i].data() != nullptr && table_lies_in(tables[i], range)) tables[i] = FrameTable();
  }
}

}  // namespace quarl
