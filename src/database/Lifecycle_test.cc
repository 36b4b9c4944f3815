// The database's life: creating the tables beside the live ones, reading the previous visitors
// where they lie as "VISOLD", replacing the live tables at close, and the failures of creation.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "database/TestDatabase.h"

namespace fs = std::filesystem;
using dbtest::FileThere;
using dbtest::MakeVisit;
using dbtest::ReadTable;
using dbtest::DbRun;

namespace {

const char* const kWrittenTables[] = {"VISITS",    "VISITOR", "REFERRERS", "EXCEPTIONS",
                                      "PAGES",     "DOWNLOADS", "DAYSUM"};

// A first run that leaves a "Visitor" table with one resolved, named visitor behind.
void LeaveVisitorBehind(DbRun& run) {
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  database::Visit v = MakeVisit("10.1.1.1", dbtest::At(9, 0, 0));
  v.hostName = "host.example.org";
  f.UpdateVisitor(v);
  f.ChangeFriendlyName("10.1.1.1", "Joe Bloggs");
  f.CloseDatabase();
}

}  // namespace

TEST(Lifecycle, EmptyFolderCreatesAllSevenTablesAndNoLookups) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  EXPECT_TRUE(f.DatabaseOpen());
  EXPECT_TRUE(f.DatabaseReady());
  EXPECT_FALSE(f.CountryTableAvailable());
  EXPECT_FALSE(f.OldVisitorTableOpen());
  EXPECT_FALSE(f.Inspect(database::TableId::kIpcc).IsOpen());
  EXPECT_FALSE(f.Inspect(database::TableId::kVisOld).IsOpen());
  // The tables are built beside the data folder's own files, which a run that does not
  // complete leaves alone.
  const std::string staging = f.Staging().Staging();
  for (const char* t : kWrittenTables) {
    EXPECT_TRUE(FileThere(staging, std::string(t) + ".DBF")) << t;
    EXPECT_TRUE(FileThere(staging, std::string(t) + ".MDX")) << t;
    EXPECT_FALSE(FileThere(run.Data(), std::string(t) + ".DBF")) << t;
  }
  EXPECT_FALSE(FileThere(run.Data(), "VISOLD.DBF"));
  // Downloads are sought by IP, site and visit number.
  EXPECT_EQ(f.Inspect(database::TableId::kDownloads).SelectedTag(), "KEY1");
  f.CloseDatabase();
  EXPECT_FALSE(f.DatabaseOpen());
  EXPECT_TRUE(f.DatabaseReplaced());
  EXPECT_EQ(run.ErrorsLog(), "");
  for (const char* t : kWrittenTables) {
    EXPECT_TRUE(FileThere(run.Data(), std::string(t) + ".DBF")) << t;
    EXPECT_TRUE(FileThere(run.Data(), std::string(t) + ".MDX")) << t;
  }
  EXPECT_FALSE(fs::exists(staging));
  // The tables carry their layout: "Visitor" has its one unique tag on IP + Site.
  dbase::Table t;
  t.SetLocation(run.Data());
  t.SetTableName("Visitor");
  ASSERT_EQ(t.OpenTableReadOnly(), dbase::kOk);
  ASSERT_EQ(t.Tags().size(), 1u);
  EXPECT_TRUE(t.Tags()[0].unique);
  EXPECT_EQ(t.Tags()[0].keyLength, 35);
  EXPECT_EQ(t.FieldCount(), 16);
}

