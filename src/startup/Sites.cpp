// The site loader: the sites file into the lists of sites and alerts.
#include "startup/Sites.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>

#include "platform/Files.h"
#include "startup/ConfigItems.h"
#include "startup/Folders.h"
#include "startup/World.h"
#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/ItemReader.h"
#include "vb/Strings.h"

namespace startup {

namespace {

// 8. Appends a value to one of an alert's four lists; a 51st entry is a failure. The count is
// raised only when the slot exists, so 1..count always names real entries.
void AppendToList(std::array<std::string, kAlertListSlots + 1>& list, int16_t& count,
                  std::string value) {
  if (count + 1 > kAlertListSlots) vb::Raise(vb::kSubscript);
  ++count;
  list[static_cast<size_t>(count)] = std::move(value);
}

class SiteLoader {
 public:
  explicit SiteLoader(World& world) : w_(world) {}

  void Process(const std::string& item) {
    // 4. "[" opens a site. At the limit the count stays, so later sections overwrite the last
    // site's fields.
    if (!item.empty() && item.front() == '[') {
      if (w_.siteCount < w_.app.maxSites) ++w_.siteCount;
      // The name loses the first and the last character; "[" alone has nothing to lose.
      if (item.size() < 2) vb::Raise(vb::kInvalidCall);
      Site& s = w_.sites[static_cast<size_t>(w_.siteCount)];
      s.name = item.substr(1, item.size() - 2);
      s.webReferrers = true;
      return;
    }

    // 5. Any other item: key and value around the first "=".
    const size_t eq = item.find('=');
    if (eq == std::string::npos) return;
    const std::string key = vb::UCase(vb::Trim(std::string_view(item).substr(0, eq)));
    const std::string value = item.substr(eq + 1);

    // 6. Site keys, with the conversions of their types.
    if (key == "LASTREADPOS") Cur().lastReadPos = vb::CLng(std::string_view(value));
    else if (key == "LASTREADPOSDAY") Cur().lastReadPosDay = vb::CLng(std::string_view(value));
    else if (key == "LASTFIELDS") {
      Cur().lastFields = value;
      Cur().lastFieldsKnown = true;
    }
    else if (key == "LASTREADDATETIME") Cur().lastReadDateTime = DateTimeOf(value);
    else if (key == "SLEEPMODE") Cur().sleepMode = vb::CBool(value);
    else if (key == "SLEEPSTART") Cur().sleepStart = vb::TimeValue(value);
    else if (key == "SLEEPEND") Cur().sleepEnd = vb::TimeValue(value);
    else if (key == "PAUSED") Cur().paused = vb::CBool(value);
    else if (key == "FREQUENCY") Cur().frequency = vb::CLng(std::string_view(value));
    else if (key == "TYPE") Cur().type = static_cast<LogLayout>(ShortOf(value));
    else if (key == "UNIX") Cur().unixServer = vb::CBool(value);
    else if (key == "LASTLOGFILE") Cur().lastLogFile = value;
    else if (key == "MASK") {
      Cur().mask = vb::Trim(value).empty() ? std::string(kDefaultLogMask) : value;
    }
    else if (key == "SELECTMETHOD") Cur().selectMethod = ShortOf(value);
    else if (key == "INCLUDEQUERY") Cur().includeQuery = vb::CBool(value);
    else if (key == "FTP") Cur().ftp = vb::CBool(value);
    else if (key == "FTPDOMAIN") Cur().ftpDomain = value;
    else if (key == "FTPUSERNAME") Cur().ftpUserName = value;
    else if (key == "FTPPASSWORD") Cur().ftpPassword = value;
    else if (key == "FTPPATH") Cur().ftpPath = value;
    else if (key == "FTPPASSIVE") Cur().ftpPassive = vb::CBool(value);
    else if (key == "FOLDER") SetFolder(Cur(), value);
    else if (key == "EXCLUDE") Cur().exclude = value;
    else if (key == "EXCLUDEPAGES") Cur().excludePages = value;
    else if (key == "DOMAIN") Cur().domain = value;
    else if (key == "HOMEPAGE") Cur().homePage = value;
    else if (key == "LASTIP") Cur().lastIp = value;
    else if (key == "LASTTIME") Cur().lastTime = DateTimeOf(value);
    else if (key == "WEBACCESS") Cur().webAccess = vb::CBool(value);
    else if (key == "WEBUSERNAME") Cur().webUserName = value;
    else if (key == "WEBPASSWORD") Cur().webPassword = value;
    else if (key == "WEBLOGO") Cur().webLogo = value;
    else if (key == "WEBREFERRERS") Cur().webReferrers = vb::CBool(value);
    else if (key == "USELOCALTIME") Cur().useLocalTime = vb::CBool(value);
    else if (key == "TOUCH") Cur().touch = vb::CBool(value);
    else if (key == "TOUCHEVERY") Cur().touchEvery = ShortOf(value);
    else if (key == "TOUCHPAGE") Cur().touchPage = value;
    else if (key == "EMAILADDRESS") Cur().emailAddress = value;
    else if (key == "EMAILGLOBALALSO") Cur().emailGlobalAlso = vb::CBool(value);
    else if (key == "EMAILDAILYREPORT") Cur().emailDailyReport = vb::CBool(value);
    else if (key == "AUTOARCHIVE") Cur().autoArchive = vb::CBool(value);
    // 7. ALERT opens an alert for the current site; the other alert keys set fields of the
    // alert added last, whatever site it belongs to.
    else if (key == "ALERT") {
      Cur();
      AddAlert(w_, w_.siteCount, value);
    }
    else if (key == "ALERTNO") LastAlert().number = ShortOf(value);
    else if (key == "ALERTENABLED") LastAlert().enabled = vb::CBool(value);
    else if (key == "ALERTCOLOR") LastAlert().colour = LongOf(value);
    else if (key == "ALERTEMAIL") LastAlert().email = vb::CBool(value);
    else if (key == "ALERTEMAILADDRESS") LastAlert().emailAddress = value;
    else if (key == "ALERTSOUND") LastAlert().sound = vb::CBool(value);
    else if (key == "ALERTSOUNDFILE") LastAlert().soundFile = value;
    else if (key == "ALERTRUN") LastAlert().run = value;
    else if (key == "ALERTMESSAGE") LastAlert().message = value;
    else if (key == "ALERTRUNTHIS") LastAlert().runThis = vb::CBool(vb::LCase(value));
    // 8. The alert-list keys fill the current site's current alert, creating the default
    // alert first when the site has none yet.
    else if (key == "ALERTENGINEALL") CurrentAlert().allEngines = (value == "Y");
    else if (key == "ALERTDNS") {
      Alert& a = CurrentAlert();
      AppendToList(a.dnsList, a.dnsCount, vb::LCase(value));
    }
    else if (key == "ALERTWORD") {
      Alert& a = CurrentAlert();
      AppendToList(a.wordList, a.wordCount, vb::LCase(value));
    }
    else if (key == "ALERTENGINE") {
      Alert& a = CurrentAlert();
      AppendToList(a.engineList, a.engineCount, vb::LCase(value));
    }
    else if (key == "ALERTPAGE") {
      Alert& a = CurrentAlert();
      AppendToList(a.pageList, a.pageCount, value);
    }
  }

