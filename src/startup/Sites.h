// The monitored sites and their alert definitions, as the sites file (upper-case AppTitle + ".INI",
// by default TALLYO.INI, in the application folder) defines them, and the site loader.
//
// Both lists are one-based, with separate 16-bit counts, and live in the World:
//   world.sites:  151 slots after LoadSites (0..150); slot 0 is never a site; sites are
//                 1..world.siteCount in file order.
//   world.alerts: 1..world.alertCount; slot 0 is a scratch slot that absorbs alert keys written
//                 before any alert exists, so alerts.size() == alertCount + 1.
// These records hold configuration only; the run-time working state of a scan (file date, visit
// counters, day counters, sweep times, ...) lives with the scan, not here.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "startup/LogLayout.h"
#include "vb/Dates.h"

namespace startup {

struct World;

inline constexpr int kAlertListSlots = 50;  // entries per alert list (DNS, word, engine, page)

// The mask a site gets when MASK is empty or blank.
inline constexpr std::string_view kDefaultLogMask = "*.LOG";
// The name of the alert created for alert-list keys that come before any ALERT key.
inline constexpr std::string_view kDefaultAlertName = "Default (All Visitors)";

struct Site {
  int16_t currentAlert = 0;        // alert that this site's list keys fill; 0 = none yet
  int32_t lastReadPos = 0;         // LASTREADPOS
  int32_t lastReadPosDay = 0;      // LASTREADPOSDAY
  std::string lastFields;          // LASTFIELDS: the last "#Fields:" column list seen
  vb::Date lastReadDateTime = 0;   // LASTREADDATETIME: date plus time of day
  bool lastFieldsKnown = false;    // set whenever LASTFIELDS is read
  bool sleepMode = false;          // SLEEPMODE
  vb::Date sleepStart = 0;         // SLEEPSTART (time of day)
  vb::Date sleepEnd = 0;           // SLEEPEND (time of day)
  bool paused = false;             // PAUSED
  int32_t frequency = 0;           // FREQUENCY
  std::string name;                // the section name: the site's identity
  LogLayout type = LogLayout::W3cExtended;  // TYPE: the log layout (any 16-bit value)
  bool unixServer = false;         // UNIX: the server is a Unix server (logs end lines with LF)
  std::string lastLogFile;         // LASTLOGFILE
  std::string mask;                // MASK: file mask of the log files ("*.LOG" when blank)
  int16_t selectMethod = 0;        // SELECTMETHOD
  bool includeQuery = false;       // INCLUDEQUERY: keep the query part of a request
  bool ftp = false;                // FTP: logs come by FTP; the scan skips the site
  std::string ftpDomain;           // FTPDOMAIN
  std::string ftpUserName;         // FTPUSERNAME
  std::string ftpPassword;         // FTPPASSWORD
  std::string ftpPath;             // FTPPATH
  bool ftpPassive = false;         // FTPPASSIVE
  // FOLDER: the folder of the log files, as this machine names it (see Folders.h: backslashes,
  // drive letters through the registry's drive map, relative to the application folder, each
  // level found in any case); it always ends with "/". Empty when the value is empty or names a
  // drive without a mapping.
  std::string folder;
  // FOLDER as the sites file writes it.
  std::string folderAsWritten;
  // Set when FOLDER names a drive without a mapping: the report the scan gives for the site
  // (which is then not scanned).
  std::string folderProblem;
  std::string exclude;             // EXCLUDE: ";"-separated address patterns to leave out
  std::string excludePages;        // EXCLUDEPAGES: ";"-separated page patterns to leave out
  std::string domain;              // DOMAIN: the site's own domain
  std::string homePage;            // HOMEPAGE
  std::string lastIp;              // LASTIP
  vb::Date lastTime = 0;           // LASTTIME: date plus time of day
  bool webAccess = false;          // WEBACCESS
  std::string webUserName;         // WEBUSERNAME
  std::string webPassword;         // WEBPASSWORD
  std::string webLogo;             // WEBLOGO
  bool webReferrers = false;       // WEBREFERRERS (set true when the section opens)
  bool useLocalTime = false;       // USELOCALTIME: the site's log times are local times
  int16_t pageLimit = 0;           // from exception 131 (RefreshexceptionConstants)
  int16_t visitMinutesLimit = 0;   // from exception 130
  int16_t returnLimit = 0;         // from exception 133
  int16_t pageMinutesLimit = 0;    // from exception 134
  int16_t limit404 = 0;            // from exception 161
  bool touch = false;              // TOUCH
  int16_t touchEvery = 0;          // TOUCHEVERY
  std::string touchPage;           // TOUCHPAGE
  std::string emailAddress;        // EMAILADDRESS
  bool emailGlobalAlso = false;    // EMAILGLOBALALSO
  bool emailDailyReport = false;   // EMAILDAILYREPORT
  bool autoArchive = false;        // AUTOARCHIVE
};

struct Alert {
  int16_t site = 0;                // index of the site whose section defined it
  int16_t number = 1;              // ALERTNO
  std::string name;                // ALERT, or "Default (All Visitors)"
  bool sound = false;              // ALERTSOUND
  std::string soundFile;           // ALERTSOUNDFILE
  std::string message;             // ALERTMESSAGE
  bool email = false;              // ALERTEMAIL
  std::string emailAddress;        // ALERTEMAILADDRESS
  bool runThis = false;            // ALERTRUNTHIS (value lower-cased before conversion)
  std::string run;                 // ALERTRUN
  // The four lists: entries 1..count, slot 0 unused, at most 50 each.
  std::array<std::string, kAlertListSlots + 1> dnsList{};     // ALERTDNS, lower case
  std::array<std::string, kAlertListSlots + 1> wordList{};    // ALERTWORD, lower case
  std::array<std::string, kAlertListSlots + 1> engineList{};  // ALERTENGINE, lower case
  std::array<std::string, kAlertListSlots + 1> pageList{};    // ALERTPAGE, as written
  int16_t dnsCount = 0;
  int16_t engineCount = 0;
  int16_t wordCount = 0;
  int16_t pageCount = 0;
  bool allEngines = false;         // ALERTENGINEALL: true only for the exact value "Y"
  bool enabled = true;             // ALERTENABLED
  int32_t colour = 0;              // ALERTCOLOR
};

// Empties both lists and fills them from the sites file. REQUIRES: world.app set (appFolder,
// appTitle, maxSites). A missing sites file gives no sites. A failure (a bad flag or number, a
// 51st list entry, a key before the first section, an unreadable file) ends the loader silently:
// what was read stays, nothing is logged. Never throws.
void LoadSites(World& world);

// Where the sites file was looked for and what was found there, as one sentence for a user who
// is told that no site is set up: not found; found but unreadable (with the system's reason);
// found but not plain text (UTF-16, binary); or found and read, but without a site section.
std::string DescribeSitesFile(const World& world);

// Appends an alert with the defaults above, the given site and name, and makes it the site's
// current alert. REQUIRES: 1 <= siteIndex < world.sites.size(), else vb::Failure(9).
// Throws vb::Failure(6) when the alert count would pass 32767.
void AddAlert(World& world, int16_t siteIndex, std::string_view name);

}  // namespace startup
