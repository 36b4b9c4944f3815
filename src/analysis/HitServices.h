// The service that the hit processing calls when it opens a visit and that a front-end may
// replace: alert matching. The default matches the site's alert definitions (AlertMatching.h).
// (Host names come from the hit processing's reverse DNS, ReverseDns.h.)
#pragma once

#include <cstdint>

#include "database/Visit.h"
#include "startup/World.h"

namespace analysis {

class HitServices {
 public:
  virtual ~HitServices() = default;

  // The one-based index, in the whole alert list, of the first enabled alert definition of
  // `siteIndex` that matches the newly opened `visit`, or 0. Default: analysis::MatchAlert.
  virtual int16_t MatchAlert(const startup::World& world, int16_t siteIndex,
                             const database::Visit& visit);
};

}  // namespace analysis
