// The per-file reader: format preset, directives, hand-over of lines, pacing.
#include "loginput/ScanLogFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>

#include "loginput/LineReader.h"
#include "platform/Frontend.h"
#include "startup/World.h"
#include "vb/Convert.h"
#include "vb/Dates.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace loginput {
namespace {

// Positions are kept as 32-bit numbers; a file beyond 2 GB reports its last 32-bit position
// instead of wrapping round to a negative one.
int32_t Position32(int64_t p) {
  return p > std::numeric_limits<int32_t>::max() ? std::numeric_limits<int32_t>::max()
                                                 : static_cast<int32_t>(p);
}

// The line trimmed of blanks at both ends and upper-cased, into `out` (reused).
void TrimUpper(std::string_view line, std::string& out) {
  line = vb::Trim(line);
  out.assign(line.data(), line.size());
  for (char& c : out) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
}

// Mid(s, start) with a 1-based start: "" when s is shorter.
std::string_view From(std::string_view s, size_t start1) {
  return start1 - 1 < s.size() ? s.substr(start1 - 1) : std::string_view();
}

// "#DATE: yyyy-mm-dd hh:mm:ss": the date is the first 10 characters after the marker and its
// blank, split at "-" into year, month and day; the time is what follows the next blank. Any other
// form fails a conversion, and the file date then stays as it was.
void ApplyDateDirective(std::string_view upperLine, vb::Date& fileDate) {
  try {
    const std::string_view dateTime = From(upperLine, 8);
    const std::string_view date = dateTime.substr(0, 10);
    std::string_view parts[3];
    size_t start = 0;
    int n = 0;
    for (size_t i = 0; i <= date.size() && n < 3; ++i) {
      if (i == date.size() || date[i] == '-') {
        parts[n++] = date.substr(start, i - start);
        start = i + 1;
      }
    }
    if (n < 3) throw vb::Failure(vb::kSubscript);
    const int16_t year = vb::CInt(parts[0]);
    const int16_t month = vb::CInt(parts[1]);
    const int16_t day = vb::CInt(parts[2]);
    const vb::Date time = vb::TimeValue(From(dateTime, 12));
    fileDate = vb::DateSerial(year, month, day) + time;
  } catch (const std::exception&) {
    // A malformed date line leaves the date as it was.
  }
}

}  // namespace

std::string NoFieldsMessage(std::string_view siteName) {
  std::string m = "The log file for site ";
  m += siteName;
  m += " was scanned but no #Field definition lines were found so Tallyo cannot interpret the "
       "log file. ";
  m += "\r\n\r\n";
  m += "Are you sure this is a W3C Extended log file?";
  return m;
}

void PrepareFormat(startup::LogLayout layout, SiteReadState& state, FieldMap& map) {
  using startup::LogLayout;
  state.separator = ' ';
  switch (layout) {
    case LogLayout::CommaShort:
      PresetMapA(map);
      state.fieldsKnown = true;
      state.separator = ',';
      state.noSpiderCheck = false;
      break;
    case LogLayout::Combined:
      PresetMapB(map);
      state.fieldsKnown = true;
      state.separator = ' ';
      state.noSpiderCheck = false;
      break;
    case LogLayout::CommaLong:
      PresetMapC(map);
      state.fieldsKnown = true;
      state.separator = ',';
      state.noSpiderCheck = true;
      break;
    case LogLayout::FirewallStyle:
      PresetMapD(map);
      state.fieldsKnown = true;
      state.separator = ' ';
      state.noSpiderCheck = true;
      break;
    case LogLayout::TabSeparated:
      // The map comes from the file's fields line; the fields-known flag stays as it is.
      state.separator = '\t';
      state.noSpiderCheck = true;
      break;
    default:
      // W3C Extended (and any other TYPE): the map comes from the file's fields line; both
      // flags stay as they are.
      break;
  }
}

