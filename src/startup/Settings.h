// The global settings: the record filled from SETTINGS.INI, with the page-extension list, the DNS
// host masks and the web colours, and the settings loader `LoadSettings`.
//
// SETTINGS.INI is read as comma- and line-delimited items "KEY=value"; keys are case-insensitive;
// lines beginning "[" are ignored, so all keys form one flat namespace. The last item of the file
// is never processed (the end-of-file test comes first): a file must end with an empty line for
// its last key to count. This is deliberate and kept, as existing files rely on it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "vb/Dates.h"

namespace startup {

struct World;

// Slots of the page-extension list and of the DNS host masks (both one-based, slot 0 unused).
inline constexpr int kMaxPageExtensions = 30;
inline constexpr int kDnsMaskCount = 50;

// One member per SETTINGS.INI key (the key is the member name in upper case, e.g.
// INACTIVITYMINS -> inactivityMins). The member defaults are the values in force after start-up
// when SETTINGS.INI sets nothing; `Main` sets them again explicitly, in its own order. The
// page-extension list and the DNS masks start empty: SetBuiltInDefaults (StartupSequence.h) and
// LoadSettings fill them.
struct AppSettings {
  int16_t inactivityMins = 10;       // INACTIVITYMINS: minutes without a hit that end a visit
  bool reverseDns = true;            // REVERSEDNS: initial state of the reverse-DNS choice
  std::string defaultSound;          // DEFAULTSOUND
  bool newVisitorSound = true;       // NEWVISITORSOUND
  bool noSpiders = false;            // NOSPIDERS: spider handling switch
  std::string emailServer;           // EMAILSERVER
  std::string emailUserName;         // EMAILUSERNAME
  std::string emailPassword;         // EMAILPASSWORD
  std::string emailSendTo;           // EMAILSENDTO
  std::string emailFrom;             // EMAILFROM
  std::string emailSubject = "Message From Tallyo";  // EMAILSUBJECT (the product word, always)
  int16_t emailEvery = 2;            // EMAILEVERY
  bool emailDailyReport = false;     // EMAILDAILYREPORT
  bool changeIconDuringScan = true;  // CHANGEICONDURINGSCAN
  bool webAccess = true;             // WEBACCESS
  bool webAccessControl = false;     // WEBACCESSCONTROL
  bool webAccessLog = true;          // WEBACCESSLOG
  bool webAccessEmail = false;       // WEBACCESSEMAIL
  int32_t webAccessPort = 8004;      // WEBACCESSPORT
  bool wapAccess = true;             // WAPACCESS
  std::string webUserName;           // WEBUSERNAME
  std::string webPassword;           // WEBPASSWORD
  // The ten web colours, "#rrggbb" (WEBCOL... keys).
  std::string webColBackColor = "#FFFFFF";        // WEBCOLBACKCOLOR
  std::string webColButtonBorder = "#316AC5";     // WEBCOLBUTTONBORDER
  std::string webColButtonFace = "#E1E6E8";       // WEBCOLBUTTONFACE
  std::string webColButtonHighlight = "#C1D2EE";  // WEBCOLBUTTONHIGHLIGHT
  std::string webColDarkBorder = "#00138C";       // WEBCOLDARKBORDER
  std::string webColGrid = "#808080";             // WEBCOLGRID
  std::string webColGridBack = "#FFFFFF";         // WEBCOLGRIDBACK
  std::string webColGridHeader = "#ECE9D8";       // WEBCOLGRIDHEADER
  std::string webColLiteBorder = "#1F77F6";       // WEBCOLLITEBORDER
  std::string webColTableHeading = "#2660DD";     // WEBCOLTABLEHEADING
  bool autoHide = false;             // AUTOHIDE
  bool autoArchive = false;          // AUTOARCHIVE
  int16_t autoArchiveDays = 0;       // AUTOARCHIVEDAYS
  vb::Date autoArchiveTime = 0;      // AUTOARCHIVETIME (time of day; 0 = midnight)
  // DDFPATH has no member: it replaces AppState::dataFolder.

  // Page extensions: lower case, no dot; entries 1..pageExtensionCount (at most 30), slot 0
  // unused.
  std::array<std::string, kMaxPageExtensions + 1> pageExtensions{};
  int16_t pageExtensionCount = 0;

  // DNS host masks, slots 1..50 (slot 0 unused); an empty text is an unused mask.
  std::array<std::string, kDnsMaskCount + 1> dnsMasks{};
};

// The fixed keys of SETTINGS.INI with the member each one sets (the member's type is the key's
// type: int16_t short, int32_t long, bool flag, std::string text, vb::Date time of day), in the
// order of the settings table. DDFPATH, DNSMASKn and EXTENSION... are handled apart.
using SettingsMember =
    std::variant<int16_t AppSettings::*, int32_t AppSettings::*, bool AppSettings::*,
                 std::string AppSettings::*, vb::Date AppSettings::*>;
struct SettingsKey {
  std::string_view key;  // upper case, as compared
  SettingsMember member;
};
std::span<const SettingsKey> SettingsKeys();

// Reads SETTINGS.INI from the application folder, fixes the page-extension list, then loads
// EXTYPES.INI (application folder), "Countries.txt" and "Search engines.txt" (data folder), in that
// order. REQUIRES: world.app.appFolder (and dataFolder) set; `Main`'s defaults in place.
// A failure (a bad flag or number, a bare DNSMASK key, a 31st EXTENSION, a line without a comma in
// a table file, a file that cannot be read) ends the loader at once and silently: the open file is
// closed, every value read so far stays, nothing is logged, the later files are not read. A missing
// SETTINGS.INI is no failure. Never throws.
void LoadSettings(World& world);

// The 18 page extensions the settings loader sets when SETTINGS.INI names none.
void SetLoaderPageExtensions(AppSettings& settings);
// The 16 page extensions `Main` sets before the loader runs (no "php", no "zip").
void SetStartupPageExtensions(AppSettings& settings);

}  // namespace startup
