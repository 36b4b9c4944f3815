// The services that the hit processing calls when it opens a visit and that a front-end may
// replace: alert matching and host-name resolution. The defaults match the site's alert
// definitions (AlertMatching.h) and take the host name from the DNS cache of the database, else
// the address itself (no reverse look-up is made: a resolver overrides ResolveHost).
#pragma once

#include <cstdint>
#include <string>

#include "database/F.h"
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

  // The host name to store for the newly opened `visit` (its client address is set). May start a
  // reverse look-up whose answer arrives later. Default: the name the DNS cache of `f` knows for
  // the address (also setting the visit's friendly name from it), else the address trimmed of
  // blanks. Never throws.
  virtual std::string ResolveHost(database::Visit& visit, database::F& f);

  // Times a host name was answered from the DNS cache (end-of-run statistics).
  int32_t cacheHits = 0;
};

}  // namespace analysis
