// Checked access to the one-based alert list of the World (the site list's is inline).
#include "startup/World.h"

#include "vb/Failure.h"

namespace startup {

Alert& World::alert(int i) {
  if (i < 1 || i > alertCount || static_cast<size_t>(i) >= alerts.size()) {
    vb::Raise(vb::kSubscript);
  }
  return alerts[static_cast<size_t>(i)];
}

const Alert& World::alert(int i) const { return const_cast<World*>(this)->alert(i); }

}  // namespace startup
