// Folders written the product's way read as folders of this machine; and the loaders that take
// them (sites file, settings) keep what was written beside what is read.
#include "startup/Folders.h"

#include <gtest/gtest.h>

#include "StartupTesting.h"
#include "platform/Registry.h"
#include "startup/Settings.h"
#include "startup/Sites.h"

namespace startup {
namespace {

using testing::TestWorld;

DriveMap Drives(const std::string& registryText) {
  return ReadDriveMap(platform::IniRegistry::FromText(registryText));
}

TEST(Folders, WindowsSpellingsResolveToOneFolderEndingWithItsSeparator) {
  tytest::TempDir dir;
  std::filesystem::create_directories(dir.path() / "logs" / "w3svc1");
  std::filesystem::create_directories(dir.path() / "srv" / "Web");
  const DriveMap drives = Drives("[drives]\r\nD: = " + dir.str() + "srv \r\n");
  const std::string app = dir.str();
  // Relative, with backslashes, in another case than on disk, with or without the separator,
  // with blanks around: all the same folder.
  for (const char* written : {"logs\\w3svc1\\", "Logs\\W3SVC1", " LOGS/w3svc1/ ", "logs/w3svc1"}) {
    const ResolvedFolder r = ResolveProductFolder(written, app, drives);
    EXPECT_EQ(r.folder, app + "logs/w3svc1/") << written;
    EXPECT_EQ(r.unmappedDrive, "") << written;
  }
  // A drive letter in either case, through the map (whose key is matched in any case).
  EXPECT_EQ(ResolveProductFolder("D:\\WEB\\", app, drives).folder, app + "srv/Web/");
  EXPECT_EQ(ResolveProductFolder("d:web", app, drives).folder, app + "srv/Web/");
  EXPECT_EQ(ResolveProductFolder("D:\\", app, drives).folder, app + "srv/");
  // Levels that do not exist yet stay as written.
  EXPECT_EQ(ResolveProductFolder("D:\\Web\\New\\Logs", app, drives).folder,
            app + "srv/Web/New/Logs/");
  // An absolute folder stays absolute; an empty one stays empty.
  EXPECT_EQ(ResolveProductFolder(app + "logs", app, drives).folder, app + "logs/");
  EXPECT_EQ(ResolveProductFolder("  ", app, drives).folder, "");
}

TEST(Folders, ADriveWithoutAMappingIsReportedNeverGuessed) {
  const DriveMap drives = Drives("[Drives]\r\nD:=/srv/logs\r\n");
  const ResolvedFolder r = ResolveProductFolder("e:\\Logs\\", "/opt/app/", drives);
  EXPECT_EQ(r.folder, "");
  EXPECT_EQ(r.unmappedDrive, "E:");
  const std::string text = UnmappedDriveMessage("site: Shop", "e:\\Logs\\", "E:", drives);
  EXPECT_EQ(text,
            "The folder of site: Shop, e:\\Logs\\, is on drive E:, which has no mapping on this "
            "machine: add a line \"E:=<folder>\" to the [Drives] section of the registry.");
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(Folders, SitesAndSettingsKeepTheFolderAsWrittenBesideTheOneRead) {
  TestWorld t;
  t.w().app.drives = Drives("[Drives]\r\nD:=/srv/logs\r\n");
  t.App("TALLYO.INI",
        "[Shop]\r\nFOLDER=D:\\Shop\\\r\n[Lost]\r\nFOLDER=X:\\Logs\r\n[Local]\r\nFOLDER=logs\r\n\r\n");
  LoadSites(t.w());
  ASSERT_EQ(t.w().siteCount, 3);
  EXPECT_EQ(t.w().site(1).folder, "/srv/logs/Shop/");
  EXPECT_EQ(t.w().site(1).folderAsWritten, "D:\\Shop\\");
  EXPECT_EQ(t.w().site(1).folderProblem, "");
  EXPECT_EQ(t.w().site(2).folder, "");
  EXPECT_NE(t.w().site(2).folderProblem.find("site: Lost, X:\\Logs, is on drive X:"),
            std::string::npos);
  EXPECT_EQ(t.w().site(3).folder, t.dir.str() + "logs/");

  // DDFPATH: taken as written, so no closing separator is added, but read the same way.
  t.App("SETTINGS.INI", "DDFPATH=D:\\Tallyo\\Data\r\n\r\n");
  LoadSettings(t.w());
  EXPECT_EQ(t.w().app.dataFolder, "/srv/logs/Tallyo/Data");
  EXPECT_EQ(t.w().app.dataFolderAsWritten, "D:\\Tallyo\\Data");
  t.App("SETTINGS.INI", "DDFPATH=Z:\\Data\\\r\n\r\n");
  LoadSettings(t.w());
  EXPECT_EQ(t.w().app.dataFolder, "/srv/logs/Tallyo/Data");  // kept
  EXPECT_NE(t.w().app.dataFolderProblem.find("DDFPATH in SETTINGS.INI, Z:\\Data\\"),
            std::string::npos);
}

}  // namespace
}  // namespace startup
