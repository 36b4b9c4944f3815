// The settings loader: SETTINGS.INI keys, the kept last-item rule, DNS masks, page extensions, and
// how a failure ends the loader before EXTYPES.INI and the reference files.
#include "startup/Settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "startup/StartupTesting.h"
#include "vb/Format.h"

namespace startup {
namespace {

using testing::TestWorld;

// The three later files, so a test can see whether the loader reached them.
void WriteLaterFiles(TestWorld& t) {
  t.App("EXTYPES.INI", "NUMBER=999\r\nDESCRIPTION=Custom\r\n\r\n");
  t.Data("Countries.txt", "AU,Australia\r\n");
  t.Data("Search engines.txt", "Foo,.foo.\r\n");
}

bool LaterFilesRead(const World& w) {
  return w.exceptions.count == 29 && w.tables.countryCount == 1 && w.tables.searchEngineCount == 1;
}

TEST(Settings, LastItemOfFileIsNeverProcessed) {
  struct Case {
    const char* file;
    bool reverseDns;  // what REVERSEDNS=False left (the default is True)
  };
  // Without an empty line after it, the last item is never read, line end or not.
  for (const Case& c : {Case{"INACTIVITYMINS=20\r\nREVERSEDNS=False", true},
                        Case{"REVERSEDNS=False\r\n", true}, Case{"REVERSEDNS=False\r\n\r\n", false}}) {
    SCOPED_TRACE(c.file);
    TestWorld t;
    t.App("SETTINGS.INI", c.file);
    LoadSettings(t.w());
    EXPECT_EQ(t.w().settings.reverseDns, c.reverseDns);
  }
  TestWorld t;
  t.App("SETTINGS.INI", "INACTIVITYMINS=20\r\nREVERSEDNS=False");
  LoadSettings(t.w());
  EXPECT_EQ(t.w().settings.inactivityMins, 20);
}

TEST(Settings, KeysAreCaseInsensitiveAndValuesConvertByType) {
  TestWorld t;
  t.App("SETTINGS.INI",
        "[Settings]\r\n"
        " inactivitymins = 15\r\n"
        "EMAILSUBJECT=Hello, world\r\n"
        "[Web]\r\n"
        "WebAccessPort= 9000\r\n"
        "EMAILEVERY=7.5\r\n"
        "NOSPIDERS=-1\r\n"
        "WEBACCESS=false\r\n"
        "AUTOARCHIVETIME=02:30:15\r\n"
        "DEFAULTSOUND= ding.wav\r\n"
        "WEBCOLGRID=#123456\r\n"
        "DDFPATH=/srv/data\r\n"
        "UNKNOWNKEY=whatever\r\n"
        "\r\n");
  LoadSettings(t.w());
  const AppSettings& s = t.w().settings;
  EXPECT_EQ(s.inactivityMins, 15);
  EXPECT_EQ(s.emailSubject, "Hello");  // the comma ends the item
  EXPECT_EQ(s.webAccessPort, 9000);
  EXPECT_EQ(s.emailEvery, 8);  // nearest integer, ties to even
  EXPECT_TRUE(s.noSpiders);
  EXPECT_FALSE(s.webAccess);
  EXPECT_EQ(vb::FormatDate(s.autoArchiveTime, "hh:mm:ss"), "02:30:15");
  EXPECT_EQ(s.defaultSound, " ding.wav");  // blanks after "=" are kept
  EXPECT_EQ(s.webColGrid, "#123456");
  EXPECT_EQ(t.w().app.dataFolder, "/srv/data");  // taken as written
  // No EXTENSION keys: the loader's own list of 18.
  ASSERT_EQ(s.pageExtensionCount, 18);
  EXPECT_EQ(s.pageExtensions[8], "php");
  EXPECT_EQ(s.pageExtensions[18], "zip");
}

TEST(Settings, NonNumericShortGivesZeroButNonNumericLongEndsTheLoader) {
  TestWorld t;
  WriteLaterFiles(t);
  t.App("SETTINGS.INI",
        "INACTIVITYMINS=abc\r\n"
        "WEBACCESSPORT=abc\r\n"
        "EMAILEVERY=9\r\n"
        "\r\n");
  LoadSettings(t.w());
  const World& w = t.w();
  EXPECT_EQ(w.settings.inactivityMins, 0);
  EXPECT_EQ(w.settings.webAccessPort, 8004);
  EXPECT_EQ(w.settings.emailEvery, 2);         // later key not read
  EXPECT_EQ(w.settings.pageExtensionCount, 0);  // the 18 are not set after a failure
  EXPECT_EQ(w.exceptions.count, 28);            // EXTYPES.INI not read
  EXPECT_EQ(w.tables.countryCount, 0);          // Countries.txt not read
  EXPECT_EQ(w.tables.searchEngineCount, 26);    // Search engines.txt not read
}

TEST(Settings, BadFlagOrTimeEndsTheLoader) {
  for (const char* line : {"REVERSEDNS=yes", "AUTOARCHIVETIME=later", "AUTOARCHIVETIME="}) {
    TestWorld t;
    WriteLaterFiles(t);
    t.App("SETTINGS.INI", std::string(line) + "\r\nINACTIVITYMINS=30\r\n\r\n");
    LoadSettings(t.w());
    EXPECT_EQ(t.w().settings.inactivityMins, 10) << line;
    EXPECT_FALSE(LaterFilesRead(t.w())) << line;
  }
}

TEST(Settings, DnsMasksOutOfRangeAreIgnoredAndABareKeyEndsTheLoader) {
  TestWorld t;
  WriteLaterFiles(t);
  t.App("SETTINGS.INI",
        "DNSMASK0=zero\r\n"
        "DNSMASK51=fifty-one\r\n"
        "DNSMASK50=*.last.net\r\n"
        "dnsmask2=*.Second.NET\r\n"
        "DNSMASK=x\r\n"
        "DNSMASK3=never\r\n"
        "\r\n");
  LoadSettings(t.w());
  const AppSettings& s = t.w().settings;
  EXPECT_EQ(s.dnsMasks[50], "*.last.net");
  EXPECT_EQ(s.dnsMasks[2], "*.Second.NET");   // the value keeps its case
  EXPECT_EQ(s.dnsMasks[1], "*.proxy.aol.com");  // untouched built-in
  EXPECT_EQ(s.dnsMasks[3], "*.crawl.yahoo.net");
  EXPECT_EQ(s.dnsMasks[0], "");
  EXPECT_FALSE(LaterFilesRead(t.w()));
}

TEST(Settings, ThirtyExtensionsAreTakenAndAThirtyFirstEndsTheLoader) {
  std::string thirty;
  for (int i = 1; i <= 30; ++i) thirty += "EXTENSION" + std::to_string(i) + "=E" + std::to_string(i) + "\r\n";
  {
    TestWorld t;
    WriteLaterFiles(t);
    t.App("SETTINGS.INI", "EXTENSION=\r\n" + thirty + "\r\n");
    LoadSettings(t.w());
    const AppSettings& s = t.w().settings;
    ASSERT_EQ(s.pageExtensionCount, 30);  // the empty value was not counted
    EXPECT_EQ(s.pageExtensions[1], "e1");
    EXPECT_EQ(s.pageExtensions[30], "e30");
    EXPECT_TRUE(LaterFilesRead(t.w()));
  }
  {
    TestWorld t;
    WriteLaterFiles(t);
    t.App("SETTINGS.INI", thirty + "EXTENSIONX=htm\r\nINACTIVITYMINS=30\r\n\r\n");
    LoadSettings(t.w());
    const AppSettings& s = t.w().settings;
    EXPECT_EQ(s.pageExtensionCount, 30);
    EXPECT_EQ(s.pageExtensions[30], "e30");
    EXPECT_EQ(s.inactivityMins, 10);
    EXPECT_FALSE(LaterFilesRead(t.w()));
  }
}

TEST(Settings, MissingOrFolderSettingsFileKeepsDefaultsAndReadsTheRest) {
  for (const bool folder : {false, true}) {
    SCOPED_TRACE(folder ? "a folder named SETTINGS.INI" : "no SETTINGS.INI");
    TestWorld t;
    WriteLaterFiles(t);
    if (folder) std::filesystem::create_directory(t.dir.path() / "SETTINGS.INI");
    LoadSettings(t.w());
    EXPECT_EQ(t.w().settings.pageExtensionCount, 18);
    EXPECT_EQ(t.w().settings.inactivityMins, 10);
    EXPECT_TRUE(LaterFilesRead(t.w()));
  }
  TestWorld t;  // found whatever the case of its name
  t.App("settings.ini", "INACTIVITYMINS=25\r\n\r\n");
  LoadSettings(t.w());
  EXPECT_EQ(t.w().settings.inactivityMins, 25);
}

// Reading the first item of an empty file runs past its end, and an unreadable file gives no
// item at all: either ends the loader as any failure does, with no page extensions and no later
// files.
TEST(Settings, EmptyOrUnreadableSettingsFileEndsTheLoader) {
  for (const bool unreadable : {false, true}) {
    if (unreadable && ::geteuid() == 0) continue;  // root reads files whatever their mode
    TestWorld t;
    WriteLaterFiles(t);
    t.App("SETTINGS.INI", unreadable ? "INACTIVITYMINS=30\r\n\r\n" : "");
    if (unreadable) ::chmod((t.dir.path() / "SETTINGS.INI").c_str(), 0);
    LoadSettings(t.w());
    EXPECT_EQ(t.w().settings.inactivityMins, 10) << unreadable;
    EXPECT_EQ(t.w().settings.pageExtensionCount, 0) << unreadable;
    EXPECT_FALSE(LaterFilesRead(t.w())) << unreadable;
  }
}

TEST(Settings, GarbageBytesNeverCrashTheLoader) {
  TestWorld t;
  WriteLaterFiles(t);
  std::string bytes = "INACTIVITYMINS=12\r\n";
  bytes += std::string("EMAILFROM=a\0b\r\n", 15);
  bytes += "EMAILSENDTO=caf\xE9 \x80\xFF\r\n";
  bytes += "EMAILSERVER=" + std::string(10 * 1024 * 1024, 'x') + "\r\n";
  bytes += "NOISE\x01\x02\x03\r\n";
  bytes += "EMAILEVERY=4\r\n\r\n";
  t.App("SETTINGS.INI", bytes);
  LoadSettings(t.w());
  const AppSettings& s = t.w().settings;
  EXPECT_EQ(s.inactivityMins, 12);
  EXPECT_EQ(s.emailSendTo, "caf\xE9 \x80\xFF");
  EXPECT_EQ(s.emailServer.size(), 10u * 1024 * 1024);
  EXPECT_EQ(s.emailEvery, 4);
  EXPECT_TRUE(LaterFilesRead(t.w()));
}

}  // namespace
}  // namespace startup
