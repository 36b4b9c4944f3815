// Faults injected into whole runs of tydbcreate-cli on a copy of the bundled demo: a disk that
// fills up at the Nth write, kill -9 at many points of a scan, of the replacement of the tables and
// of an unpacking, and two runs on one data folder. After each, the data folder holds the whole
// previous database or the whole new one (byte for byte), every table passes the checker, and no
// stray file is left.
//
// The faults come from a small library loaded into the program (tests/faults/FaultShim.cpp): it
// counts the writes and renames of files under one folder and fails or kills at the one chosen.
// The points are spread over the whole run with a fixed seed, so a failure is reproducible.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <zip.h>

#include "ProgramRun.h"
#include "TableReadBack.h"
#include "TestSupport.h"

namespace {

namespace fs = std::filesystem;

// Every run stands at the same moment, so that two runs over the same logs give the same files.
const char* const kNow = "2026-11-16 02:23:14";

using tytest::Outcome;
using tytest::ProgramRun;

// A run of the program with `extraEnv` added to its environment.
Outcome RunCli(const std::vector<std::string>& args, const tytest::TempDir& scratch,
               const std::vector<std::string>& extraEnv = {}) {
  return tytest::RunProgram(args, scratch, {.extraEnv = extraEnv});
}

using Demo = tytest::DemoCopy;

// What a user of the data folder sees: every file in it and in its sub-folders, with its bytes,
// except errors.log (reports are added to it) and robots.dat (written when the robot list grew).
std::map<std::string, std::string> Snapshot(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& e : fs::recursive_directory_iterator(folder)) {
    const std::string rel = fs::relative(e.path(), folder).string();
    if (e.is_directory()) {
      files[rel + "/"] = "";
    } else if (rel != "errors.log" && rel != "robots.dat") {
      files[rel] = tytest::ReadFile(e.path());
    }
  }
  return files;
}

// The names of the files that differ between two snapshots (missing, added or changed), blank
// separated: "" when they are the same.
std::string Changed(const std::map<std::string, std::string>& now,
                    const std::map<std::string, std::string>& expected) {
  std::string out;
  for (const auto& [name, bytes] : now) {
    const auto it = expected.find(name);
    if (it == expected.end()) {
      out += "+" + name + " ";
    } else if (it->second != bytes) {
      out += "~" + name + " ";
    }
  }
  for (const auto& [name, bytes] : expected)
    if (!now.count(name)) out += "-" + name + " ";
  return out;
}

std::vector<std::string> Shim(const std::string& under) {
  return {std::string("LD_PRELOAD=") + TY_FAULT_SHIM, "TY_FAULT_UNDER=" + under};
}

// Writes and renames a clean run makes under `under`.
std::pair<long, long> CountFaultPoints(const Demo& demo, const std::string& under) {
  tytest::TempDir scratch;
  auto env = Shim(under);
  env.push_back("TY_FAULT_COUNT=" + (scratch.path() / "count.txt").string());
  const Outcome o = RunCli({"--yes", "--now", kNow, "--quiet", demo.App()}, scratch, env);
  EXPECT_EQ(o.status, 0) << o.err;
  long writes = 0, renames = 0;
  std::sscanf(tytest::ReadFile(scratch.path() / "count.txt").c_str(), "%ld %ld", &writes,
              &renames);
  return {writes, renames};
}

Outcome CleanRun(const Demo& demo) {
  tytest::TempDir scratch;
  return RunCli({"--yes", "--now", kNow, "--quiet", demo.App()}, scratch);
}

// The next start: start-up (which finishes or throws away what a killed run left) and the start
// question, refused because stdin is not a terminal; nothing is scanned.
Outcome NextStart(const Demo& demo) {
  tytest::TempDir scratch;
  return RunCli({demo.App()}, scratch);
}

// `count` points spread over 1..total: the first, the last, and the rest at random (fixed seed).
std::vector<long> Points(long total, int count, unsigned seed) {
  std::set<long> points{1, total};
  std::mt19937 random(seed);
  std::uniform_int_distribution<long> any(1, total);
  while (static_cast<int>(points.size()) < std::min<long>(count, total)) points.insert(any(random));
  return {points.begin(), points.end()};
}

}  // namespace