bool ScanLogFile(startup::World& world, platform::Frontend& ui, LogInputState& run,
                 ScanHooks& hooks, int siteIndex) {
  startup::Site* sitePtr = nullptr;
  try {
    sitePtr = &world.site(siteIndex);
  } catch (const std::exception&) {
    return true;
  }
  startup::Site& site = *sitePtr;
  SiteReadState& state = run.Site(siteIndex);
  run.scanning = true;

  // The format, before the file is opened.
  PrepareFormat(site.type, state, run.fieldMap);

  // 1. The remembered field list, when there is one.
  if (!site.lastFields.empty()) {
    ApplyFieldsDirective(run.fieldMap, site.type, site.lastFields, run.dateFieldFlag);
  }
  // 2. A file that cannot be opened reads as empty: the first read finds its end.
  LineReader reader(LineReader::kDefaultMaxLine, LineReader::kDefaultBlock, /*readAhead=*/true);
  // A reader that fails (no memory for a long line) ends the file where it failed.
  auto next = [&reader]() -> std::string_view {
    try {
      return reader.Next();
    } catch (const std::exception&) {
      reader.Close();
      return {};
    }
  };
  // A listed file that cannot be opened (its permissions, a file removed since the listing) is
  // said to be unreadable, in errors.log and on screen, rather than blamed on missing field
  // definition lines.
  std::string unreadable;
  try {
    errno = 0;
    if (!reader.Open(site.lastLogFile,
                     site.unixServer ? LineReader::Mode::kUnix : LineReader::Mode::kText))
      unreadable = errno != 0 ? std::strerror(errno) : "it cannot be opened";
  } catch (const std::exception& e) {
    reader.Close();
    unreadable = e.what();
  }
  if (!unreadable.empty()) {
    const std::string text = "The log file " + site.lastLogFile + " for site " + site.name +
                             " could not be read (" + unreadable + "); it was skipped.";
    world.errors.LogError("ModFiles.ScanLogFile", text);
    ui.MessageBox(text, platform::MsgIcon::Exclamation, platform::MsgButtons::Ok,
                  world.app.appTitle);
  }
  // 3.
  run.currentReadPos = site.lastReadPos;
  ClearHitFields(run.hits);
  bool dnsOn = false;
  try {
    dnsOn = hooks.DnsEnabled();
  } catch (const std::exception&) {
  }
  // 4.
  std::string_view line = next();

  int blankRun = 0;
  int sinceProgress = 0;
  std::string directive;
  while (!reader.AtEnd() && blankRun < kBlankRunLimit) {
    // 1. A run of empty lines; it ends the file at the next test of the loop.
    blankRun = line.empty() ? blankRun + 1 : 0;
    // 2.
    run.currentReadPos = Position32(reader.Position());
    try {
      if (line.empty() || line.front() != '#') {
        // 3. A data line, for the hit processing once the fields are known.
        if (state.fieldsKnown) hooks.ProcessHit(line, siteIndex);
        if (dnsOn && hooks.DnsPending() > kDnsBacklogLimit) {
          hooks.DnsWait();
          // A Cancel confirmed during the pause ends the file as at a progress yield.
          if (run.cancelled) {
            reader.Close();
            return true;
          }
        }
      } else {
        // 4. A directive, recognised on its trimmed upper-case form.
        TrimUpper(line, directive);
        if (directive.compare(0, 8, "#FIELDS:") == 0) {
          directive.erase(0, std::min<size_t>(directive.size(), 9));
          ApplyFieldsDirective(run.fieldMap, site.type, directive, run.dateFieldFlag);
          site.lastFields = directive;
          state.fieldsKnown = true;
        }
        if (directive.compare(0, 6, "#DATE:") == 0) {
          ApplyDateDirective(directive, state.currentFileDate);
        }
      }
    } catch (const std::exception&) {
      // The run goes on with the next line.
    }
    // 5.
    ++sinceProgress;
    if (run.totalLines < std::numeric_limits<int32_t>::max()) ++run.totalLines;
    if (sinceProgress == kLinesPerProgressStep) {
      sinceProgress = 0;
      try {
        hooks.UpdateFileProgress(run.currentReadPos);
      } catch (const std::exception&) {
      }
      // The hooks may have ended the run themselves (a write to the tables failed).
      if (run.cancelled || !ui.Yield()) {
        run.cancelled = true;
        reader.Close();
        return true;
      }
    }
    // 6.
    line = next();
  }

  try {
    // 1. The last line read goes to the hit processing as it is: it is never tested for "#"
    // nor held back for unknown fields.
    hooks.ProcessHit(line, siteIndex);
  } catch (const std::exception&) {
  }
  try {
    // 2. A file none of whose hits set the run's log date takes the day summaries' date.
    if (hooks.CurrentLogDate() == kNoLogDate) hooks.SetCurrentLogDate(hooks.DaySummaryDate());
  } catch (const std::exception&) {
  }
  try {
    // 3.
    hooks.WriteDaySummary(siteIndex);
  } catch (const std::exception&) {
  }
  // 4.
  reader.Close();
  state.lastReadTime = world.clock.Now();
  // 5.
  if (!state.fieldsKnown && unreadable.empty()) {
    ui.MessageBox(NoFieldsMessage(site.name), platform::MsgIcon::Exclamation,
                  platform::MsgButtons::Ok, world.app.appTitle);
    site.lastReadPos = 0;
  }
  // 6.
  return true;
}

}  // namespace loginput
