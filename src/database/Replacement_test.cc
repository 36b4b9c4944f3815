// Replacing the database whole or not at all: what a completed run, a run that does not complete,
// a failed write and a run cut short in the middle of the replacement leave in the data folder.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <filesystem>
#include <map>
#include <string>

#include "database/Replacement.h"
#include "database/TestDatabase.h"

namespace fs = std::filesystem;
using dbtest::DbRun;
using dbtest::MakeVisit;

namespace {

// Every file directly in `folder` (sub-folders listed by name with a trailing "/"), with its
// bytes: what a user of the data folder sees.
std::map<std::string, std::string> Snapshot(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& e : fs::directory_iterator(folder)) {
    const std::string name = e.path().filename().string();
    if (e.is_directory()) {
      files[name + "/"] = "";
    } else if (name != "errors.log") {
      files[name] = tytest::ReadFile(e.path());
    }
  }
  return files;
}

// A database with `visitors` visitors of site Alpha (10.0.0.1, 10.0.0.2, ...), each with a
// visit and a page view, written by a run that completes.
void BuildDatabase(DbRun& run, int visitors, const std::string& hostPrefix = "host") {
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  for (int i = 1; i <= visitors; ++i) {
    database::Visit v = MakeVisit("10.0.0." + std::to_string(i), dbtest::At(9, 0, i));
    v.hostName = hostPrefix + std::to_string(i) + ".example.org";
    f.UpdateVisitor(v);
    f.AddVisitToDatabase(v, "index.htm");
    f.AddPageToDatabase(v);
  }
  f.CloseDatabase();
  ASSERT_TRUE(f.DatabaseReplaced()) << f.DatabaseFailure();
}

// Limits the size of any file this process writes (a full disk as the engine meets it) while it
// lives; the signal the kernel sends for a write past the limit is ignored, so the write fails
// with an error.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    old_ = signal(SIGXFSZ, SIG_IGN);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    signal(SIGXFSZ, old_);
  }

 private:
  rlimit saved_{};
  void (*old_)(int) = nullptr;
};

}  // namespace

TEST(Replacement, CompletedRunLeavesExactlyTheNewTables) {
  DbRun run;
  BuildDatabase(run, 3);
  BuildDatabase(run, 2, "again");
  const auto files = Snapshot(run.Data());
  std::string names;
  for (const auto& [name, bytes] : files) names += name + " ";
  EXPECT_EQ(names,
            "DAYSUM.DBF DAYSUM.MDX DOWNLOADS.DBF DOWNLOADS.MDX EXCEPTIONS.DBF EXCEPTIONS.MDX "
            "PAGES.DBF PAGES.MDX REFERRERS.DBF REFERRERS.MDX Temp/ VISITOR.DBF VISITOR.MDX "
            "VISITS.DBF VISITS.MDX ");
  EXPECT_TRUE(fs::is_empty(fs::path(run.Data()) / "Temp"));
  // The second run's tables, and the first run's host names carried over from its visitors.
  const auto visitors = dbtest::ReadTable(run.Data(), "Visitor");
  ASSERT_EQ(visitors.size(), 2u);
  EXPECT_EQ(visitors[0].at("DNS"), "again1.example.org");
  EXPECT_EQ(dbtest::ReadTable(run.Data(), "Visits").size(), 2u);
}

TEST(Replacement, RunThatDoesNotCompleteLeavesThePreviousDatabaseByteForByte) {
  DbRun run;
  BuildDatabase(run, 3);
  const auto before = Snapshot(run.Data());
  {
    // Cancelled: the run closes its tables without replacing the live ones.
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    f.ReplaceOnClose(false);
    f.SetCurrentSite("Alpha");
    database::Visit v = MakeVisit("10.9.9.9", dbtest::At(10, 0, 0));
    f.UpdateVisitor(v);
    f.AddVisitToDatabase(v, "other.htm");
    // The previous visitors answer for their host names meanwhile.
    EXPECT_EQ(f.LookupDNS("10.0.0.2"), "host2.example.org");
    f.CloseDatabase();
    EXPECT_FALSE(f.DatabaseReplaced());
  }
  EXPECT_EQ(Snapshot(run.Data()), before);
  EXPECT_TRUE(fs::is_empty(fs::path(run.Data()) / "Temp"));
}

