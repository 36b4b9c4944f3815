// The settings loader: SETTINGS.INI into AppSettings, the page-extension list, the DNS host masks,
// then EXTYPES.INI, "Countries.txt" and "Search engines.txt".
#include "startup/Settings.h"

#include <exception>

#include "platform/Files.h"
#include "startup/ConfigItems.h"
#include "startup/World.h"
#include "vb/Convert.h"
#include "vb/Dates.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace startup {

namespace {

constexpr SettingsKey kKeys[] = {
    {"INACTIVITYMINS", &AppSettings::inactivityMins},
    {"REVERSEDNS", &AppSettings::reverseDns},
    {"DEFAULTSOUND", &AppSettings::defaultSound},
    {"NEWVISITORSOUND", &AppSettings::newVisitorSound},
    {"NOSPIDERS", &AppSettings::noSpiders},
    {"EMAILSERVER", &AppSettings::emailServer},
    {"EMAILUSERNAME", &AppSettings::emailUserName},
    {"EMAILPASSWORD", &AppSettings::emailPassword},
    {"EMAILSENDTO", &AppSettings::emailSendTo},
    {"EMAILFROM", &AppSettings::emailFrom},
    {"EMAILSUBJECT", &AppSettings::emailSubject},
    {"EMAILEVERY", &AppSettings::emailEvery},
    {"EMAILDAILYREPORT", &AppSettings::emailDailyReport},
    {"CHANGEICONDURINGSCAN", &AppSettings::changeIconDuringScan},
    {"WEBACCESS", &AppSettings::webAccess},
    {"WEBACCESSCONTROL", &AppSettings::webAccessControl},
    {"WEBACCESSLOG", &AppSettings::webAccessLog},
    {"WEBACCESSEMAIL", &AppSettings::webAccessEmail},
    {"WEBACCESSPORT", &AppSettings::webAccessPort},
    {"WAPACCESS", &AppSettings::wapAccess},
    {"WEBUSERNAME", &AppSettings::webUserName},
    {"WEBPASSWORD", &AppSettings::webPassword},
    {"WEBCOLBACKCOLOR", &AppSettings::webColBackColor},
    {"WEBCOLBUTTONBORDER", &AppSettings::webColButtonBorder},
    {"WEBCOLBUTTONFACE", &AppSettings::webColButtonFace},
    {"WEBCOLBUTTONHIGHLIGHT", &AppSettings::webColButtonHighlight},
    {"WEBCOLDARKBORDER", &AppSettings::webColDarkBorder},
    {"WEBCOLGRID", &AppSettings::webColGrid},
    {"WEBCOLGRIDBACK", &AppSettings::webColGridBack},
    {"WEBCOLGRIDHEADER", &AppSettings::webColGridHeader},
    {"WEBCOLLITEBORDER", &AppSettings::webColLiteBorder},
    {"WEBCOLTABLEHEADING", &AppSettings::webColTableHeading},
    {"AUTOHIDE", &AppSettings::autoHide},
    {"AUTOARCHIVE", &AppSettings::autoArchive},
    {"AUTOARCHIVEDAYS", &AppSettings::autoArchiveDays},
    {"AUTOARCHIVETIME", &AppSettings::autoArchiveTime},
};

// Stores `value` into the member with the conversion of the member's type.
struct StoreValue {
  AppSettings& s;
  const std::string& value;
  void operator()(int16_t AppSettings::*m) const { s.*m = ShortOf(value); }
  void operator()(int32_t AppSettings::*m) const { s.*m = vb::CLng(std::string_view(value)); }
  void operator()(bool AppSettings::*m) const { s.*m = vb::CBool(value); }
  void operator()(std::string AppSettings::*m) const { s.*m = value; }
  void operator()(vb::Date AppSettings::*m) const { s.*m = vb::TimeValue(value); }
};

// 5. Processing one item.
void ProcessItem(World& world, const std::string& item) {
  AppSettings& s = world.settings;
  // 5.1-5.3: trimmed, not a section line, split at the first "=".
  KeyValue kv;
  if (!SplitSettingsItem(item, kv)) return;
  const std::string& key = kv.key;
  const std::string& value = kv.value;

  // 5.4 The fixed keys, each with the conversion of its type.
  if (key == "DDFPATH") {
    // Taken as written: no closing separator is added here. Backslashes, a drive letter and a
    // relative folder are read the way every folder of the product's files is (Folders.h); the
    // folder is joined to file names, so it reads the same either way.
    world.app.dataFolderAsWritten = value;
    const ResolvedFolder r = ResolveProductFolder(value, world.app.appFolder, world.app.drives);
    if (!r.unmappedDrive.empty()) {
      world.app.dataFolderProblem =
          UnmappedDriveMessage("DDFPATH in SETTINGS.INI", value, r.unmappedDrive, world.app.drives);
    } else {
      std::string folder = r.folder;
      const std::string_view written = vb::Trim(value);
      const bool closed = !written.empty() && (written.back() == '/' || written.back() == '\\');
      if (!closed && folder.size() > 1 && folder.back() == '/') folder.pop_back();
      world.app.dataFolder = folder;
    }
  } else {
    for (const SettingsKey& k : kKeys) {
      if (key == k.key) {
        std::visit(StoreValue{s, value}, k.member);
        break;
      }
    }
  }

  // 5.5 DNS host masks: the rest of the key is converted strictly, so a bare "DNSMASK" is a
  // failure that ends the loader; numbers outside 1..50 are ignored.
  if (key.compare(0, 7, "DNSMASK") == 0) {
    const int16_t n = vb::CInt(std::string_view(key).substr(7));
    if (n >= 1 && n <= kDnsMaskCount) s.dnsMasks[static_cast<size_t>(n)] = value;
  }

  // 5.6 Page extensions. The test lets a 31st key through although the list has 30 slots; that
  // key fails for want of a slot and ends the loader, as existing files expect. The count is not
  // raised for the missing slot, so 1..count always names real entries.
  if (key.compare(0, 9, "EXTENSION") == 0 && !value.empty() &&
      s.pageExtensionCount <= kMaxPageExtensions) {
    if (s.pageExtensionCount + 1 > kMaxPageExtensions) vb::Raise(vb::kSubscript);
    ++s.pageExtensionCount;
    s.pageExtensions[static_cast<size_t>(s.pageExtensionCount)] = vb::LCase(value);
  }
}

}  // namespace

