// The log-input state of one scan run: the file list of the site being scanned, the files
// unpacked from its archive, the run's reading counters, the hit fields, and each site's reading
// state (separator, flags, file dates), and the one field map of the run. One LogInputState is
// created per run and passed by reference; nothing here outlives the run.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "loginput/FieldMap.h"
#include "loginput/HitFields.h"
#include "vb/Dates.h"

namespace platform {
class ZipArchive;
}

namespace loginput {

// One file found by the listing.
struct LogFileEntry {
  std::string name;       // file name as listed, without folder
  vb::Date modified = 0;  // last-write time, local time
  int32_t size = 0;       // size in bytes (low 32 bits), -1 when the file could not be opened
};

// How a site's log lines are read and split.
struct SiteReadState {
  char separator = ' ';        // " ", "," or TAB, set from TYPE before each file
  bool fieldsKnown = false;    // a field map exists; lines go to the hit processing only then
  bool noSpiderCheck = false;  // the hit processing skips robot and spider classification
  vb::Date currentFileDate = 0;  // the listing's file date, then the latest "#Date:" directive
  vb::Date lastReadTime = 0;     // when the site's last file was closed
};

class LogInputState {
 public:
  // The log-file list of the site last listed: entries 1..fileCount; slot 0 is unused.
  std::vector<LogFileEntry> logFiles{LogFileEntry{}};
  int32_t fileCount = 0;

  // Files unpacked from the site's archive, as reported: entries 1..extractedCount.
  std::vector<std::string> extracted{std::string{}};
  int32_t extractedCount = 0;
  // True while an archive is being unpacked (a Cancel then aborts the unpacking).
  bool unzipping = false;

  // Set when a file is first opened for reading, never cleared.
  bool scanning = false;
  // 1-based position of the next byte of the file being read, taken before each line.
  int32_t currentReadPos = 0;
  // Every line read in the run, directives and blank lines included.
  int32_t totalLines = 0;
  // Set whenever a fields directive maps a "DATE" column.
  bool dateFieldFlag = false;
  // Set when the user confirmed a Cancel during a yield of log input; the scan must end.
  bool cancelled = false;

  // The fields of the current hit; cleared at the start of each file.
  HitFields hits;

  // Where each field stands in a split line. One map for the whole run, not one per site: the
  // presets of the fixed layouts and every "#Fields:" line replace it, and nothing else does, so
  // a site whose first file has no fields line reads it by the map that the files before it
  // built (the product kept the map in one module-wide array).
  FieldMap fieldMap;

  // The reading state of site `siteIndex` (created on first use). REQUIRES: siteIndex >= 0, else
  // throws std::out_of_range.
  SiteReadState& Site(int siteIndex) {
    if (siteIndex < 0) throw std::out_of_range("site index");
    if (static_cast<size_t>(siteIndex) >= sites_.size()) {
      sites_.resize(static_cast<size_t>(siteIndex) + 1);
    }
    return sites_[static_cast<size_t>(siteIndex)];
  }

  // Aborts an unpacking in progress (from a Cancel handler during one of its yields); does
  // nothing when none runs.
  void AbortUnzip();
  // Used by UnZipArchive: the archive being unpacked, or nullptr.
  void SetActiveArchive(platform::ZipArchive* zip) { activeZip_ = zip; }

 private:
  std::vector<SiteReadState> sites_;
  platform::ZipArchive* activeZip_ = nullptr;
};

}  // namespace loginput
