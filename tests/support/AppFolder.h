// An application folder for whole scans in one test process: SETTINGS.INI (reverse DNS off, a
// 20-minute time-out), TALLYO.INI with the given sections and an empty Data/ in a temp folder,
// at 2026-11-16 09:00 by a fixed clock; started up as the programs start, and scanned through the
// wizard with every question answered Yes. Only the end-to-end tests use it (they link the
// wizard).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "FakeFrontend.h"
#include "TestSupport.h"
#include "platform/Clock.h"
#include "platform/Registry.h"
#include "startup/StartupSequence.h"
#include "vb/Dates.h"
#include "wizard/RunTimer.h"
#include "wizard/Wizard.h"

namespace tytest {

struct AppFolder {
  TempDir dir;
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16) + vb::TimeSerial(9, 0, 0)};
  FakeFrontend ui;
  wizard::FixedRunTimer timer{100.0f, 1.5f};
  startup::MainResult started;
  std::unique_ptr<wizard::Wizard> window;

  // `sites`: the sites file's sections, each "[Name]\r\nKEY=value\r\n...".
  explicit AppFolder(const std::string& sites) {
    WriteFile(dir.path() / "SETTINGS.INI", "REVERSEDNS=False\r\nINACTIVITYMINS=20\r\n\r\n");
    WriteFile(dir.path() / "TALLYO.INI", sites + "\r\n");
    std::filesystem::create_directories(dir.path() / "Data");
  }
  // Writes `bytes` to `relative` under the application folder.
  void File(const std::string& relative, const std::string& bytes) {
    WriteFile(dir.path() / relative, bytes);
  }
  // Copies testdata/`testdata` of the source tree to `relative` under the application folder.
  void Copy(const std::string& testdata, const std::string& relative) {
    std::filesystem::create_directories((dir.path() / relative).parent_path());
    std::filesystem::copy_file(SourceDir() / "testdata" / testdata, dir.path() / relative);
  }
  // Start-up alone, with the registry file's text.
  startup::MainStatus Start(const std::string& registryText = "") {
    const auto registry = platform::IniRegistry::FromText(registryText);
    started = startup::Main(startup::MainArgs{dir.str(), dir.str(), registry, clock, dir.str()});
    if (started.world) started.world->errors.SetBeep(false);
    return started.status;
  }
  // Start-up, `before` on the loaded World, the load checks and the scan; the window is unloaded
  // afterwards and stays for the test to look at (window->Driver()).
  wizard::StartResult Run(const std::string& registryText = "",
                          const std::function<void(startup::World&)>& before = {}) {
    EXPECT_EQ(Start(registryText), startup::MainStatus::Ok);
    if (before) before(*started.world);
    window = std::make_unique<wizard::Wizard>(*started.world, ui, timer);
    EXPECT_EQ(window->Load(), wizard::LoadResult::Ready);
    ui.answer = platform::MsgResult::Yes;
    const wizard::StartResult r = window->Start(platform::IniRegistry::FromText(registryText));
    window->Unload();
    return r;
  }
  // The data folder: as start-up worked it out, or Data/ before it.
  std::string Data() const {
    return started.world ? started.world->app.dataFolder : dir.str() + "Data/";
  }
  // Whether a message box held `part`.
  bool Shown(const std::string& part) const {
    for (const auto& m : ui.messages)
      if (m.text.find(part) != std::string::npos) return true;
    return false;
  }
};

}  // namespace tytest
