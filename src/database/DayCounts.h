// The counts of one site's day that its "DaySum" record holds (see DaySummary.cpp for the
// record's layout). The hit analysis keeps them while the day lasts.
#pragma once

#include <cstdint>

namespace database {

struct DayCounts {
  int32_t visitors = 0;    // visits opened that day
  int32_t alerts = 0;      // visits that matched an alert definition
  int32_t spiders = 0;     // spider visits
  int32_t exceptions = 0;  // exceptions recorded
  int32_t downloads = 0;   // downloads recorded
};

}  // namespace database
