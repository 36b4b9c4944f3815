// The counting stand-in for the hit processing, and the run state's abort of an unpacking.
#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "platform/Zip.h"

namespace loginput {

void CountingHits::ProcessHit(std::string_view line, int siteIndex) {
  ++hits;
  SiteReadState& site = run_.Site(siteIndex);
  const FieldMap& map = run_.fieldMap;
  fields_.Split(line, site.separator, map.MaxPlace());
  FillHitFields(fields_, map, run_.hits);
  if (map.Has(kPage) && !fields_[map[kPage]].empty()) ++hitsWithPage;
}

void LogInputState::AbortUnzip() {
  if (unzipping && activeZip_) activeZip_->Abort();
}

}  // namespace loginput
