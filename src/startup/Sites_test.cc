// The site loader: sections, keys and their conversions, the 150-site limit, alerts and their
// lists, and failures that end the loader with what was read.
#include "startup/Sites.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "startup/StartupTesting.h"
#include "vb/Failure.h"
#include "vb/Format.h"

namespace startup {
namespace {

using testing::TestWorld;

// A world whose sites file holds `ini`, loaded.
struct LoadedSites : TestWorld {
  explicit LoadedSites(const std::string& ini) {
    App("TALLYO.INI", ini);
    LoadSites(w());
  }
};

TEST(Sites, SectionsAndKeysFillTheSitesInFileOrder) {
  LoadedSites t(
      "[Main Site]\r\n"
      "TYPE=2\r\n"
      "FOLDER=logs/apache/\r\n"
      "MASK=access_log*\r\n"
      "unix = True\r\n"
      "LASTTIME=16/11/2026 02:23:14\r\n"
      "LASTFIELDS=date time c-ip\r\n"
      "FREQUENCY=60\r\n"
      "SLEEPSTART=22:00\r\n"
      "EXCLUDE=10.*;192.168.*\r\n"
      "[Shop]\r\n"
      "FTP=True\r\n"
      "FOLDER=/var/log/shop/\r\n"
      "MASK=\r\n"
      "WEBREFERRERS=False\r\n"
      "[Blanks]\r\n"
      "MASK=   \r\n"
      "TYPE=7\r\n");  // the last item: never processed
  const World& w = t.w();
  ASSERT_EQ(w.siteCount, 3);
  const Site& main = w.sites[1];
  EXPECT_EQ(main.name, "Main Site");
  EXPECT_EQ(main.type, LogLayout::Combined);
  EXPECT_EQ(main.folder, t.dir.str() + "logs/apache/");  // relative to the application folder
  EXPECT_EQ(main.mask, "access_log*");
  EXPECT_TRUE(main.unixServer);
  EXPECT_EQ(vb::FormatDate(main.lastTime, "dd/mm/yyyy hh:mm:ss"), "16/11/2026 02:23:14");
  EXPECT_EQ(main.lastFields, "date time c-ip");
  EXPECT_TRUE(main.lastFieldsKnown);
  EXPECT_EQ(main.frequency, 60);
  EXPECT_EQ(vb::FormatDate(main.sleepStart, "hh:mm:ss"), "22:00:00");
  EXPECT_EQ(main.exclude, "10.*;192.168.*");
  EXPECT_TRUE(main.webReferrers);  // set when the section opens
  EXPECT_FALSE(w.sites[2].webReferrers);
  EXPECT_TRUE(w.sites[2].ftp);
  EXPECT_EQ(w.sites[2].folder, "/var/log/shop/");
  EXPECT_EQ(w.sites[2].mask, "*.LOG");
  EXPECT_EQ(w.sites[3].mask, "*.LOG");
  EXPECT_EQ(w.sites[3].type, LogLayout::W3cExtended);
  EXPECT_EQ(w.sites.size(), 151u);
}

TEST(Sites, TheHundredAndFiftyFirstSectionOverwritesTheLastSite) {
  std::string file;
  for (int i = 1; i <= 151; ++i) {
    file += "[Site" + std::to_string(i) + "]\r\n";
    if (i == 150) file += "DOMAIN=one-fifty.example\r\nTYPE=3\r\n";
    if (i == 151) file += "TYPE=4\r\n";
  }
  LoadedSites t(file + "\r\n");
  const World& w = t.w();
  ASSERT_EQ(w.siteCount, 150);
  EXPECT_EQ(w.sites[149].name, "Site149");
  EXPECT_EQ(w.sites[150].name, "Site151");
  EXPECT_EQ(w.sites[150].type, LogLayout::FirewallStyle);
  EXPECT_EQ(w.sites[150].domain, "one-fifty.example");  // the 150th section's keys stay
}

TEST(Sites, AlertListKeysCreateTheDefaultAlertAndAlertKeysFillTheLastAlert) {
  LoadedSites t(
      "[One]\r\n"
      "ALERTDNS=*.DIALUP.*\r\n"
      "ALERTENGINEALL=y\r\n"
      "ALERT=Bots\r\n"
      "ALERTNO=3\r\n"
      "ALERTRUNTHIS=TRUE\r\n"
      "ALERTCOLOR=255.4\r\n"
      "ALERTWORD=Cheap Flights\r\n"
      "ALERTPAGE=/Index.HTM\r\n"
      "ALERTENGINEALL=Y\r\n"
      "[Two]\r\n"
      "ALERTNO=9\r\n"  // before Two has an alert: sets the alert added last (One's "Bots")
      "ALERTENGINE=GOOGLE\r\n"
      "\r\n");
  const World& w = t.w();
  ASSERT_EQ(w.siteCount, 2);
  ASSERT_EQ(w.alertCount, 3);

  const Alert& def = w.alert(1);
  EXPECT_EQ(def.name, "Default (All Visitors)");
  EXPECT_EQ(def.site, 1);
  ASSERT_EQ(def.dnsCount, 1);
  EXPECT_EQ(def.dnsList[1], "*.dialup.*");
  EXPECT_FALSE(def.allEngines);  // "y" is not "Y"
  EXPECT_TRUE(def.enabled);
  EXPECT_EQ(def.number, 1);

  const Alert& bots = w.alert(2);
  EXPECT_EQ(bots.name, "Bots");
  EXPECT_EQ(bots.number, 9);
  EXPECT_TRUE(bots.runThis);
  EXPECT_EQ(bots.colour, 255);
  EXPECT_EQ(bots.wordList[1], "cheap flights");
  EXPECT_EQ(bots.pageList[1], "/Index.HTM");  // pages keep their case
  EXPECT_TRUE(bots.allEngines);
  EXPECT_EQ(w.sites[1].currentAlert, 2);

  const Alert& two = w.alert(3);
  EXPECT_EQ(two.site, 2);
  EXPECT_EQ(two.name, "Default (All Visitors)");
  EXPECT_EQ(two.engineList[1], "google");
  EXPECT_EQ(w.sites[2].currentAlert, 3);

  EXPECT_THROW(w.alert(4), vb::Failure);
  EXPECT_THROW(w.site(0), vb::Failure);
}

TEST(Sites, FailuresEndTheLoaderAndKeepWhatWasRead) {
  {
    LoadedSites t("TYPE=1\r\n[A]\r\nTYPE=2\r\n\r\n");  // a key before the first section
    EXPECT_EQ(t.w().siteCount, 0);
  }
  {
    // Unknown keys and items without "=" before a section are harmless.
    LoadedSites t("; comment\r\nCOMMENT=x\r\n[A]\r\nTYPE=2\r\n\r\n");
    ASSERT_EQ(t.w().siteCount, 1);
    EXPECT_EQ(t.w().sites[1].type, LogLayout::Combined);
  }
  {
    LoadedSites t("[A]\r\nTYPE=1\r\n[B]\r\nFTP=maybe\r\nTYPE=5\r\n[C]\r\n\r\n");  // a bad flag
    ASSERT_EQ(t.w().siteCount, 2);
    EXPECT_EQ(t.w().sites[1].type, LogLayout::CommaShort);
    EXPECT_EQ(t.w().sites[2].type, LogLayout::W3cExtended);
  }
  {
    std::string file = "[A]\r\n";  // a 51st list entry
    for (int i = 1; i <= 51; ++i) file += "ALERTDNS=host" + std::to_string(i) + "\r\n";
    LoadedSites t(file + "[B]\r\n\r\n");
    EXPECT_EQ(t.w().siteCount, 1);
    ASSERT_EQ(t.w().alertCount, 1);
    EXPECT_EQ(t.w().alert(1).dnsCount, 50);
    EXPECT_EQ(t.w().alert(1).dnsList[50], "host50");
  }
  {
    LoadedSites t("[A]\r\nLASTREADPOS=12x\r\n[B]\r\n\r\n");  // a strict long, not a number
    EXPECT_EQ(t.w().siteCount, 1);
    EXPECT_EQ(t.w().sites[1].lastReadPos, 0);
  }
}

TEST(Sites, MissingFileGivesNoSitesAndTheTitleNamesTheFile) {
  TestWorld t;
  t.App("TALLYO.INI", "[A]\r\n\r\n");
  t.w().app.appTitle = "Acme";
  LoadSites(t.w());
  EXPECT_EQ(t.w().siteCount, 0);
  t.App("acme.ini", "[Acme Site]\r\n\r\n");
  LoadSites(t.w());
  ASSERT_EQ(t.w().siteCount, 1);
  EXPECT_EQ(t.w().sites[1].name, "Acme Site");
  // A reload empties the lists first.
  t.App("acme.ini", "\r\n");
  LoadSites(t.w());
  EXPECT_EQ(t.w().siteCount, 0);
  EXPECT_EQ(t.w().alertCount, 0);
}

TEST(Sites, GarbageBytesNeverCrashTheLoader) {
  std::string bytes = "[First]\r\nTYPE=1\r\n";
  bytes += std::string("DOMAIN=a\0b.example\r\n", 20);
  bytes += "HOMEPAGE=caf\xE9\x80\xFF\r\n";
  bytes += "EXCLUDE=" + std::string(10 * 1024 * 1024, 'z') + "\r\n";
  bytes += std::string("\0\0\0\r\n", 5);
  bytes += "[Second]\r\nTYPE=2\r\n\r\n";
  LoadedSites t(bytes);
  const World& w = t.w();
  ASSERT_EQ(w.siteCount, 2);
  EXPECT_EQ(w.sites[1].domain, std::string("a\0b.example", 11));
  EXPECT_EQ(w.sites[1].homePage, "caf\xE9\x80\xFF");
  EXPECT_EQ(w.sites[1].exclude.size(), 10u * 1024 * 1024);
  EXPECT_EQ(w.sites[2].type, LogLayout::Combined);
}

}  // namespace
TEST(Sites, DescriptionOfTheSitesFileSaysWhereItWasLookedForAndWhatWasFound) {
  TestWorld t;
  const std::string where = "The sites file " + t.dir.str() + "TALLYO.INI";
  EXPECT_EQ(DescribeSitesFile(t.w()), where + " was not found.");
  // Saved as UTF-16 by an editor: no site can be read from it.
  t.App("tallyo.ini", std::string("\xFF\xFE[\0S\0]\0", 8));
  LoadSites(t.w());
  EXPECT_EQ(t.w().siteCount, 0);
  EXPECT_EQ(DescribeSitesFile(t.w()),
            "The sites file " + t.dir.str() +
                "tallyo.ini was found but is written in UTF-16; save it as plain (ANSI or UTF-8) "
                "text.");
  t.App("tallyo.ini", std::string("\x7F" "ELF\x02\x01\x01\0\0\0", 12));
  EXPECT_EQ(DescribeSitesFile(t.w()),
            "The sites file " + t.dir.str() + "tallyo.ini was found but is not a text file.");
  t.App("tallyo.ini", "; nothing but a comment\r\n");
  EXPECT_EQ(DescribeSitesFile(t.w()),
            "The sites file " + t.dir.str() +
                "tallyo.ini was found and read, but defines no site (no [site name] section).");
  if (::geteuid() == 0) GTEST_SKIP() << "root reads files whatever their mode";
  std::filesystem::permissions(t.dir.path() / "tallyo.ini", std::filesystem::perms::none);
  EXPECT_EQ(DescribeSitesFile(t.w()), "The sites file " + t.dir.str() +
                                          "tallyo.ini was found but cannot be read (Permission "
                                          "denied).");
}

}  // namespace startup
