// SPDX-License-Identifier: Apache-2.0
// What ARM instructions do to the stack, whichever their encoding: ARM and Thumb decode into these.
#pragma once

#include <cstdint>

#include "frames/code/step.h"

namespace quarl::frames {

class ArmEffects {
 public:
  // `pc`: what the instruction reads as its own address.
  ArmEffects(const CodeAt& code, uint32_t pc, StackState& state) : code_(code), pc_(pc), state_(state) {}

  Step result;

  void set(unsigned reg, Value value);
  void forget(unsigned reg) { set(reg, {}); }
  void move(unsigned to, unsigned from);
  void add(unsigned to, unsigned from, int32_t number);
  void add_register(unsigned to, unsigned from, unsigned other, bool subtract);
  // Loads and stores with a distance: `write_back` leaves the changed address in `base`, `index_first` uses it.
  struct Place {
    unsigned base;
    int32_t distance;
    bool index_first, write_back;
  };
  void load(unsigned reg, Place place);
  void store(unsigned reg, Place place);
  void load_pair(unsigned reg, unsigned second, Place place);
  void store_pair(unsigned reg, unsigned second, Place place);
  // Narrower than a word, or of the coprocessors: what is stored counts as unknown, what is loaded goes elsewhere.
  void access(Place place, uint32_t size, bool stores);
  // ldm, stm, push, pop. `increment`, `before` as in the instruction.
  void load_many(unsigned base, uint32_t registers, bool increment, bool before, bool write_back);
  void store_many(unsigned base, uint32_t registers, bool increment, bool before, bool write_back);
  void jump(Flow flow, uint32_t target, bool thumb);
  void jump_register(unsigned reg);
  void call_register();
  void system_call();
  void stop() { result.flow = Flow::kStop; }

 private:
  Value address(Place place) const;
  void write_back(Place place);
  void to_pc(const Value& value);

  const CodeAt& code_;
  uint32_t pc_;
  StackState& state_;
};

}  // namespace quarl::frames
