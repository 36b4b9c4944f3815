// The local seconds-since-midnight clock.
#include "wizard/RunTimer.h"

#include <sys/time.h>
#include <time.h>

namespace wizard {

float SystemRunTimer::Seconds() const {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  time_t secs = tv.tv_sec;
  tm local{};
  localtime_r(&secs, &local);
  double s = local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec + tv.tv_usec / 1e6;
  return static_cast<float>(s);
}

}  // namespace wizard
