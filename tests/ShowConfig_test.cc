// tydbcreate-cli --show-config run as a separate process on the bundled demo and on a broken
// configuration: the output is one valid JSON object that matches the files, and the exit status
// tells a second copy and a bad option apart.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JsonValue.h"
#include "ProgramRun.h"
#include "TestSupport.h"
#include "platform/SingleInstance.h"

namespace {

namespace fs = std::filesystem;

using tytest::JsonValue;
using tytest::Outcome;
using tytest::RunProgram;  // the scratch folder given is the run's temp folder, `lock`

// A copy of the demo's configuration (not its logs) in a temp folder, so runs never write
// into the source tree and never share a data folder.
void CopyDemoConfig(const fs::path& to) {
  const fs::path demo = tytest::SourceDir() / "examples" / "demo";
  for (const char* f : {"SETTINGS.INI", "TALLYO.INI", "EXTYPES.INI", "Data/Countries.txt"}) {
    tytest::WriteFile(to / f, tytest::ReadFile(demo / f));
  }
}

TEST(ShowConfig, DemoPrintsOneJsonObjectThatMatchesItsFiles) {
  tytest::TempDir app, lock;
  CopyDemoConfig(app.path());
  const Outcome o = RunProgram({"--show-config", app.str(), "--now", "2026-11-16 02:23:14"}, lock);
  ASSERT_EQ(o.status, 0) << o.err;
  JsonValue j;
  ASSERT_NO_THROW(j = tytest::ParseJson(o.out)) << o.out.substr(0, 500);

  EXPECT_EQ(j["appFolder"].text, app.str());
  EXPECT_EQ(j["dataFolder"].text, app.str() + "Data/");
  EXPECT_TRUE(fs::is_directory(app.path() / "Data" / "Temp"));
  EXPECT_EQ(j["appTitle"].text, "Tallyo");
  EXPECT_EQ(j["startDate"].text, "2026-11-16");

  const JsonValue& s = j["settings"];
  EXPECT_EQ(s["INACTIVITYMINS"].number, 15);
  EXPECT_FALSE(s["REVERSEDNS"].boolean);
  EXPECT_EQ(s["REVERSEDNS"].kind, JsonValue::Bool);
  EXPECT_EQ(s["EMAILSUBJECT"].text, "Tallyo alert");
  EXPECT_EQ(s["EMAILEVERY"].number, 5);
  EXPECT_EQ(s["WEBACCESSPORT"].number, 8004);
  EXPECT_EQ(s["AUTOARCHIVETIME"].text, "03:30:00");
  EXPECT_EQ(s["WEBCOLGRIDHEADER"].text, "#D8E4F8");
  EXPECT_EQ(s["WEBCOLGRID"].text, "#808080");  // not in the file: the built-in colour
  ASSERT_EQ(j["pageExtensions"].items.size(), 11u);
  EXPECT_EQ(j["pageExtensions"][10].text, "pdf");
  ASSERT_EQ(j["dnsMasks"].items.size(), 50u);
  EXPECT_EQ(j["dnsMasks"][4].text, "*.cache.example.net");

  // One country per non-empty line of the file; the built-in engines (no engines file).
  const std::string countries = tytest::ReadFile(app.path() / "Data" / "Countries.txt");
  size_t lines = 0;
  for (size_t p = 0; (p = countries.find("\r\n", p)) != std::string::npos; p += 2) ++lines;
  EXPECT_EQ(j["countryCount"].number, static_cast<double>(lines));
  EXPECT_EQ(j["searchEngineCount"].number, 26);
  EXPECT_EQ(j["searchEngines"][8][0].text, "Google");

  const JsonValue& sites = j["sites"];
  ASSERT_EQ(sites.items.size(), 3u);
  EXPECT_EQ(sites[0]["NAME"].text, "Demo Corporate");
  EXPECT_EQ(sites[0]["TYPE"].number, 0);
  EXPECT_EQ(sites[0]["FOLDER"].text, app.str() + "logs/w3c/");
  EXPECT_EQ(sites[0]["alerts"].items.size(), 2u);
  EXPECT_TRUE(sites[0]["alerts"][0]["ALERTENGINEALL"].boolean);
  EXPECT_EQ(sites[1]["NAME"].text, "Demo Shop");
  EXPECT_EQ(sites[1]["TYPE"].number, 2);
  EXPECT_TRUE(sites[1]["UNIX"].boolean);
  EXPECT_EQ(sites[1]["alerts"][0]["ALERT"].text, "Default (All Visitors)");
  EXPECT_EQ(sites[1]["alerts"][0]["ALERTDNS"].items.size(), 2u);
  EXPECT_TRUE(sites[2]["FTP"].boolean);
  // The sites file's last item (TYPE=0 before the final empty line) counts: the file ends
  // with an empty line.
  EXPECT_EQ(sites[2]["TYPE"].number, 0);

  const JsonValue& ex = j["exceptionTypes"];
  ASSERT_EQ(ex.items.size(), 30u);
  EXPECT_EQ(ex[0]["number"].number, 110);
  EXPECT_EQ(ex[28]["number"].number, 131);
  EXPECT_EQ(ex[28]["value"].number, 40);
  EXPECT_EQ(ex[29]["value"].text, "setup.zip");
  EXPECT_EQ(ex[13]["value"].kind, JsonValue::Null);
}

TEST(ShowConfig, BrokenConfigurationStillPrintsWhatWasLoaded) {
  tytest::TempDir app, lock;
  fs::create_directories(app.path() / "SETTINGS.INI");  // a folder where the file should be
  std::string sites = "[Caf\xE9 \x93Quoted\x94]\r\nTYPE=1\r\nDOMAIN=a\"b\\c\r\n";
  sites += std::string("EXCLUDE=x\0y\x01\r\n", 14);
  sites += "[Second]\r\nFTP=sometimes\r\n[Never]\r\n\r\n";
  tytest::WriteFile(app.path() / "TALLYO.INI", sites);
  tytest::WriteFile(app.path() / "Data" / "Countries.txt", "AU,Australia\r\nbroken\r\n");
  const Outcome o = RunProgram({"--show-config", app.path().string()}, lock);
  ASSERT_EQ(o.status, 0) << o.err;
  JsonValue j;
  ASSERT_NO_THROW(j = tytest::ParseJson(o.out)) << o.out.substr(0, 500);
  ASSERT_EQ(j["sites"].items.size(), 2u);  // the bad flag ended the loader in "Second"
  EXPECT_EQ(j["sites"][0]["NAME"].text, "Caf\xC3\xA9 \xE2\x80\x9CQuoted\xE2\x80\x9D");
  EXPECT_EQ(j["sites"][0]["DOMAIN"].text, "a\"b\\c");
  EXPECT_EQ(j["pageExtensions"].items.size(), 18u);
  EXPECT_EQ(j["countryCount"].number, 1);
  EXPECT_EQ(j["exceptionTypes"].items.size(), 28u);
}

TEST(ShowConfig, SecondCopyAndBadClockEndWithTheirOwnStatus) {
  tytest::TempDir app, lock;
  {
    auto held = platform::SingleInstance::Acquire("tydbcreate", lock.path());
    ASSERT_NE(held, nullptr);
    const Outcome o = RunProgram({"--show-config", app.str()}, lock);
    EXPECT_EQ(o.status, 3);
    EXPECT_EQ(o.out, "");
    EXPECT_NE(o.err.find("another copy"), std::string::npos) << o.err;
    EXPECT_FALSE(fs::exists(app.path() / "Data"));  // nothing was done
  }
  const Outcome bad = RunProgram({"--show-config", app.str(), "--now", "yesterday"}, lock);
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("--now"), std::string::npos);

  const Outcome help = RunProgram({"--help"}, lock);
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--show-config"), std::string::npos);
  EXPECT_NE(help.out.find("--now"), std::string::npos);
}

}  // namespace
