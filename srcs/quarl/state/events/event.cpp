// SPDX-License-Identifier: Apache-2.0
#include "state/events/event.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "platform/environment.h"
#include "platform/libc_hooks.h"
#include "platform/mapped_object.h"
#include "platform/print.h"
#include "platform/unloading.h"
#include "state/events/event_file.h"
#include "state/events/event_lock.h"
#include "state/events/event_modules.h"
#include "state/events/trouble_event.h"
#include "state/version.h"

namespace quarl {

constinit bool detail::events_on = false;

namespace {

constexpr int kVersion = 1;

constinit EventFile file GUARDED_BY(event_lock);
constinit EventModules modules GUARDED_BY(event_lock);
constinit JsonLine event_line GUARDED_BY(event_lock);
constinit JsonLine module_line GUARDED_BY(event_lock);  // told while the other is under construction
constinit EventModules::Frame frames[EventModules::kMostFrames] GUARDED_BY(event_lock){};
constinit bool whole GUARDED_BY(event_lock) = false;  // nothing that the line refers to is missing
constinit bool loaded_told GUARDED_BY(event_lock) = false;
constinit int process GUARDED_BY(event_lock) = 0;  // whose modules are known
constinit int home GUARDED_BY(event_lock) = 0;     // whose memory this is
constinit int parent GUARDED_BY(event_lock) = 0;   // that it was forked from
constinit Describer describe_configuration = nullptr;

constinit uint32_t dropped = 0;                              // since the last line that was written
constinit uint32_t dropped_told GUARDED_BY(event_lock) = 0;  // of these, in the line that is being built

void begin_line(JsonLine& line, const char* kind) REQUIRES(event_lock) {
  const sys::TimeOfDay now = sys::time_of_day();
  line.begin();
  line.number("v", kVersion).text("event", kind);
  line.number("pid", static_cast<uint32_t>(process)).number("tid", static_cast<uint32_t>(pthread_self_pid()));
  line.time("time", static_cast<uint32_t>(now.seconds), static_cast<uint32_t>(now.microseconds));
}

bool send_line(JsonLine& line) REQUIRES(event_lock) {
  size_t size = 0;
  const char* text = line.finish(&size);
  return file.write(text, size);
}

bool send_module(uint32_t id, const char* path, const MappedObject& object, uint32_t address) REQUIRES(event_lock) {
  begin_line(module_line, "module");
  module_line.number("id", id).address("address", address).address("bias", object.bias);
  if (object.id_size != 0) module_line.bytes("build_id", object.id, object.id_size);
  module_line.text("path", path);
  return send_line(module_line);
}

const char* program_path() REQUIRES(event_lock) {
  static char path[4096];
  const long length = sys::read_link("/proc/self/exe", path, sizeof path - 1);
  path[length > 0 ? length : 0] = '\0';
  return path;
}

constexpr size_t kMostPath = 1500;

bool send_loaded() REQUIRES(event_lock) {
  begin_line(event_line, "loaded");
  event_line.text("version", quarl_version).text("target", QUARL_TARGET);
  event_line.text("contract", keeps_libc_promises() ? "libc" : "plain");
  const int forked_from = process == home ? parent : home;
  if (forked_from != 0) event_line.number("parent", static_cast<uint32_t>(forked_from));
  event_line.text("program", program_path(), kMostPath).text("frames", environment("QUARL_FRAMES"), kMostPath / 2);
  if (describe_configuration != nullptr) describe_configuration(event_line);
  return loaded_told = send_line(event_line);
}

// A child that no handler has told of its birth is known by its number. It may have its parent's memory (vfork), which
// comes back to it, and tells its own `loaded` again.
void become(int pid) REQUIRES(event_lock) {
  if (process == pid) return;
  process = pid;
  modules.begin_process();
  loaded_told = false;
  __atomic_store_n(&dropped, 0, __ATOMIC_RELAXED);
}

bool begin_telling() REQUIRES(event_lock) {
  become(getpid());
  return loaded_told || send_loaded();
}

bool begin_event(const char* kind) REQUIRES(event_lock) {
  if (!begin_telling()) return false;
  begin_line(event_line, kind);
  dropped_told = __atomic_load_n(&dropped, __ATOMIC_RELAXED);
  if (dropped_told != 0) event_line.number("dropped", dropped_told);
  return whole = true;
}

bool end_event() REQUIRES(event_lock) {
  if (!whole || !send_line(event_line)) return false;
  __atomic_fetch_sub(&dropped, dropped_told, __ATOMIC_RELAXED);
  return true;
}

void drop() {
  __atomic_fetch_add(&dropped, 1, __ATOMIC_RELAXED);
}

}  // namespace

Event::Event(const char* kind) NO_THREAD_SAFETY_ANALYSIS : held_(events_wanted()) {
  if (!events_wanted()) return;
  taken_ = event_lock.take();
  ready_ = taken_ && begin_event(kind);
  if (!ready_) drop();
}

Event::~Event() NO_THREAD_SAFETY_ANALYSIS {
  if (ready_ && !end_event()) drop();
  if (taken_) event_lock.release();
}

JsonLine& Event::line() const NO_THREAD_SAFETY_ANALYSIS {
  return event_line;
}

bool Event::resolve(const uint32_t* addresses, int count) const NO_THREAD_SAFETY_ANALYSIS {
  if (!ready_ || !whole || count <= 0) return false;
  whole = modules.resolve(addresses, count, send_module, frames);
  return true;
}

bool Event::put(int index, const char* key) const NO_THREAD_SAFETY_ANALYSIS {
  const EventModules::Frame& each = frames[index];
  return each.module != 0 ? event_line.frame(each.module, each.offset, key)
                          : event_line.frame_outside(each.offset, key);
}

void Event::trace(const char* key, const uint32_t* addresses, int count) const NO_THREAD_SAFETY_ANALYSIS {
  if (count > EventModules::kMostFrames) count = EventModules::kMostFrames;
  if (!resolve(addresses, count)) return;
  event_line.open_array(key);
  for (int i = 0; i < count && put(i, nullptr); ++i) continue;
  event_line.close();
}

void Event::frame(const char* key, uint32_t address) const {
  if (resolve(&address, 1)) put(0, key);
}

// A FIFO that nobody reads yet (ENXIO) is none of it.
void tell_unopened(const char* path) {
  print(kStderr, "QUARL_EVENTS %s: %s\n", path, error_text(errno));
}

void settle_events() NO_THREAD_SAFETY_ANALYSIS {
  const char* path = environment("QUARL_EVENTS");
  if (path == nullptr || *path == '\0') return;
  process = home = getpid();
  modules.begin_process();
  if (!file.settle(path) && errno != ENXIO) tell_unopened(path);
  detail::events_on = true;
  trouble_listener = tell_trouble;
  before_unloading = tell_modules;
}

bool tell_loaded(Describer describe) NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const HeldSignals held(events_wanted());
  if (!events_wanted() || !event_lock.take()) return true;
  describe_configuration = describe;
  become(getpid());
  const bool before = loaded_told;
  if (!before && !send_loaded()) drop();
  event_lock.release();
  return !before;
}

void tell_modules() NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const HeldSignals held(events_wanted());
  if (!events_wanted()) return;
  const bool taken = event_lock.take();
  if (!taken || !begin_telling() || !modules.tell_all(send_module)) drop();
  if (taken) event_lock.release();
}

void leave_parent_events() NO_THREAD_SAFETY_ANALYSIS {
  event_lock.reset_in_child();
  if (!events_wanted()) return;
  parent = home;
  home = getpid();
}

}  // namespace quarl
