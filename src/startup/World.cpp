// Checked access to the one-based site and alert lists of the World.
#include "startup/World.h"

#include "vb/Failure.h"

namespace startup {

Site& World::site(int i) {
  if (i < 1 || i > siteCount || static_cast<size_t>(i) >= sites.size()) vb::Raise(vb::kSubscript);
  return sites[static_cast<size_t>(i)];
}

const Site& World::site(int i) const { return const_cast<World*>(this)->site(i); }

Alert& World::alert(int i) {
  if (i < 1 || i > alertCount || static_cast<size_t>(i) >= alerts.size()) {
    vb::Raise(vb::kSubscript);
  }
  return alerts[static_cast<size_t>(i)];
}

const Alert& World::alert(int i) const { return const_cast<World*>(this)->alert(i); }

}  // namespace startup