TEST(Faults, AWriteThatFailsAtAnyPointKeepsThePreviousDatabase) {
  Demo demo;
  const auto [writes, renames] = CountFaultPoints(demo, demo.Data());
  ASSERT_GT(writes, 10);
  // The second run starts with the robots the first learned; from then on a run over the same
  // logs writes the same files.
  ASSERT_EQ(CleanRun(demo).status, 0);
  const auto previous = Snapshot(demo.Data());
  ASSERT_TRUE(tytest::TableDefects(demo.Data()).empty());
  for (long n : Points(writes, 14, 15)) {
    SCOPED_TRACE("write " + std::to_string(n) + " of " + std::to_string(writes));
    tytest::TempDir scratch;
    auto env = Shim(demo.Data());
    env.push_back("TY_FAULT_WRITE_AT=" + std::to_string(n));
    const Outcome o = RunCli({"--yes", "--now", kNow, "--json", demo.App()}, scratch, env);
    // The run is not completed (a failure while the new tables are created is one of creating
    // the database), says so, and shows no figures for records that are not on disk. Only a
    // failure after the replacement (the robot list) lets the run complete.
    if (o.status != 0) {
      EXPECT_TRUE(o.status == 10 || o.status == 8) << o.status << " " << o.err;
      EXPECT_NE(o.err.find(" kept as it was"), std::string::npos) << o.err;
      EXPECT_NE(o.out.find("\"visitRecordsAdded\":0,"), std::string::npos) << o.out;
      EXPECT_NE(o.out.find("\"summary\":\"\""), std::string::npos);
    }
    EXPECT_EQ(Changed(Snapshot(demo.Data()), previous), "");
    EXPECT_TRUE(tytest::TableDefects(demo.Data()).empty());
  }
  // With room again, the next run replaces the database.
  EXPECT_EQ(CleanRun(demo).status, 0);
}

// The demo's database in the data folder, and one more log to scan into a new one.
void PrepareRun(const Demo& demo, Demo& run) {
  fs::remove_all(run.dir.path() / "Data");
  fs::copy(demo.dir.path() / "Data", run.dir.path() / "Data", fs::copy_options::recursive);
  tytest::WriteFile(run.dir.path() / "logs" / "w3c" / "ex991231.log",
                    "#Fields: date time c-ip cs-method cs-uri-stem sc-status\r\n"
                    "2026-10-01 10:00:00 192.0.2.7 GET /extra.htm 200\r\n");
}

TEST(Faults, KillAtAnyPointOfAScanOrOfTheReplacementLeavesTheOldDatabaseOrTheNewOne) {
  Demo demo;
  ASSERT_EQ(CleanRun(demo).status, 0);
  const auto done = Snapshot(demo.Data());
  // The database that replaces it, and the points of that run.
  Demo counted;
  PrepareRun(demo, counted);
  const auto [writes, renames] = CountFaultPoints(counted, counted.Data());
  ASSERT_GT(renames, 14);  // the engine's own renames, then the commit record and the tables
  const auto replacement = Snapshot(counted.Data());
  ASSERT_NE(Changed(replacement, done), "");

  struct Point {
    const char* what;
    long n;
  };
  std::vector<Point> points;
  for (long n : Points(writes, 8, 16)) points.push_back({"TY_FAULT_KILL_AT_WRITE=", n});
  // Every rename of the last twenty: the commit record and each table moved into place.
  for (long n = std::max(1L, renames - 19); n <= renames; ++n)
    points.push_back({"TY_FAULT_KILL_AT_RENAME=", n});
  int old = 0, fresh = 0;
  for (const Point& p : points) {
    SCOPED_TRACE(std::string(p.what) + std::to_string(p.n));
    Demo run;
    PrepareRun(demo, run);
    tytest::TempDir scratch;
    auto env = Shim(run.Data());
    env.push_back(p.what + std::to_string(p.n));
    EXPECT_EQ(RunCli({"--yes", "--now", kNow, "--quiet", run.App()}, scratch, env).status, -1);
    const Outcome next = NextStart(run);
    EXPECT_EQ(next.status, 7) << next.err;
    const auto after = Snapshot(run.Data());
    if (after == done) {
      ++old;
    } else {
      EXPECT_EQ(Changed(after, replacement), "");
      ++fresh;
    }
    EXPECT_TRUE(tytest::TableDefects(run.Data()).empty());
  }
  // Both ends were met: kills before the commit record kept the old, kills after it gave the new.
  EXPECT_GT(old, 0);
  EXPECT_GT(fresh, 0);
}

