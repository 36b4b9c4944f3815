// Fuzz target: the reading of one log file, as a scan reads it.
//
// The first byte sets the site: its TYPE (bits 0-2: 0 W3C, 1-4 the fixed
// layouts, 5 TAB separated, 6-7 unknown types) and its UNIX flag (bit 3); bit 4
// hands every other hit through the deferred-fields path instead of a direct
// copy. The rest of the input is the site's log file. ScanLogFile then reads it
// line by line in the site's reading mode, applies the "#Fields:" and "#Date:"
// directives (the field map), and the hooks below split each data line by the
// site's separator and copy its fields into the hit fields, as the hit
// processing does.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>

#include "FakeFrontend.h"
#include "FuzzTarget.h"
#include "loginput/HitFields.h"
#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "loginput/ScanLogFile.h"
#include "platform/Clock.h"
#include "startup/World.h"
#include "vb/Dates.h"

namespace {

// The hit processing's use of a line: split, page first, then the other
// analysed columns either copied at once or deferred to the next hit; every
// field once more through FillHitFields.
class FieldHooks : public loginput::CountingHits {
 public:
  FieldHooks(loginput::LogInputState& run, bool defer)
      : CountingHits(run), run_(run), defer_(defer) {}
  void ProcessHit(std::string_view line, int siteIndex) override {
    loginput::SiteReadState& site = run_.Site(siteIndex);
    loginput::HitFields& hits = run_.hits;
    fields_.Split(line, site.separator, loginput::AnalysedMaxPlace(run_.fieldMap));
    loginput::SettleHitFields(run_.fieldMap, hits);
    loginput::FillHitPage(fields_, run_.fieldMap, hits);
    if (defer_ && (++count_ % 2) == 0) {
      loginput::DeferAnalysedHitFields(line, site.separator, run_.fieldMap, hits);
    } else {
      loginput::FillAnalysedHitFieldsButPage(fields_, run_.fieldMap, hits);
    }
    loginput::SettleHitFields(run_.fieldMap, hits);
    CountingHits::ProcessHit(line, siteIndex);
  }

 private:
  loginput::LogInputState& run_;
  bool defer_;
  int64_t count_ = 0;
  loginput::SplitFields fields_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];

  tytest::TempDir& dir = fuzz::Scratch();
  fuzz::Empty(dir.path());
  std::filesystem::create_directories(dir.path() / "Data");
  std::filesystem::create_directories(dir.path() / "logs");
  std::string_view log(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string_view lastFields;
  if (flags & 32) std::tie(lastFields, log) = fuzz::CutAt(log, "\n");
  tytest::WriteFile(dir.path() / "logs" / "ex.log", std::string(log));

  platform::FixedClock clock{vb::DateSerial(2026, 11, 16) + vb::TimeSerial(2, 23, 14), 60};
  startup::World world(clock);
  world.app.appFolder = dir.str();
  world.app.dataFolder = dir.str() + "Data/";
  world.app.appTitle = "Tallyo";
  world.errors.SetBeep(false);
  world.sites.resize(2);
  world.siteCount = 1;
  startup::Site& site = world.sites[1];
  site.name = "Main Site";
  site.folder = dir.str() + "logs/";
  site.mask = "*.LOG";
  site.type = static_cast<startup::LogLayout>(flags & 7);
  site.unixServer = (flags & 8) != 0;
  site.lastLogFile = site.folder + "ex.log";
  site.lastFields = std::string(lastFields);

  tytest::FakeFrontend ui;
  loginput::LogInputState run;
  FieldHooks hooks(run, (flags & 16) != 0);
  loginput::ScanLogFile(world, ui, run, hooks, 1);
  return 0;
}