TEST(Replacement, WriteFailureKeepsThePreviousDatabaseAndSaysWhatFailed) {
  DbRun run;
  BuildDatabase(run, 3);
  const auto before = Snapshot(run.Data());
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.WriteInBackground(true);
  f.SetCurrentSite("Alpha");
  {
    // The disk fills up while the pages are written.
    FileSizeLimit full(200 * 1024);
    for (int i = 0; i < 40000; ++i) {
      database::Visit v = MakeVisit("10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250),
                                    dbtest::At(10, 0, 0));
      v.pageCount = static_cast<int16_t>(1 + i % 7);
      f.AddPageToDatabase(v);
    }
    // The records wait in the table's write buffer; closing writes them, and fails.
    f.CloseDatabase();
  }
  EXPECT_TRUE(f.WriteFailed());
  EXPECT_FALSE(f.DatabaseReplaced());
  EXPECT_NE(f.DatabaseFailure().find("PAGES.DBF could not be written"), std::string::npos)
      << f.DatabaseFailure();
  EXPECT_EQ(Snapshot(run.Data()), before);
  EXPECT_TRUE(fs::is_empty(fs::path(run.Data()) / "Temp"));
}

TEST(Replacement, NextStartFinishesAReplacementThatWasCutShort) {
  DbRun old;
  BuildDatabase(old, 3);
  DbRun fresh;
  BuildDatabase(fresh, 5, "new");
  const auto expected = Snapshot(fresh.Data());
  // The run was killed in the middle of the moves: its commit record is in place, three files
  // are already moved, and an old "VISOLD" still waits to be removed.
  const std::string staging = database::Replacement::StagingFolder(old.Data());
  fs::create_directories(staging);
  std::string record = "tydbcreate replacement 1\n";
  int moved = 0;
  for (const auto& [name, bytes] : expected) {
    if (name.back() == '/') continue;
    record += "move " + name + "\n";
    tytest::WriteFile(fs::path(moved++ < 3 ? old.Data() : staging) / name, bytes);
  }
  record += "remove VISOLD.DBF\nremove VISOLD.MDX\nend\n";
  tytest::WriteFile(fs::path(staging) / database::kCommitRecord, record);
  tytest::WriteFile(fs::path(old.Data()) / "visold.dbf", "left by an older run");

  std::string what;
  EXPECT_EQ(database::Replacement::Recover(old.Data(), &what), database::Recovery::Finished);
  EXPECT_NE(what.find("was finished"), std::string::npos) << what;
  EXPECT_EQ(Snapshot(old.Data()), expected);
  // A second start finds nothing to do.
  EXPECT_EQ(database::Replacement::Recover(old.Data()), database::Recovery::Nothing);
}

TEST(Replacement, NextStartThrowsAwayTablesThatWereNeverCommitted) {
  DbRun run;
  BuildDatabase(run, 3);
  const auto before = Snapshot(run.Data());
  const std::string staging = database::Replacement::StagingFolder(run.Data());
  // Killed while building, and killed while writing the commit record (never renamed into
  // place, and cut off before its end line: neither is trusted).
  for (const char* leftover : {"", "tydbcreate replacement 1\nmove VISITS.DBF\n"}) {
    tytest::WriteFile(fs::path(staging) / "VISITS.DBF", "half a table");
    if (*leftover != '\0') {
      tytest::WriteFile(fs::path(staging) / "COMMIT.new", leftover);
      tytest::WriteFile(fs::path(staging) / database::kCommitRecord, leftover);
    }
    std::string what;
    EXPECT_EQ(database::Replacement::Recover(run.Data(), &what), database::Recovery::RolledBack);
    EXPECT_NE(what.find("were removed"), std::string::npos) << what;
    EXPECT_EQ(Snapshot(run.Data()), before);
    EXPECT_FALSE(fs::exists(staging));
  }
}

TEST(Replacement, CommitRecordNeverMovesAFileFromOutsideTheStagingFolder) {
  DbRun run;
  tytest::WriteFile(fs::path(run.dir.path()) / "outside.txt", "a user's own file");
  const std::string staging = database::Replacement::StagingFolder(run.Data());
  tytest::WriteFile(fs::path(staging) / database::kCommitRecord,
                    "tydbcreate replacement 1\nmove ../../outside.txt\nremove ../outside.txt\nend\n");
  EXPECT_EQ(database::Replacement::Recover(run.Data()), database::Recovery::RolledBack);
  EXPECT_EQ(tytest::ReadFile(fs::path(run.dir.path()) / "outside.txt"), "a user's own file");
}
