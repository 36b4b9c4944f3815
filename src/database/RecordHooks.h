// The counters that the record operations raise but do not own: the per-site day counters and
// the run-wide exception counters live with the hit analysis, which implements this interface.
// The default does the empty case: nothing is counted.
#pragma once

#include <cstdint>

namespace database {

class RecordHooks {
 public:
  virtual ~RecordHooks() = default;

  // A download of site `siteIndex` (one-based) was recorded by AddDownload: the site's download
  // counter goes up by one.
  virtual void DownloadCounted(int32_t siteIndex) {}

  // An exception of site `siteIndex` (one-based) was recorded by AddException: the site's two
  // exception counters and the two run-wide exception counters of the day summaries each go up
  // by one.
  virtual void ExceptionCounted(int32_t siteIndex) {}
};

}  // namespace database
