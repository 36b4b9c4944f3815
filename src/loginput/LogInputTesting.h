// Test helpers for log input: a World with one site whose log folder is a fresh temp folder, a
// hooks object that records what the reader hands over, and a zip writer for archive tests.
#pragma once

#include <zip.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FakeFrontend.h"
#include "TestSupport.h"
#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "platform/Clock.h"
#include "startup/World.h"
#include "vb/Dates.h"

namespace loginput::testing {

struct InputWorld {
  tytest::TempDir dir;
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16) + vb::TimeSerial(2, 23, 14)};
  std::unique_ptr<startup::World> world = std::make_unique<startup::World>(clock);
  tytest::FakeFrontend ui;
  LogInputState run;

  InputWorld() {
    world->app.appFolder = dir.str();
    world->app.dataFolder = dir.str() + "Data/";
    world->app.appTitle = "Tallyo";
    world->errors.SetBeep(false);
    std::filesystem::create_directories(dir.path() / "Data");
    std::filesystem::create_directories(dir.path() / "logs");
    world->sites.resize(2);
    world->siteCount = 1;
    startup::Site& s = site();
    s.name = "Main Site";
    s.folder = dir.str() + "logs/";
    s.mask = "*.LOG";
  }
  startup::World& w() { return *world; }
  startup::Site& site() { return world->sites[1]; }
  std::string Folder() const { return dir.str() + "logs/"; }
  // Writes a log file into the site's folder and makes it the site's LASTLOGFILE.
  std::string Log(const std::string& name, const std::string& bytes) {
    tytest::WriteFile(dir.path() / "logs" / name, bytes);
    site().lastLogFile = Folder() + name;
    return site().lastLogFile;
  }
  std::string ErrorsLog() const { return tytest::ReadFile(dir.path() / "Data" / "errors.log"); }
};

// Counts like CountingHits and keeps every line handed over, with the page field it gave.
class RecordingHooks : public CountingHits {
 public:
  explicit RecordingHooks(LogInputState& run) : CountingHits(run), run_(run) {}
  void ProcessHit(std::string_view line, int siteIndex) override {
    CountingHits::ProcessHit(line, siteIndex);
    lines.emplace_back(line);
    pages.push_back(run_.hits.page);
    fields.push_back(run_.hits);
  }
  bool DnsEnabled() override { return dnsOn; }
  int DnsPending() override { return pending; }
  void DnsWait() override { ++dnsWaits; }

  std::vector<std::string> lines;
  std::vector<std::string> pages;
  std::vector<HitFields> fields;  // the hit fields after each line
  bool dnsOn = false;
  int pending = 0;
  int dnsWaits = 0;

 private:
  LogInputState& run_;
};

// A member of a test archive: name, bytes, and whether it is a symbolic link (bytes = target).
struct Member {
  std::string name;
  std::string bytes;
  bool symlink = false;
  bool store = false;  // stored without compression
  bool encrypt = false;  // AES-encrypted with a password the reader does not have
  time_t mtime = 0;      // the modification time stored for it (0: the time of writing)
};

// Writes a zip archive with the given members. Returns false when libzip refuses.
inline bool WriteZip(const std::filesystem::path& path, const std::vector<Member>& members) {
  int err = 0;
  zip_t* z = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
  if (!z) return false;
  for (const Member& m : members) {
    zip_source_t* src = zip_source_buffer(z, m.bytes.data(), m.bytes.size(), 0);
    zip_int64_t i = src ? zip_file_add(z, m.name.c_str(), src, ZIP_FL_ENC_RAW) : -1;
    if (i < 0) {
      if (src) zip_source_free(src);
      zip_discard(z);
      return false;
    }
    if (m.symlink) {
      zip_file_set_external_attributes(z, static_cast<zip_uint64_t>(i), 0, ZIP_OPSYS_UNIX,
                                       (0120777u) << 16);
    }
    if (m.mtime != 0) zip_file_set_mtime(z, static_cast<zip_uint64_t>(i), m.mtime, 0);
    if (m.store) zip_set_file_compression(z, static_cast<zip_uint64_t>(i), ZIP_CM_STORE, 0);
    if (m.encrypt &&
        zip_file_set_encryption(z, static_cast<zip_uint64_t>(i), ZIP_EM_AES_256, "secret") != 0) {
      zip_discard(z);
      return false;
    }
  }
  return zip_close(z) == 0;
}

}  // namespace loginput::testing
