// Alert matching: which of the user's alert definitions a newly opened visit satisfies.
#pragma once

#include <cstdint>

#include "database/Visit.h"
#include "startup/World.h"

namespace analysis {

// The one-based index, in the whole alert list, of the first alert definition of `siteIndex`
// that is enabled and whose four criteria all hold for `visit`, or 0. The criteria:
// - engine: the all-engines flag, or an engine entry found in the lower-cased referrer. A
//   definition without the flag and with no engine entries never matches (kept: existing
//   definitions rely on it to stay quiet);
// - page: no entries, or the visit's current page matches a page pattern (case kept);
// - DNS: no entries, or the host name, else the client address, matches a DNS pattern;
// - word: no entries, or the referrer holds a "?" and, in its cleaned search phrase, word k
//   followed by a blank is found searching from character k on (so a word that stands only within
//   the first k - 1 characters is not found: kept as the product has always matched).
// Never throws.
int16_t MatchAlert(const startup::World& world, int16_t siteIndex, const database::Visit& visit);

}  // namespace analysis
