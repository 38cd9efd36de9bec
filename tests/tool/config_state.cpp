// SPDX-License-Identifier: Apache-2.0
// Tells what the tool believes in after each configuration file that it is given: the settings, what the effects of the
// items come to, and what the check has found. test_state.py compares it with the memory of a process.
#include <fmt/format.h>

#include <set>

#include "items/config_check.h"

namespace {

using quarl::Effect;
using quarl::ItemState;

// Signals 9 and 19 take no handler, the C library keeps 32 and 33, and others than these do not exist.
bool takes_handler(int signal) {
  return signal >= 1 && signal <= 64 && signal != 9 && signal != 19 && signal != 32 && signal != 33;
}

// The timer keeps the signal that it was started with.
int running_signal(const ItemState& state) {
  const ItemState::Setting &interval = *state.find("QUARL_TIME_INTERVAL"), &signal = *state.find("QUARL_TIMER_SIG");
  const bool late = interval.line > 0 && signal.line > interval.line;
  return late ? quarl::kDefaultTimerSignal : signal.effect.number;
}

std::set<int> handled_signals(const ItemState& state) {
  std::set<int> signals;
  for (const quarl::ItemRow& row : quarl::kItemRows) {
    const ItemState::Setting* setting = state.find(row.key);
    if (setting == nullptr) continue;
    const Effect& effect = setting->effect;
    const bool dumps = effect.kind == Effect::kHandleDumpSignal || effect.kind == Effect::kOfferDumpSignal;
    const bool handler = dumps || effect.kind == Effect::kHandleCheckSignal;
    if (handler && takes_handler(effect.number)) signals.insert(effect.number);
  }
  // There before the timer is armed, also when that fails.
  const bool timer = state.find("QUARL_TIME_INTERVAL")->effect.kind == Effect::kStartTimer;
  if (timer && takes_handler(running_signal(state))) signals.insert(running_signal(state));
  return signals;
}

void tell(const char* path) {
  const quarl::ConfigReport report(quarl::slurp(path));
  const ItemState& state = report.state;
  const quarl::Settings& settings = state.settings();
  fmt::print("file {}\n", path);
  fmt::print("cfg_flags {}\nslop_flags {}\nstack_depth {}\n", settings.cfg_flags, settings.slop_flags,
             settings.stack_depth);
  fmt::print("maps_size_kb {}\ntrace_buf_size {}\n", settings.maps_size_kb, settings.trace_buf_size);
  fmt::print("snap_detail {}\nsnap_interval {}\n", settings.snap_detail, settings.snap_interval);
  fmt::print("dump_signal {}\ncheck_signal {}\n", settings.dump_signal, settings.check_signal);
  fmt::print("timer_clock_on {}\nrandom_seeded {}\n", settings.timer_clock_on, settings.random_seeded);
  fmt::print("qr_sig_num {}\nQR_TRACE_MMAP {}\n", state.timer_signal(), state.on("QUARL_MMAP") ? 1 : 0);
  for (int signal : handled_signals(state)) fmt::print("handles {}\n", signal);
  for (const quarl::Finding& finding : report.findings) fmt::print("finding {}\n", finding.text);
}

}  // namespace

int main(int count, char** paths) {
  for (int i = 1; i < count; ++i) tell(paths[i]);
  return 0;
}
