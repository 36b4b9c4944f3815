// What the visitor database reads from the run (see DatabaseInputs.h).
#include "database/DatabaseInputs.h"

#include <algorithm>
#include <cstddef>

#include "dbase/Table.h"
#include "startup/World.h"
#include "vb/Failure.h"

namespace database {

const startup::Site& DatabaseInputs::site(int i) const {
  if (i < 1 || i > siteCount || static_cast<size_t>(i) >= sites.size()) vb::Raise(vb::kSubscript);
  return sites[static_cast<size_t>(i)];
}

uint64_t DatabaseInputs::TableSizeLimit(std::string_view name) const {
  const auto set = tableSizeLimits.find(name);
  return set != tableSizeLimits.end() ? std::min(set->second, dbase::kMaxFileBytes)
                                      : dbase::kMaxFileBytes;
}

DatabaseInputs InputsOf(startup::World& world) {
  return {world.app.dataFolder, world.errors,      world.sites,
          world.siteCount,      world.exceptions,  world.clock,
          world.app.tableSizeLimits, world.app.keyMemoryBytes};
}

}  // namespace database
