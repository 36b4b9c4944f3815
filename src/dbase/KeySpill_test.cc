// Keys beyond the key memory go to temporary files and come back: a table built with a budget
// of nothing (every full run of keys written out, several runs per tag, seeks and key changes on
// tags whose keys are in the files) has the same files, byte for byte, as the same table built
// with every key in memory, and passes the checker. A temporary file that cannot be made is
// reported as a failed write and loses no key; no temporary file outlives its table, its process
// or a kill.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dbase/Checker.h"
#include "dbase/KeyMemory.h"
#include "dbase/Table.h"
#include "dbase/TestTables.h"
#include "vb/Dates.h"

namespace dbase {
namespace {

namespace fs = std::filesystem;

// Full runs hold 65,536 keys: this many appends give each tag three full runs and a part.
constexpr int kAppends = 3 * 65536 + 1000;

std::string Pad(std::string s, size_t w) {
  s.resize(w, ' ');
  return s;
}

std::set<std::string> Names(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(folder)) names.insert(e.path().filename().string());
  return names;
}

// Page views: a unique tag whose keys repeat now and then, a descending tag whose key the
// replaces change, and a tag of few distinct keys.
const std::vector<std::string> kFields = {"IP|C|15", "Site|C|20", "VisitNo|C|5", "PageNo|C|3",
                                          "Hits|N|5"};
const std::vector<std::string> kTags = {"key0|IP + Site + VisitNo + PageNo||U|",
                                        "key1|Site + STR(Hits)||N|D", "key2|VisitNo"};

void SetPage(Table& t, std::mt19937& rng) {
  t.BlankRecord();
  t.SetText("IP", "10.0.0." + std::to_string(rng() % 40));
  t.SetText("Site", "site" + std::to_string(rng() % 3));
  t.SetText("VisitNo", Pad(std::to_string(rng() % 1000), 5));
  t.SetText("PageNo", std::to_string(rng() % 10));
  t.SetNumber("Hits", double(rng() % 5000));
}

// Builds the page-view table in `folder` with the given key memory (null: none), the same
// operations whatever it is. Returns the notices.
std::vector<std::string> BuildPages(const std::string& folder, std::shared_ptr<KeyMemory> memory,
                                    const std::string& spillFolder = "") {
  std::vector<std::string> notices;
  Table t;
  t.SetLocation(folder);
  t.SetTableName("Pages");
  t.SetNoticeSink([&notices](const std::string& m) { notices.push_back(m); });
  EXPECT_EQ(t.CreateTable(kFields, kTags), kOk);
  EXPECT_EQ(t.OpenTable(), kOk);
  t.SetKeyMemory(memory, spillFolder);
  std::mt19937 rng(7);
  for (int i = 0; i < kAppends; ++i) {
    SetPage(t, rng);
    EXPECT_EQ(t.AppendRecord(), kOk);
  }
  // A seek on a tag whose keys are in the file, then key changes on records whose keys are
  // in runs: of the unique tag (record 5) and of the descending one (two records).
  EXPECT_EQ(t.SelectTag("key2"), kOk);
  EXPECT_NE(t.SeekKey(Pad("17", 5)), kEof);
  for (long r : {5L, 70000L, 150000L}) {
    EXPECT_EQ(t.GoTo(r), kOk);
    t.SetNumber("Hits", 9999 - double(r % 100));
    if (r == 5) t.SetText("PageNo", "X");
    EXPECT_EQ(t.ReplaceRecord(), kOk);
  }
  // More runs after the merges, one of them with a changed key again.
  for (int i = 0; i < kAppends; ++i) {
    SetPage(t, rng);
    EXPECT_EQ(t.AppendRecord(), kOk);
  }
  EXPECT_EQ(t.GoTo(kAppends + 10), kOk);
  t.SetNumber("Hits", 12345);
  EXPECT_EQ(t.ReplaceRecord(), kOk);
  t.CloseTable();
  return notices;
}

// Visits as a scan writes them: each appended under the unique tag, found again at its end by
// its ticket and updated (no key changes), a few visits repeating an earlier visit's key.
void BuildVisits(const std::string& folder, std::shared_ptr<KeyMemory> memory) {
  Table t;
  t.SetLocation(folder);
  t.SetTableName("Visits");
  ASSERT_EQ(t.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  t.SetKeyMemory(memory);
  std::mt19937 rng(11);
  std::vector<int> visitsOf(500, 0);
  struct Open {
    std::string key;
    uint64_t ticket;
  };
  std::vector<Open> open;
  int ends = 0;
  for (int i = 0; i < kAppends; ++i) {
    const int ip = int(rng() % 500);
    // Late in the run, now and then a visit number that an earlier visit of the address had:
    // its end finds the earlier visit by a search, which brings every key into the tree.
    const bool repeat = i > 140000 && i % 40000 == 39999 && visitsOf[size_t(ip)] > 0;
    const int no = repeat ? 1 : ++visitsOf[size_t(ip)];
    const std::string ipText = "10.1." + std::to_string(ip / 250) + "." + std::to_string(ip % 250);
    char date[12];
    std::snprintf(date, sizeof date, "2026%02d%02d", 1 + (i / 60000) % 12, 1 + (i / 2000) % 28);
    char noText[12];
    std::snprintf(noText, sizeof noText, "%05d", no % 100000);
    t.BlankRecord();
    t.SetText("IP", ipText);
    t.SetText("Site", "site");
    t.SetText("VisitNo", noText);
    t.SetDate("VisitDate", vb::DateSerial(2026, 1 + (i / 60000) % 12, 1 + (i / 2000) % 28));
    t.SetText("Active", "Y");
    t.SetNumber("PagesSeen", 1);
    ASSERT_EQ(t.AppendRecord(), kOk);
    open.push_back({Pad(ipText, 15) + Pad("site", 20) + date + noText, t.AppendTicket()});
    // Visits end a little after they start, a few at a time.
    while (open.size() > 40 || (i == kAppends - 1 && !open.empty())) {
      const Open v = open.front();
      open.erase(open.begin());
      // Now and then an end whose ticket was lost, or names another visit's record (its slot
      // was taken): it still finds its own record, by the tag's fingerprints.
      ++ends;
      uint64_t ticket = v.ticket;
      if (ends % 5000 == 0) ticket = 0;
      if (ends % 5000 == 1 && !open.empty()) ticket = open.front().ticket;
      ASSERT_EQ(t.SeekKeyAt(v.key, ticket), kOk);
      if (ticket != v.ticket) {
        ASSERT_EQ(t.CurrentKey(), v.key);
      }
      t.SetText("Active", "N");
      t.SetNumber("PagesSeen", double(1 + rng() % 30));
      ASSERT_EQ(t.ReplaceRecord(), kOk);
    }
  }
  t.CloseTable();
}

void ExpectSameFiles(const tytest::TempDir& a, const tytest::TempDir& b, const std::string& stem) {
  for (const char* ext : {".DBF", ".MDX"}) {
    SCOPED_TRACE(stem + ext);
    const std::string x = tytest::ReadFile(a.path() / (stem + ext));
    const std::string y = tytest::ReadFile(b.path() / (stem + ext));
    ASSERT_FALSE(x.empty());
    EXPECT_TRUE(x == y) << "the files differ";
  }
  const CheckReport report = CheckTable((a.path() / (stem + ".DBF")).string());
  EXPECT_TRUE(report.Ok()) << (report.defects.empty() ? "" : report.defects.front());
}

TEST(KeySpill, PagesWithEveryRunSpilledAreTheSameByteForByte) {
  tytest::TempDir spilled, kept;
  const auto memory = std::make_shared<KeyMemory>(0);
  EXPECT_TRUE(BuildPages(spilled.str(), memory).empty());
  EXPECT_TRUE(BuildPages(kept.str(), nullptr).empty());
  // Each tag's six full runs went to the files (keys of 43 and 5 bytes, and the descending
  // tag's), three before the seek and the key changes and three after.
  EXPECT_GE(memory->Spilled(), uint64_t(6) * 65536 * (47 + 9));
  EXPECT_EQ(memory->InUse(), 0u);
  ExpectSameFiles(spilled, kept, "PAGES");
  // Nothing but the table is left in its folder.
  EXPECT_EQ(Names(spilled.path()), (std::set<std::string>{"PAGES.DBF", "PAGES.MDX"}));
}

TEST(KeySpill, APartOfTheRunsKeptInMemoryGivesTheSameFiles) {
  tytest::TempDir some, kept;
  // Room for a few full runs: the tags take turns at it, and the rest goes to the files.
  const auto memory = std::make_shared<KeyMemory>(size_t(8) << 20);
  BuildPages(some.str(), memory);
  BuildPages(kept.str(), nullptr);
  EXPECT_GT(memory->Spilled(), 0u);
  ExpectSameFiles(some, kept, "PAGES");
}

TEST(KeySpill, VisitsFoundByTicketsWithSpilledKeysAreTheSameByteForByte) {
  tytest::TempDir spilled, kept;
  const auto memory = std::make_shared<KeyMemory>(0);
  BuildVisits(spilled.str(), memory);
  BuildVisits(kept.str(), nullptr);
  // Both tags: key1's three full runs, and at least two of key0's deferred keys.
  EXPECT_GE(memory->Spilled(), uint64_t(65536) * (3 * 37 + 2 * 52));
  ExpectSameFiles(spilled, kept, "VISITS");
}

TEST(KeySpill, AFileThatCannotBeMadeIsAFailedWriteAndLosesNoKey) {
  tytest::TempDir failed, kept;
  const auto memory = std::make_shared<KeyMemory>(0);
  const std::vector<std::string> notices =
      BuildPages(failed.str(), memory, (failed.path() / "no such folder").string());
  BuildPages(kept.str(), nullptr);
  // Said once, with the reason and what to do; the keys stayed in memory.
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_NE(notices[0].find("The temporary file of the keys of PAGES.MDX"), std::string::npos);
  EXPECT_NE(notices[0].find("could not be written (No such file or directory)"), std::string::npos)
      << notices[0];
  EXPECT_NE(notices[0].find("Make room on the disk"), std::string::npos);
  EXPECT_EQ(memory->Spilled(), 0u);
  ExpectSameFiles(failed, kept, "PAGES");
}

TEST(KeySpill, NoTemporaryFileOutlivesItsTableOrAKill) {
  tytest::TempDir dir;
  // 1. A name left by a run killed while it made a file of that tag goes with the next one.
  tytest::WriteFile(dir.path() / "PAGES-KEY1.SPILL", "left over");
  {
    Table t;
    t.SetLocation(dir.str());
    t.SetTableName("Pages");
    ASSERT_EQ(t.CreateTable(kFields, kTags), kOk);
    ASSERT_EQ(t.OpenTable(), kOk);
    const auto memory = std::make_shared<KeyMemory>(0);
    t.SetKeyMemory(memory);
    std::mt19937 rng(3);
    for (int i = 0; i < 2 * 65536; ++i) {
      SetPage(t, rng);
      ASSERT_EQ(t.AppendRecord(), kOk);
    }
    EXPECT_GT(memory->Spilled(), 0u);
    // While the table is open its files take room on the disk but have no name.
    EXPECT_EQ(Names(dir.path()), (std::set<std::string>{"PAGES.DBF", "PAGES.MDX"}));
  }
  // 2. A process killed while it spills leaves nothing but its table's files.
  tytest::TempDir killed;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Table t;
    t.SetLocation(killed.str());
    t.SetTableName("Pages");
    if (t.CreateTable(kFields, kTags) != kOk || t.OpenTable() != kOk) _exit(2);
    t.SetKeyMemory(std::make_shared<KeyMemory>(0));
    std::mt19937 rng(3);
    for (int i = 0; i < 2 * 65536 + 10; ++i) {
      SetPage(t, rng);
      t.AppendRecord();
    }
    raise(SIGKILL);
    _exit(3);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(Names(killed.path()), (std::set<std::string>{"PAGES.DBF", "PAGES.MDX"}));
}

}  // namespace
}  // namespace dbase
