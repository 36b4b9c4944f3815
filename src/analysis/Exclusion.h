// The site's exclusion lists: visitors (by client address) and pages that a site leaves out.
#pragma once

#include <string_view>

namespace analysis {

// True when `excludeList` (the site's EXCLUDE option) matches `address` or `excludePagesList`
// (EXCLUDEPAGES) matches `page`. Each list is a ";"-separated series of wildcard patterns ("*",
// "?", "#", "[...]", case-sensitive); a list without ";" is one pattern and a missing final ";" is
// implied. Address patterns are tried first, pattern by pattern; the first match decides.
// Patterns are trimmed of blanks and empty patterns are skipped, so an empty list excludes
// nothing (not even an empty address). A malformed pattern matches nothing. Never fails.
bool IsExcludedHit(std::string_view address, std::string_view page, std::string_view excludeList,
                   std::string_view excludePagesList);

}  // namespace analysis
