// The process-wide state of one run: everything start-up loads, in one object that is created by
// `Main` (or by a test) and passed by reference to every part of the system that reads it.
//
// A World is neither copyable nor movable: the error log refers to the data folder inside it.
// Create it with std::make_unique (as `Main` does) or on the stack in a test.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/Clock.h"
#include "startup/AppState.h"
#include "startup/ErrorLog.h"
#include "startup/ExceptionCatalogue.h"
#include "startup/ReferenceTables.h"
#include "startup/RobotList.h"
#include "startup/Settings.h"
#include "startup/Sites.h"
#include "vb/Failure.h"

namespace startup {

struct World {
  explicit World(const platform::Clock& clock) : clock(clock), errors(clock, app.dataFolder) {}
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // The injected clock ("now" and the zone offset).
  const platform::Clock& clock;

  AppState app;
  AppSettings settings;

  // Sites 1..siteCount (slot 0 unused; LoadSites makes 151 slots); see Sites.h.
  std::vector<Site> sites{Site{}};
  int16_t siteCount = 0;
  // Alerts 1..alertCount (slot 0 is a scratch slot); see Sites.h.
  std::vector<Alert> alerts{Alert{}};
  int16_t alertCount = 0;

  ReferenceTables tables;
  ExceptionCatalogue exceptions;
  RobotList robots;

  // Declared after `app`, whose data folder it reads.
  ErrorLog errors;

  // Site i, 1 <= i <= siteCount. Throws vb::Failure(9) "Subscript out of range" otherwise.
  // Inline: the hit processing asks for its site on every line.
  Site& site(int i) {
    if (i < 1 || i > siteCount || static_cast<size_t>(i) >= sites.size()) [[unlikely]]
      vb::Raise(vb::kSubscript);
    return sites[static_cast<size_t>(i)];
  }
  const Site& site(int i) const { return const_cast<World*>(this)->site(i); }
  // Alert i, 1 <= i <= alertCount. Throws vb::Failure(9) otherwise.
  Alert& alert(int i);
  const Alert& alert(int i) const;
};

}  // namespace startup
