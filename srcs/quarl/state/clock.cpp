#include "state/clock.h"

#include <sys/time.h>
#include <time.h>

namespace quarl {

constinit int clock_sec = 0;
constinit int clock_usec = 0;
constinit uint32_t last_seq_num = 0;
constinit uint32_t inherited_seq_num = 0;

void read_clock() {
  struct timeval now {};
  gettimeofday(&now, nullptr);
  clock_sec = static_cast<int>(now.tv_sec);
  clock_usec = static_cast<int>(now.tv_usec);
}

uint32_t seconds_now() {
  return static_cast<uint32_t>(time(nullptr));
}

}  // namespace quarl
