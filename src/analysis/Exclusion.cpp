// The site's exclusion lists (see Exclusion.h).
#include "analysis/Exclusion.h"

#include "analysis/Text.h"
#include "vb/Like.h"

namespace analysis {

bool IsExcludedHit(std::string_view address, std::string_view page, std::string_view excludeList,
                   std::string_view excludePagesList) {
  // Empty patterns are skipped: the lists are typed by hand and often end in "; " or hold ";;",
  // and an empty pattern would otherwise drop every hit whose address column is empty.
  if (AnyPattern(excludeList, [&](std::string_view p) { return vb::Like(address, p); }))
    return true;
  return AnyPattern(excludePagesList, [&](std::string_view p) { return vb::Like(page, p); });
}

}  // namespace analysis