TEST(Lifecycle, SecondRunReadsPreviousVisitorsWhereTheyLieAndReplacesThemAtClose) {
  DbRun run;
  LeaveVisitorBehind(run);
  ASSERT_TRUE(FileThere(run.Data(), "VISITOR.DBF"));
  const std::string previous = tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF");

  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  // Nothing is moved aside: the previous visitors stay where they are until the new database
  // is complete.
  EXPECT_FALSE(FileThere(run.Data(), "VISOLD.DBF"));
  EXPECT_EQ(tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF"), previous);
  EXPECT_TRUE(f.OldVisitorTableOpen());
  // The new "Visitor" starts empty; the old host name and friendly name come from "VISOLD".
  EXPECT_EQ(f.Inspect(database::TableId::kVisitor).RecordCount(), 0);
  database::Visit v = MakeVisit("10.1.1.1", dbtest::At(10, 0, 0));
  EXPECT_EQ(f.LookupDNS("10.1.1.1", &v), "host.example.org");
  EXPECT_EQ(v.friendlyName, "Joe Bloggs");
  // A neighbour's name is never handed to an IP that "VISOLD" does not hold.
  database::Visit other = MakeVisit("10.1.1.0", dbtest::At(10, 0, 0));
  EXPECT_EQ(f.LookupDNS("10.1.1.0", &other), "");
  EXPECT_EQ(other.friendlyName, "");

  f.CloseDatabase();
  EXPECT_FALSE(FileThere(run.Data(), "VISOLD.DBF"));
  EXPECT_FALSE(FileThere(run.Data(), "VISOLD.MDX"));
  EXPECT_TRUE(FileThere(run.Data(), "VISITOR.DBF"));
  EXPECT_TRUE(dbtest::ReadTable(run.Data(), "Visitor").empty());
  f.CloseDatabase();  // a second close is harmless
}

TEST(Lifecycle, VisOldLeftByAnInterruptedRunIsUsedThenDeleted) {
  DbRun run;
  LeaveVisitorBehind(run);
  // An interrupted run: "Visitor" was moved aside but never rebuilt.
  fs::rename(fs::path(run.Data()) / "VISITOR.DBF", fs::path(run.Data()) / "visold.dbf");
  fs::rename(fs::path(run.Data()) / "VISITOR.MDX", fs::path(run.Data()) / "visold.mdx");

  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  EXPECT_TRUE(f.OldVisitorTableOpen());
  EXPECT_EQ(f.LookupDNS("10.1.1.1"), "host.example.org");
  f.CloseDatabase();
  EXPECT_FALSE(FileThere(run.Data(), "visold.dbf"));
  EXPECT_FALSE(FileThere(run.Data(), "visold.mdx"));
}

TEST(Lifecycle, PreviousVisitorWithoutIndexFileIsStillUsed) {
  DbRun run;
  LeaveVisitorBehind(run);
  fs::remove(fs::path(run.Data()) / "VISITOR.MDX");

  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  ASSERT_TRUE(f.OldVisitorTableOpen());
  EXPECT_EQ(f.LookupDNS("10.1.1.1"), "host.example.org");
  // The index rebuilt in memory is noted in errors.log by the control that rebuilt it.
  EXPECT_NE(run.ErrorsLog().find("FROM F.VAOLD"), std::string::npos) << run.ErrorsLog();
  f.CloseDatabase();
  EXPECT_FALSE(FileThere(run.Data(), "VISOLD.DBF"));
}

TEST(Lifecycle, FlushAndCloseBeforeASuccessfulInitDoNothing) {
  DbRun run;
  {
    database::Database f(run.Inputs());
    f.FlushDatabase();
    f.CloseDatabase();
    f.SetCurrentSite("Alpha");
    database::Visit v = MakeVisit("10.0.0.1", dbtest::At(9, 0, 0));
    f.AddPageToDatabase(v);  // cached only
    f.CloseDatabase();
  }
  EXPECT_TRUE(fs::is_empty(run.dir.path()));
}

TEST(Lifecycle, DatabaseThatCannotBeCreatedLeavesThePreviousOneWithOneLogLine) {
  DbRun run;
  LeaveVisitorBehind(run);
  const std::string previous = tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF");
  // A file in the place of the "Temp" folder leaves nowhere to build the new tables, for every
  // user.
  fs::remove_all(fs::path(run.Data()) / "Temp");
  tytest::WriteFile(fs::path(run.Data()) / "Temp", "not a folder");
  database::Database f(run.Inputs());
  EXPECT_FALSE(f.InitDatabase());
  EXPECT_FALSE(f.DatabaseOpen());
  EXPECT_FALSE(f.CountryTableAvailable());
  EXPECT_FALSE(f.OldVisitorTableOpen());
  EXPECT_NE(f.DatabaseFailure().find("Temp/tydbcreate-new/"), std::string::npos)
      << f.DatabaseFailure();
  // The previous database is as it was.
  EXPECT_EQ(tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF"), previous);
  EXPECT_EQ(dbtest::ReadTable(run.Data(), "Visitor").size(), 1u);
  const std::string log = run.ErrorsLog();
  EXPECT_NE(log.find("FROM CreateDatabase\r\n"), std::string::npos) << log;
  EXPECT_EQ(log.find("FROM CreateDatabase", log.find("FROM CreateDatabase") + 1),
            std::string::npos);
  // Nothing of the failed database is touched by the record operations.
  database::Visit v = MakeVisit("10.0.0.1", dbtest::At(9, 0, 0));
  f.UpdateVisitor(v);
  f.AddVisitToDatabase(v, "index.htm");
  f.FlushDatabase();
  f.CloseDatabase();
}

TEST(Lifecycle, MissingOrReadOnlyDataFolderFailsWithoutCrashing) {
  {
    DbRun run((tytest::TempDir().str() + "gone/"));
    database::Database f(run.Inputs());
    EXPECT_FALSE(f.InitDatabase());  // errors.log cannot be written either: the line is dropped
    EXPECT_FALSE(f.DatabaseReady());
    f.CloseDatabase();
  }
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
  DbRun run;
  tytest::WriteFile(run.dir.path() / "errors.log", "");
  fs::permissions(run.dir.path(), fs::perms::owner_read | fs::perms::owner_exec);
  database::Database f(run.Inputs());
  EXPECT_FALSE(f.InitDatabase());
  fs::permissions(run.dir.path(), fs::perms::owner_all);
  EXPECT_NE(run.ErrorsLog().find("FROM CreateDatabase"), std::string::npos);
}

TEST(Lifecycle, SecondInitRebuildsTheDatabaseWhole) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  database::Visit v = MakeVisit("10.0.0.1", dbtest::At(9, 0, 0));
  f.UpdateVisitor(v);
  f.AddVisitToDatabase(v, "index.htm");
  ASSERT_TRUE(f.InitDatabase());
  EXPECT_EQ(f.Inspect(database::TableId::kVisits).RecordCount(), 0);
  EXPECT_EQ(f.Inspect(database::TableId::kVisitor).RecordCount(), 0);
  // The first database's visitors became this one's "VISOLD".
  EXPECT_TRUE(f.OldVisitorTableOpen());
  f.CloseDatabase();
  EXPECT_TRUE(ReadTable(run.Data(), "Visits").empty());
}

// The close tells its progress on the caller's thread only, rising to the whole of its work:
// every key of every tag of the tables written, sorted in and written. An answer of false
// withdraws the replacement: the tables are closed whole and thrown away, and the previous
// database stays as it was.
TEST(Lifecycle, CloseTellsItsProgressToTheCallerAndAFalseAnswerKeepsThePreviousTables) {
  DbRun run;
  LeaveVisitorBehind(run);
  const std::string previous = tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF");
  constexpr int kVisitors = 2000;
  const auto addVisitors = [](database::Database& f) {
    f.SetCurrentSite("Alpha");
    for (int i = 0; i < kVisitors; ++i) {
      database::Visit v =
          MakeVisit("10.2." + std::to_string(i / 250) + "." + std::to_string(i % 250),
                    dbtest::At(9, 0, 0));
      f.UpdateVisitor(v);
    }
  };
  struct Told {
    std::thread::id thread;
    uint64_t done, total;
  };
  for (const bool keep : {false, true}) {
    SCOPED_TRACE(keep ? "kept" : "withdrawn");
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    addVisitors(f);
    std::vector<Told> told;
    f.CloseDatabase([&](uint64_t done, uint64_t total) {
      told.push_back({std::this_thread::get_id(), done, total});
      return keep;
    });
    ASSERT_FALSE(told.empty());
    for (size_t i = 0; i < told.size(); ++i) {
      EXPECT_EQ(told[i].thread, std::this_thread::get_id());
      // "Visitor" is the one table with records: one tag, each visitor sorted in and written.
      EXPECT_EQ(told[i].total, uint64_t(2 * kVisitors));
      if (i > 0) {
        EXPECT_GE(told[i].done, told[i - 1].done);
      }
    }
    EXPECT_EQ(told.back().done, told.back().total);
    EXPECT_FALSE(f.DatabaseOpen());
    EXPECT_EQ(f.DatabaseReplaced(), keep);
    EXPECT_FALSE(fs::exists(fs::path(run.Data()) / "Temp" / "tydbcreate-new"));
    if (!keep) {
      EXPECT_EQ(tytest::ReadFile(fs::path(run.Data()) / "VISITOR.DBF"), previous);
      EXPECT_EQ(ReadTable(run.Data(), "Visitor").size(), 1u);
    } else {
      EXPECT_EQ(ReadTable(run.Data(), "Visitor").size(), size_t(kVisitors));
    }
  }
}

// The new tables share the run's key memory: with none, every full run of a tag's keys goes to
// a temporary file beside the new tables, and the tables are the same, byte for byte, as with
// room for every key. No temporary file is left after the close, or after a run that is thrown
// away.
TEST(Lifecycle, KeysBeyondTheKeyMemoryGoToTemporaryFilesAndLeaveTheTablesAsTheyWere) {
  // 70,000 page views: a full run of "Pages" keys (65,536) and a part.
  const auto scan = [](DbRun& run, uint64_t keyMemory, bool complete) {
    run.world.app.keyMemoryBytes = keyMemory;
    database::Database f(run.Inputs());
    EXPECT_TRUE(f.InitDatabase());
    f.SetCurrentSite("Alpha");
    for (int n = 0; n < 70000; ++n) {
      database::Visit v = MakeVisit("10.0." + std::to_string(n / 250 % 250) + "." +
                                        std::to_string(n % 250),
                                    dbtest::At(9, n / 60 % 60, n % 60));
      v.pageCount = static_cast<int16_t>(1 + n % 7);
      v.currentPage = "p" + std::to_string(n % 13) + ".htm";
      f.AddPageToDatabase(v);
    }
    f.ReplaceOnClose(complete);
    f.CloseDatabase();
    EXPECT_EQ(f.DatabaseReplaced(), complete);
    return f.KeysSpilled();
  };
  DbRun none, room, cancelled;
  EXPECT_GE(scan(none, 0, true), uint64_t(65536) * 48);
  EXPECT_EQ(scan(room, uint64_t(1) << 30, true), 0u);
  EXPECT_GE(scan(cancelled, 0, false), uint64_t(65536) * 48);
  for (const char* file : {"PAGES.DBF", "PAGES.MDX"}) {
    SCOPED_TRACE(file);
    const std::string spilled = tytest::ReadFile(fs::path(none.Data()) / file);
    EXPECT_GT(spilled.size(), 70000u * 40);
    EXPECT_TRUE(spilled == tytest::ReadFile(fs::path(room.Data()) / file));
  }
  // Nothing is left in the data folders' Temp/ folders, and a run thrown away wrote nothing.
  for (const DbRun* run : {&none, &room, &cancelled})
    EXPECT_TRUE(fs::is_empty(fs::path(run->Data()) / "Temp")) << run->Data();
  EXPECT_FALSE(FileThere(cancelled.Data(), "PAGES.DBF"));
}
