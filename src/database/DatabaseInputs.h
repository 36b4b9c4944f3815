// What the visitor database reads from the run it serves, and nothing more: the data folder its
// tables live in, the error log its failures go to, the site list (names and repeat-visit
// limits), the exception catalogue, the clock and the size limits of the tables' files.
//
// Every member refers to the caller's own object, which must outlive the database; it is read
// when used, not copied, so a site list loaded after the database was made counts.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "startup/ErrorLog.h"
#include "startup/ExceptionCatalogue.h"
#include "startup/Sites.h"

namespace startup {
struct World;
}

namespace database {

struct DatabaseInputs {
  const std::string& dataFolder;  // ends with "/"
  startup::ErrorLog& errors;
  const std::vector<startup::Site>& sites;  // sites 1..siteCount; slot 0 unused
  const int16_t& siteCount;
  const startup::ExceptionCatalogue& exceptions;
  const platform::Clock& clock;
  // Lower size limits of tables' files, by table name (see startup::AppState::tableSizeLimits).
  const std::map<std::string, uint64_t, std::less<>>& tableSizeLimits;
  // The memory the new tables' gathered index keys may keep (dbase::KeyMemory), in bytes.
  const uint64_t& keyMemoryBytes;

  // Site i, 1 <= i <= siteCount. Throws vb::Failure(9) "Subscript out of range" otherwise, as
  // the run's own site list does.
  const startup::Site& site(int i) const;
  // The size limit of the files of table `name` ("Pages"): the one set for it, else the largest
  // file a dBASE reader opens.
  uint64_t TableSizeLimit(std::string_view name) const;
};

// The inputs of a database taken from the run's World.
DatabaseInputs InputsOf(startup::World& world);

}  // namespace database