 private:
  // FOLDER: the product writes it on Windows ("D:\Logs\W3SVC1\", "logs\"); it is read as a
  // folder of this machine (Folders.h). A drive without a mapping leaves the folder empty and
  // notes the report for the scan, which skips that site; the others still scan.
  void SetFolder(Site& site, const std::string& value) {
    site.folderAsWritten = value;
    const ResolvedFolder r = ResolveProductFolder(value, w_.app.appFolder, w_.app.drives);
    site.folder = r.folder;
    site.folderProblem.clear();
    if (!r.unmappedDrive.empty()) {
      site.folderProblem =
          UnmappedDriveMessage("site: " + site.name, value, r.unmappedDrive, w_.app.drives);
    }
  }

  // The current site; before the first section there is none, which is a failure.
  Site& Cur() {
    if (w_.siteCount < 1) vb::Raise(vb::kSubscript);
    return w_.sites[static_cast<size_t>(w_.siteCount)];
  }

  // The alert added last. Before any alert exists this is the scratch slot 0, so alert keys
  // written too early are absorbed instead of ending the loader.
  Alert& LastAlert() { return w_.alerts[static_cast<size_t>(w_.alertCount)]; }

  Alert& CurrentAlert() {
    if (Cur().currentAlert == 0) AddAlert(w_, w_.siteCount, kDefaultAlertName);
    return w_.alerts[static_cast<size_t>(Cur().currentAlert)];
  }

