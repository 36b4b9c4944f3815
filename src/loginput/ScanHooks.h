// What the line reader calls out to while it reads a file: the hit processing, the reverse-DNS
// pacing, the daily summary, the progress display and the run's current log date. The scan
// driver and the hit processing implement it; `CountingHits` is a stand-in that only splits and
// counts, for tests and for measuring the input path alone.
#pragma once

#include <cstdint>
#include <string_view>

#include "loginput/HitFields.h"
#include "vb/Dates.h"

namespace loginput {

class LogInputState;

// 1 January 1900: the current log date's value for "no hit has set it yet".
inline constexpr vb::Date kNoLogDate = 2.0;

class ScanHooks {
 public:
  virtual ~ScanHooks() = default;
  // The hit processing of one data line of site `siteIndex`. The view is valid during the call.
  virtual void ProcessHit(std::string_view line, int siteIndex) = 0;
  // The run's reverse-DNS flag (asked once per file).
  virtual bool DnsEnabled() = 0;
  // Reverse-DNS requests outstanding now.
  virtual int DnsPending() = 0;
  // Returns when no reverse-DNS request is outstanding.
  virtual void DnsWait() = 0;
  // The daily summary step for the site, after the last line of each file.
  virtual void WriteDaySummary(int siteIndex) = 0;
  // Moves the file progress bar; `position` is the 1-based position of the next byte.
  virtual void UpdateFileProgress(int32_t position) = 0;
  // The run's current log date, and the date the daily summaries hold.
  virtual vb::Date CurrentLogDate() = 0;
  virtual void SetCurrentLogDate(vb::Date date) = 0;
  virtual vb::Date DaySummaryDate() = 0;
};

// Splits every line it is given by the site's separator and field map into the run's hit fields,
// and counts. No DNS, no summaries; the progress calls are counted.
class CountingHits : public ScanHooks {
 public:
  explicit CountingHits(LogInputState& run) : run_(run) {}

  void ProcessHit(std::string_view line, int siteIndex) override;
  bool DnsEnabled() override { return false; }
  int DnsPending() override { return 0; }
  void DnsWait() override {}
  void WriteDaySummary(int) override { ++daySummaries; }
  void UpdateFileProgress(int32_t position) override {
    ++progressSteps;
    lastProgress = position;
  }
  vb::Date CurrentLogDate() override { return logDate; }
  void SetCurrentLogDate(vb::Date date) override { logDate = date; }
  vb::Date DaySummaryDate() override { return summaryDate; }

  int64_t hits = 0;            // lines handed over
  int64_t hitsWithPage = 0;    // of those, lines whose page field came out non-empty
  int64_t daySummaries = 0;
  int64_t progressSteps = 0;
  int32_t lastProgress = 0;
  vb::Date logDate = kNoLogDate;
  vb::Date summaryDate = kNoLogDate;

 private:
  LogInputState& run_;
  SplitFields fields_;
};

}  // namespace loginput