TEST(Faults, KillAtRandomMomentsOfAScanLeavesTheOldDatabaseOrTheNewOne) {
  Demo demo;
  ASSERT_EQ(CleanRun(demo).status, 0);  // learns the robots that the later runs know at once
  ASSERT_EQ(CleanRun(demo).status, 0);
  const auto done = Snapshot(demo.Data());
  const auto started = std::chrono::steady_clock::now();
  ASSERT_EQ(CleanRun(demo).status, 0);
  const auto took = std::chrono::steady_clock::now() - started;
  // The same logs give the same files again (the dates in them are today's either way).
  ASSERT_EQ(Changed(Snapshot(demo.Data()), done), "");
  std::mt19937 random(17);
  std::uniform_int_distribution<long> at(
      0, std::chrono::duration_cast<std::chrono::microseconds>(took).count());
  for (int i = 0; i < 6; ++i) {
    const long micros = at(random);
    SCOPED_TRACE("killed after " + std::to_string(micros) + " us");
    tytest::TempDir scratch;
    ProgramRun run({"--yes", "--now", kNow, "--quiet", demo.App()}, scratch);
    std::this_thread::sleep_for(std::chrono::microseconds(micros));
    run.Kill();
    run.Wait();
    EXPECT_EQ(NextStart(demo).status, 7);
    EXPECT_EQ(Changed(Snapshot(demo.Data()), done), "");
    EXPECT_TRUE(tytest::TableDefects(demo.Data()).empty());
  }
}

TEST(Faults, KillWhileUnpackingAnArchiveLeavesNothingBehindAfterTheNextStart) {
  Demo demo;
  ASSERT_EQ(CleanRun(demo).status, 0);
  const auto done = Snapshot(demo.Data());
  // The W3C site's logs go into its archive, beside one log of the user's own.
  const fs::path logs = demo.dir.path() / "logs" / "w3c";
  std::vector<std::pair<std::string, std::string>> members;
  for (const auto& e : fs::directory_iterator(logs)) {
    members.push_back({e.path().filename().string(), tytest::ReadFile(e.path())});
    fs::remove(e.path());
  }
  ASSERT_GE(members.size(), 2u);
  tytest::WriteFile(logs / "own.log", members[0].second);
  {
    int err = 0;
    zip_t* z = zip_open((logs / "ARCHIVE.ZIP").c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
    ASSERT_NE(z, nullptr);
    for (const auto& [name, bytes] : members)
      zip_file_add(z, name.c_str(), zip_source_buffer(z, bytes.data(), bytes.size(), 0), 0);
    ASSERT_EQ(zip_close(z), 0);
  }
  const auto userFiles = Snapshot(logs.string() + "/");
  const auto [writes, renames] = CountFaultPoints(demo, logs.string() + "/");
  ASSERT_GE(writes, 2);
  EXPECT_EQ(Changed(Snapshot(logs.string() + "/"), userFiles), "");  // a completed run too
  for (long n : Points(writes, 5, 18)) {
    SCOPED_TRACE("write " + std::to_string(n) + " of " + std::to_string(writes));
    tytest::TempDir scratch;
    auto env = Shim(logs.string() + "/");
    env.push_back("TY_FAULT_KILL_AT_WRITE=" + std::to_string(n));
    EXPECT_EQ(RunCli({"--yes", "--now", kNow, "--quiet", demo.App()}, scratch, env).status, -1);
    EXPECT_NE(Changed(Snapshot(logs.string() + "/"), userFiles), "");  // unpacked files were left
    EXPECT_EQ(NextStart(demo).status, 7);
    EXPECT_EQ(Changed(Snapshot(logs.string() + "/"), userFiles), "");
  }
}

TEST(Faults, TwoRunsOnOneDataFolderWithTheirOwnTempFoldersNeverRunTogether) {
  Demo demo;
  // A log long enough for the second run to start while the first reads it.
  std::string log = "#Fields: date time c-ip cs-method cs-uri-stem sc-status\r\n";
  for (int i = 0; i < 400000; ++i)
    log += "2026-10-01 11:00:00 10.9." + std::to_string((i >> 8) & 255) + "." +
           std::to_string(i & 255) + " GET /x.htm 200\r\n";
  tytest::WriteFile(demo.dir.path() / "logs" / "w3c" / "ex999999.log", log);
  tytest::TempDir firstTemp, secondTemp;
  ProgramRun first({"--yes", "--now", kNow, demo.App()}, firstTemp);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (first.ErrSoFar().find("ex999999.log") == std::string::npos &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const Outcome second = RunCli({"--yes", "--now", kNow, demo.App()}, secondTemp);
  const Outcome one = first.Wait();
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(second.status, 3) << second.err;
  EXPECT_NE(second.err.find("another run is using the data folder " + demo.Data()),
            std::string::npos)
      << second.err;
  EXPECT_TRUE(tytest::TableDefects(demo.Data()).empty());
  EXPECT_TRUE(fs::is_empty(demo.dir.path() / "Data" / "Temp"));
}