std::span<const SettingsKey> SettingsKeys() { return kKeys; }

void SetLoaderPageExtensions(AppSettings& settings) {
  static constexpr std::string_view kList[] = {"htm", "asp", "html", "shtml", "txt", "cfm",
                                               "aspx", "php", "dll", "cgi", "exe", "bat",
                                               "vbs", "wml", "pl",  "cab", "pdf", "zip"};
  settings.pageExtensions = {};
  int16_t n = 0;
  for (std::string_view e : kList) settings.pageExtensions[static_cast<size_t>(++n)] = e;
  settings.pageExtensionCount = n;
}

void SetStartupPageExtensions(AppSettings& settings) {
  static constexpr std::string_view kList[] = {"htm", "asp", "html", "shtml", "txt", "cfm",
                                               "aspx", "dll", "cgi", "exe", "bat", "vbs",
                                               "wml", "pl",  "cab", "pdf"};
  settings.pageExtensions = {};
  int16_t n = 0;
  for (std::string_view e : kList) settings.pageExtensions[static_cast<size_t>(++n)] = e;
  settings.pageExtensionCount = n;
}

void LoadSettings(World& world) {
  AppSettings& s = world.settings;
  try {
    // 1. The page-extension list starts empty.
    s.pageExtensionCount = 0;

    // 2. The file; when a listing finds nothing, go on at step 6.
    if (auto path = platform::FindFileCI(world.app.appFolder, "SETTINGS.INI")) {
      // 3. Open it for item-by-item reading.
      auto reader = vb::ItemReader::Open(*path);
      if (!reader) vb::Raise(vb::kPathFileAccess);
      // 4. Read the first item, then process-and-read until the end of the file. The test
      // comes before the processing, so the file's last item is never processed.
      std::string item = reader->ReadItem();
      while (!reader->Eof()) {
        ProcessItem(world, item);
        item = reader->ReadItem();
      }
    }

    // 6. No EXTENSION keys: the built-in list of 18.
    if (s.pageExtensionCount == 0) SetLoaderPageExtensions(s);

    // 7. Exception catalogue file; without it the built-in catalogue is loaded again.
    if (!LoadExceptionTypesFile(world.exceptions, world.app.appFolder)) {
      LoadExceptionConstants(world.exceptions);
    }

    // 8. Country table.
    LoadCountries(world.tables, world.app.dataFolder);

    // 9. Search-engine table.
    LoadSearchEngines(world.tables, world.app.dataFolder);
  } catch (const std::exception&) {
    // A failure ends the loader silently; what was read stays (the reader closed its file).
  }
}

}  // namespace startup