  World& w_;
};

}  // namespace

void AddAlert(World& world, int16_t siteIndex, std::string_view name) {
  if (siteIndex < 1 || static_cast<size_t>(siteIndex) >= world.sites.size()) {
    vb::Raise(vb::kSubscript);
  }
  if (world.alertCount == INT16_MAX) vb::Raise(vb::kOverflow);
  Alert a;
  a.site = siteIndex;
  a.name = std::string(name);
  world.alerts.resize(static_cast<size_t>(world.alertCount) + 1);
  world.alerts.push_back(std::move(a));
  ++world.alertCount;
  world.sites[static_cast<size_t>(siteIndex)].currentAlert = world.alertCount;
}

void LoadSites(World& world) {
  // 1. Empty lists: no sites, one scratch alert slot, room for the maximum number of sites.
  world.siteCount = 0;
  world.alerts.assign(1, Alert{});
  world.alertCount = 0;
  world.sites.assign(static_cast<size_t>(world.app.maxSites < 0 ? 0 : world.app.maxSites) + 1,
                     Site{});
  try {
    // 2. The sites file is named after the application title; without it there are no sites.
    const std::string fileName = vb::UCase(world.app.appTitle) + ".INI";
    const auto path = platform::FindFileCI(world.app.appFolder, fileName);
    if (!path) return;
    auto reader = vb::ItemReader::Open(*path);
    if (!reader) vb::Raise(vb::kPathFileAccess);
    // 3. First item before the loop; the end-of-file test comes before the processing, so the
    // last item of the file is never processed.
    SiteLoader loader(world);
    std::string item = reader->ReadItem();
    while (!reader->Eof()) {
      loader.Process(item);
      item = reader->ReadItem();
    }
    // 9. The reader closed the file when it read it.
  } catch (const std::exception&) {
    // A failure ends the loader silently; what was read stays.
  }
}

std::string DescribeSitesFile(const World& world) {
  const std::string fileName = vb::UCase(world.app.appTitle) + ".INI";
  const auto path = platform::FindFileCI(world.app.appFolder, fileName);
  if (!path) {
    return "The sites file " + world.app.appFolder + fileName + " was not found.";
  }
  const std::string where = "The sites file " + path->string();
  std::ifstream in(*path, std::ios::binary);
  std::string head(4096, '\0');
  if (!in) return where + " was found but cannot be read (" + std::strerror(errno) + ").";
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<size_t>(in.gcount()));
  if (in.bad()) return where + " was found but cannot be read.";
  const auto starts = [&](std::string_view mark) { return head.rfind(mark, 0) == 0; };
  if (starts("\xFF\xFE") || starts("\xFE\xFF") ||
      (head.size() >= 2 && (head[0] == '\0') != (head[1] == '\0')))
    return where +
           " was found but is written in UTF-16; save it as plain (ANSI or UTF-8) text.";
  if (head.find('\0') != std::string::npos)
    return where + " was found but is not a text file.";
  return where + " was found and read, but defines no site (no [site name] section).";
}

}  // namespace startup
