// SPDX-License-Identifier: Apache-2.0
#include "damage.h"

static uint64_t state;

void seed_random(uint32_t seed, uint32_t round) {
  state = ((uint64_t)seed << 32 | round) * 0x9E3779B97F4A7C15u + 0xD1B54A32D192ED03u;
  for (int i = 0; i < 4; ++i) draw_word();
}

uint32_t draw_word(void) {
  state = state * 6364136223846793005u + 1442695040888963407u;
  uint64_t mixed = state ^ state >> 29;
  return (uint32_t)(mixed * 0xBF58476D1CE4E5B9u >> 32);
}

uint32_t draw(uint32_t below) {
  return (uint32_t)((uint64_t)draw_word() * below >> 32);
}
