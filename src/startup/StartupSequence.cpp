// Start-up: the entry procedure `Main` and the helpers it is built from.
#include "startup/StartupSequence.h"

#include <cmath>
#include <exception>
#include <filesystem>
#include <system_error>

#include "startup/Folders.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace startup {

namespace {

// 11. The settings that have defaults, in this order. The e-mail subject keeps the product word
// even when the branding renames the title.
void SetSettingsDefaults(AppSettings& s) {
  s.reverseDns = true;
  s.inactivityMins = 10;
  s.newVisitorSound = true;
  s.changeIconDuringScan = true;
  s.webAccess = true;
  s.webAccessLog = true;
  s.webAccessPort = 8004;
  s.wapAccess = true;
  s.emailEvery = 2;
  s.emailSubject = "Message From " + std::string(kProductWord);
}

// Folder text as the system keeps folders: blanks trimmed, ending with "/".
std::string AsFolder(std::string_view text) {
  std::string folder(vb::Trim(text));
  if (folder.empty() || folder.back() != '/') folder += '/';
  return folder;
}

// Today's date: the whole-day part of the clock's local date-time.
vb::Date Today(const platform::Clock& clock) { return std::floor(clock.Now()); }

}  // namespace

void EnsureFolder(const std::string& path) {
  // Only the last level is created: a missing parent makes the creation fail, and any failure
  // leaves the folder missing without a word. The current directory is not touched.
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) return;
  std::filesystem::create_directory(path, ec);
}

std::string GetSettingsValue(const platform::Registry& registry, std::string_view appTitle,
                             std::string_view section, std::string_view valueName,
                             std::string_view defaultValue) {
  // The blank before the last backslash is part of the key the product writes: existing
  // installations are only found with it.
  std::string key = "Software\\Fenwright\\";
  key += appTitle;
  key += " \\";
  key += section;
  std::string value = registry.ReadString(key, valueName);
  if (value.empty() || value == "0") return std::string(defaultValue);
  return value;
}

std::string GetBrandingValue(const platform::Registry& registry, std::string_view valueName,
                             std::string_view defaultValue) {
  std::string value = registry.ReadString(platform::kBrandingKey, valueName);
  if (value.empty()) return std::string(defaultValue);
  return value;
}

int32_t GetTimeZoneOffset(const platform::Clock& clock) { return clock.TimeZoneOffsetMinutes(); }

void SetBuiltInDefaults(World& world) {
  SetSettingsDefaults(world.settings);
  SetStartupPageExtensions(world.settings);
  SetBuiltInWebColours(world.settings);
  SetBuiltInDnsMasks(world.settings);
  SetBuiltInSearchEngines(world.tables);
  LoadExceptionConstants(world.exceptions);
}

MainResult Main(const MainArgs& args) {
  MainResult result;
  // 1. The error handler: the try block below; a failure is logged as "Main".

  // 2. A copy already running: leave at once, nothing loaded.
  result.instance = platform::SingleInstance::Acquire(kProgramName, args.lockFolder);
  if (!result.instance) {
    result.status = MainStatus::AnotherCopyRunning;
    return result;
  }
  result.world = std::make_unique<World>(args.clock);
  World& w = *result.world;
  AppState& app = w.app;
  try {
    // 3. Program version.
    app.programVersion = args.programVersion;

    // 4. Registry application name.
    app.registryAppName = "tallyo";

    // 5. Application folder: the command line taken whole, else the executable's folder. A
    // command line of blanks only counts as empty (it would otherwise name the root folder).
    const std::string_view commandLine = vb::Trim(args.commandLine);
    app.appFolder = AsFolder(commandLine.empty() ? std::string_view(args.executableFolder)
                                                 : commandLine);

    // 6. Branding, in this order.
    app.appTitle = GetBrandingValue(args.registry, "AppTitle", kProductWord);
    app.appDomain = GetBrandingValue(args.registry, "AppDomain", kMakerHost);
    app.appOrderPage =
        GetBrandingValue(args.registry, "AppOrderPage", std::string(kMakerHost) + "/order.htm");
    app.appSupportPage = GetBrandingValue(args.registry, "AppSupportPage",
                                          std::string(kMakerHost) + "/support/supemail.asp");

    // 7. Data folder and its Temp folder (whose path is not kept). The value is written the
    // product's way (backslashes, perhaps a drive letter), so the registry's drive map is read
    // first. A drive without a mapping ends start-up with a report that says what to add; there
    // is no data folder to write errors.log into yet.
    app.drives = ReadDriveMap(args.registry);
    // Without a value the data folder is the application folder's "Data/". That default is
    // resolved as the relative folder "Data/" (found in any case inside the application
    // folder), not as the joined text: with an application folder given relative to the working
    // folder, the joined text would be taken inside the application folder a second time.
    const std::string registryValue =
        GetSettingsValue(args.registry, app.appTitle, "Settings", "DDFPath", "");
    const std::string ddfPath = registryValue.empty() ? app.appFolder + "Data/" : registryValue;
    app.dataFolderAsWritten = ddfPath;
    const ResolvedFolder data = ResolveProductFolder(
        registryValue.empty() ? std::string("Data/") : registryValue, app.appFolder, app.drives);
    if (!data.unmappedDrive.empty()) {
      result.status = MainStatus::Failed;
      result.failure = UnmappedDriveMessage("the registry value DDFPath", ddfPath,
                                            data.unmappedDrive, app.drives);
      return result;
    }
    app.dataFolder = AsFolder(data.folder);
    EnsureFolder(app.dataFolder);
    // One run per data folder: the machine-wide lock above lives in a temp folder, which two
    // runs of one data folder need not share.
    result.dataFolderLock = platform::FolderLock::Acquire(app.dataFolder);
    if (!result.dataFolderLock) {
      result.status = MainStatus::DataFolderBusy;
      result.failure = app.dataFolder;
      return result;
    }
    EnsureFolder(app.dataFolder + "Temp/");

    // 8. Maximum number of sites.
    app.maxSites = 150;

    // 9. Start date.
    app.startDate = Today(args.clock);

    // 10. Sites, robots, and the start date again (this value stands).
    LoadSites(w);
    LoadRobotList(w.robots, app.dataFolder);
    app.startDate = Today(args.clock);

    // 11. Settings defaults.
    SetSettingsDefaults(w.settings);

    // 12. The start-up page-extension list (replaced by the settings loader unless it fails
    // first).
    SetStartupPageExtensions(w.settings);

    // 13. Web colours, DNS host masks, search engines.
    SetBuiltInWebColours(w.settings);
    SetBuiltInDnsMasks(w.settings);
    SetBuiltInSearchEngines(w.tables);

    // 14. The built-in exception catalogue.
    LoadExceptionConstants(w.exceptions);

    // 15. Settings, exception catalogue file, countries, search engines.
    LoadSettings(w);

    // A DDFPATH setting on a drive without a mapping: the tables would go elsewhere than the
    // user meant, so start-up ends here with the report.
    if (!app.dataFolderProblem.empty()) {
      throw vb::Failure(vb::kPathNotFound, app.dataFolderProblem);
    }

    // 16. Local time-zone offset.
    app.timeZoneOffset = GetTimeZoneOffset(args.clock);

    // 17. The caller shows the wizard window.
    result.status = MainStatus::Ok;
  } catch (const std::exception& failure) {
    w.errors.LogError("Main", failure);
    result.status = MainStatus::Failed;
    if (const auto* f = dynamic_cast<const vb::Failure*>(&failure)) {
      result.failure = f->Description();
    } else {
      result.failure = failure.what();
    }
  }
  return result;
}

}  // namespace startup
