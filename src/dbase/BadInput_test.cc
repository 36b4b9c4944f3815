// Damaged, stale or missing files and impossible requests: every case ends in a clear status
// or notice, never a crash, and nothing is written where it should not be.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dbase/Checker.h"
#include "dbase/LittleEndian.h"
#include "dbase/Table.h"
#include "dbase/TestTables.h"

namespace dbase {
namespace {

namespace fs = std::filesystem;

std::string Pad(std::string s, size_t w) {
  s.resize(w, ' ');
  return s;
}

std::string VisitorKey(int i) { return Pad("10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250), 15) + Pad("intranet", 20); }

// A Visitor table of n records (keys 10.1.x.y), written and closed.
void MakeVisitor(const tytest::TempDir& dir, int n) {
  Table t;
  t.SetLocation(dir.str());
  t.SetTableName("Visitor");
  ASSERT_EQ(t.CreateTable(testing::kVisitorFields, testing::kVisitorTags), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  for (int i = 0; i < n; ++i) {
    t.BlankRecord();
    t.SetText("IP", VisitorKey(i).substr(0, 15));
    t.SetText("Site", "intranet");
    t.SetNumber("Visits", i);
    ASSERT_EQ(t.AppendRecord(), kOk);
  }
  t.CloseTable();
}

struct Opened {
  Table t;
  std::vector<std::string> notices;
  int status;
  Opened(const tytest::TempDir& dir, bool readOnly, std::vector<std::string> tagDefs = {}) {
    t.SetLocation(dir.str());
    t.SetTableName("Visitor");
    t.SetIndexSpecs(std::move(tagDefs));
    t.SetNoticeSink([this](const std::string& m) { notices.push_back(m); });
    status = readOnly ? t.OpenTableReadOnly() : t.OpenTable();
  }
  std::string AllNotices() const {
    std::string s;
    for (const auto& n : notices) s += n + "\n";
    return s;
  }
};

void Patch(const fs::path& p, size_t offset, const std::string& bytes) {
  std::string d = tytest::ReadFile(p);
  d.replace(offset, bytes.size(), bytes);
  tytest::WriteFile(p, d);
}

std::string U32(uint32_t v) {
  std::string s(4, '\0');
  PutU32(reinterpret_cast<unsigned char*>(s.data()), v);
  return s;
}

bool AnyContains(const std::vector<std::string>& v, const std::string& what) {
  for (const auto& s : v)
    if (s.find(what) != std::string::npos) return true;
  return false;
}

TEST(BadInput, BadDefinitionsOrUnknownExpressionCreateNothing) {
  tytest::TempDir dir;
  Table t;
  t.SetLocation(dir.str());
  t.SetTableName("Visits");
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, {"key0|SUBSTR(IP,1,3) + Site||U|"}), kBadExpression);
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, {"key0|IP + Nosuch"}), kBadExpression);
  EXPECT_EQ(t.CreateTable({"IP|C|15", "Bad|Z|3"}, {}), kBadFieldSpec);
  EXPECT_EQ(t.CreateTable({"IP|C|15", "ip|C|3"}, {}), kBadFieldSpec);  // a name twice
  EXPECT_EQ(t.CreateTable({}, {}), kBadFieldSpec);
  EXPECT_EQ(t.CreateTable({"IP|C|15"}, {"key0|IP", "KEY0|IP"}), kBadTagSpec);
  EXPECT_TRUE(fs::is_empty(dir.path()));
  EXPECT_EQ(t.OpenTable(), kFileMissing);
  Table unnamed;
  EXPECT_EQ(unnamed.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kBadName);
  EXPECT_EQ(unnamed.OpenTable(), kBadName);
  EXPECT_EQ(unnamed.DropTable("Visits"), kBadName);
  t.SetTableName("../escape");
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kBadName);
  EXPECT_FALSE(fs::exists(dir.path().parent_path() / "ESCAPE.DBF"));
}

TEST(BadInput, MissingOrUnwritableFolderGivesAStatusAndWritesNothing) {
  tytest::TempDir dir;
  Table t;
  t.SetTableName("Visits");
  t.SetLocation(dir.str() + "no/such/folder");
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kCannotCreate);
  EXPECT_EQ(t.OpenTable(), kFileMissing);
  EXPECT_EQ(t.DropTable("Visits"), kOk);  // nothing there to drop
  // A "folder" that is a file.
  tytest::WriteFile(dir.path() / "afile", "x");
  t.SetLocation(dir.str() + "afile");
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kCannotCreate);
  EXPECT_EQ(std::vector<fs::path>(fs::directory_iterator(dir.path()), {}).size(), 1u);
}

TEST(BadInput, ReadOnlyFolderGivesAStatusAndWritesNothing) {
  tytest::TempDir dir;
  Table t;
  t.SetTableName("Visits");
  // The owner of the process may be allowed to write anyway: then there is nothing to test.
  fs::path ro = dir.path() / "ro";
  fs::create_directory(ro);
  fs::permissions(ro, fs::perms::owner_read | fs::perms::owner_exec);
  if (::access(ro.c_str(), W_OK) == 0) GTEST_SKIP() << "running with rights over read-only folders";
  t.SetLocation(ro.string());
  EXPECT_EQ(t.CreateTable(testing::kVisitsFields, testing::kVisitsTags), kCannotCreate);
  EXPECT_TRUE(fs::is_empty(ro));
  EXPECT_EQ(std::vector<fs::path>(fs::directory_iterator(dir.path()), {}).size(), 1u);
}

TEST(BadInput, TruncatedOrMiscountedTableIsRefusedForWritingAndReadUpToItsWholeRecords) {
  tytest::TempDir dir;
  MakeVisitor(dir, 100);
  const fs::path dbf = dir.path() / "VISITOR.DBF";
  std::string full = tytest::ReadFile(dbf);
  // Cut in the middle of record 50.
  tytest::WriteFile(dbf, full.substr(0, 545 + 49 * 193 + 100));
  {
    Opened rw(dir, false);
    EXPECT_EQ(rw.status, kCorruptDbf);
    EXPECT_FALSE(rw.t.IsOpen());
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_EQ(ro.t.RecordCount(), 49);
    EXPECT_TRUE(AnyContains(ro.notices, "100 records")) << ro.AllNotices();
    EXPECT_TRUE(AnyContains(ro.notices, "index of VISITOR.DBF rebuilt")) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(48)), kOk);
    EXPECT_EQ(ro.t.GetNumber("Visits"), 48);
    EXPECT_NE(ro.t.SeekKey(VisitorKey(60)), kOk);  // its record is gone
    EXPECT_EQ(ro.t.AppendRecord(), kReadOnly);
  }
  CheckReport rep = CheckTable(dbf.string());
  EXPECT_TRUE(AnyContains(rep.defects, "counts 100 records but the file holds only 49"));
  // The header counts more records than the file holds, the file being whole otherwise.
  tytest::WriteFile(dbf, full);
  Patch(dbf, 4, U32(150));
  EXPECT_EQ(Opened(dir, false).status, kCorruptDbf);
  // The header counts fewer: the records after its count are not the table's.
  Patch(dbf, 4, U32(60));
  {
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_EQ(ro.t.RecordCount(), 60);
    EXPECT_TRUE(ro.t.Info().indexRebuilt);  // the index held 100 keys
  }
  EXPECT_TRUE(AnyContains(CheckTable(dbf.string()).defects, "bytes after the end-of-file mark"));
  // Not a table at all, or too short for a header.
  for (std::string junk : {std::string("hello"), std::string(600, 'x'), full.substr(0, 100)}) {
    tytest::WriteFile(dbf, junk);
    EXPECT_EQ(Opened(dir, true).status, kCorruptDbf);
    EXPECT_EQ(Opened(dir, false).status, kCorruptDbf);
    EXPECT_FALSE(CheckTable(dbf.string()).Ok());
  }
}

TEST(BadInput, DamagedIndexIsRebuiltFromTheRecordsWithANotice) {
  tytest::TempDir dir;
  MakeVisitor(dir, 3000);
  const fs::path mdx = dir.path() / "VISITOR.MDX";
  const std::string good = tytest::ReadFile(mdx);
  // The tag's root points past the end of the file.
  Patch(mdx, 2048, U32(100000));
  CheckReport rep = CheckTable((dir.path() / "VISITOR.DBF").string());
  EXPECT_TRUE(AnyContains(rep.defects, "past the end of the file")) << rep.defects.size();
  {
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "index of VISITOR.DBF rebuilt: tag KEY0")) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(1234)), kOk);
    EXPECT_EQ(ro.t.RecNo(), 1235);
  }
  EXPECT_EQ(tytest::ReadFile(mdx).substr(2048, 4), U32(100000));  // read-only: left as it was
  // Opened for writing, the rebuilt index is written back at close.
  {
    Opened rw(dir, false);
    ASSERT_EQ(rw.status, kOk);
    EXPECT_FALSE(rw.notices.empty());
  }
  EXPECT_TRUE(CheckTable((dir.path() / "VISITOR.DBF").string()).Ok());

  // Keys out of order in a leaf: found by the checker, and the table still opens.
  tytest::WriteFile(mdx, good);
  uint32_t root = GetU32(reinterpret_cast<const unsigned char*>(good.data()) + 2048);
  const size_t firstLeaf = GetU32(reinterpret_cast<const unsigned char*>(good.data()) + 2048 + 248) * 512;
  std::string leaf = good.substr(firstLeaf, 1024);
  std::string e0 = leaf.substr(8, 40), e1 = leaf.substr(48, 40);
  Patch(mdx, firstLeaf + 8, e1 + e0);
  rep = CheckTable((dir.path() / "VISITOR.DBF").string());
  EXPECT_TRUE(AnyContains(rep.defects, "out of order")) << (rep.defects.empty() ? "" : rep.defects[0]);
  EXPECT_EQ(Opened(dir, true).status, kOk);
  EXPECT_NE(root, 0u);

  // An entry pointing at the wrong record: the keys no longer match their records.
  tytest::WriteFile(mdx, good);
  Patch(mdx, firstLeaf + 8, U32(2999));
  rep = CheckTable((dir.path() / "VISITOR.DBF").string());
  EXPECT_TRUE(AnyContains(rep.defects, "the record's key is")) << (rep.defects.empty() ? "" : rep.defects[0]);

  // A branch pointing back at itself: reported once, and the table still opens.
  tytest::WriteFile(mdx, good);
  Patch(mdx, size_t(root) * 512 + 8, U32(root));
  rep = CheckTable((dir.path() / "VISITOR.DBF").string());
  EXPECT_TRUE(AnyContains(rep.defects, "used twice")) << (rep.defects.empty() ? "" : rep.defects[0]);
  {
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "used twice")) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(2999)), kOk);
  }

  // Page count in the header wrong, and garbage in place of the index.
  tytest::WriteFile(mdx, good);
  Patch(mdx, 32, U32(7));
  EXPECT_TRUE(AnyContains(CheckTable((dir.path() / "VISITOR.DBF").string()).defects, "pages"));
  tytest::WriteFile(mdx, std::string(5000, '\x7f'));
  {
    Opened ro(dir, true, testing::kVisitorTags);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(7)), kOk);
  }
}

TEST(BadInput, MissingOrStaleIndex) {
  tytest::TempDir dir;
  MakeVisitor(dir, 500);
  const fs::path mdx = dir.path() / "VISITOR.MDX", dbf = dir.path() / "VISITOR.DBF";
  const std::string goodMdx = tytest::ReadFile(mdx);
  fs::remove(mdx);
  {  // without tag definitions: the table opens in record order, with a notice
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "could not be rebuilt")) << ro.AllNotices();
    EXPECT_TRUE(ro.t.Tags().empty());
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(1)), kNoTags);
    EXPECT_EQ(ro.t.RecNo(), 1);
  }
  {  // with them: rebuilt
    Opened ro(dir, true, testing::kVisitorTags);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "VISITOR.MDX is missing")) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(321)), kOk);
    EXPECT_EQ(ro.t.RecNo(), 322);
  }
  EXPECT_FALSE(fs::exists(mdx));  // read-only writes nothing
  // Stale: records added to the data file behind the index's back.
  tytest::WriteFile(mdx, goodMdx);
  {
    Table t;
    t.SetLocation(dir.str());
    t.SetTableName("VISITOR");
    ASSERT_EQ(t.OpenTable(), kOk);
    t.BlankRecord();
    t.SetText("IP", "99.99.99.99");
    ASSERT_EQ(t.AppendRecord(), kOk);
    t.CloseTable();
  }
  tytest::WriteFile(mdx, goodMdx);  // the index of 500 records again
  {
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "rebuilt")) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekNear("99.99.99.99"), kOk);
    EXPECT_EQ(ro.t.RecNo(), 501);
  }
  // Changed behind its back: a record's key no longer matches its entry.
  std::string d = tytest::ReadFile(dbf);
  d.replace(545 + 193 * 250 + 10, 15, Pad("0.0.0.0", 15));
  tytest::WriteFile(dbf, d);
  tytest::WriteFile(mdx, goodMdx);
  Patch(dbf, 4, U32(500));
  d = tytest::ReadFile(dbf);
  d.resize(545 + 500 * 193);
  d.push_back('\x1a');
  tytest::WriteFile(dbf, d);
  EXPECT_FALSE(CheckTable(dbf.string()).Ok());
  {  // read-only, every key is compared with its record: rebuilt
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(AnyContains(ro.notices, "record 251 is not the record's key")) << ro.AllNotices();
    EXPECT_NE(ro.t.SeekKey(VisitorKey(250)), kOk);
    EXPECT_EQ(ro.t.SeekNear("0.0.0.0"), kOk);
    EXPECT_EQ(ro.t.RecNo(), 251);
  }
}

TEST(BadInput, AFullDiskIsReportedOnceAndTheTableStillCloses) {
  // A file-size limit stands for a full disk: writes past it fail (the limit's signal ignored,
  // as a full disk sends none). It holds for this process only and is lifted however the test
  // ends.
  struct Limit {
    rlimit old{};
    void (*handler)(int) = nullptr;
    Limit() {
      getrlimit(RLIMIT_FSIZE, &old);
      handler = std::signal(SIGXFSZ, SIG_IGN);
    }
    void To(rlim_t bytes) {
      rlimit lim = old;
      lim.rlim_cur = bytes;
      setrlimit(RLIMIT_FSIZE, &lim);
    }
    ~Limit() {
      setrlimit(RLIMIT_FSIZE, &old);
      std::signal(SIGXFSZ, handler);
    }
  };
  tytest::TempDir dir;
  Table t;
  std::vector<std::string> notices;
  t.SetNoticeSink([&](const std::string& m) { notices.push_back(m); });
  t.SetLocation(dir.str());
  t.SetTableName("Visitor");
  ASSERT_EQ(t.CreateTable(testing::kVisitorFields, testing::kVisitorTags), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  {
    Limit limit;
    limit.To(64 << 10);
    // About 1 MB of records: they reach the file at the flush, which stops at the limit.
    for (int i = 0; i < 5000; ++i) {
      t.BlankRecord();
      t.SetText("IP", VisitorKey(i).substr(0, 15));
      t.SetText("Site", "intranet");
      ASSERT_EQ(t.AppendRecord(), kOk);
    }
    EXPECT_EQ(t.FlushTable(), kIoError);
    EXPECT_EQ(t.FlushTable(), kIoError);
    t.CloseTable();
  }
  EXPECT_FALSE(t.IsOpen());
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_NE(notices[0].find("VISITOR.DBF could not be written (File too large)"), std::string::npos)
      << notices[0];
  EXPECT_NE(notices[0].find("Make room on the disk"), std::string::npos);
  // The file went back to what its header counts (no record yet): a whole, empty table that
  // agrees with its index.
  const CheckReport cut = CheckTable(dir.str() + "VISITOR.DBF");
  EXPECT_TRUE(cut.Ok()) << (cut.defects.empty() ? "" : cut.defects.front());
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  EXPECT_EQ(t.RecordCount(), 0);
  EXPECT_FALSE(t.Info().indexRebuilt);
  t.CloseTable();
  EXPECT_EQ(notices.size(), 1u);
  // With room again, the next run writes the table whole.
  ASSERT_EQ(t.CreateTable(testing::kVisitorFields, testing::kVisitorTags), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  t.BlankRecord();
  t.SetText("IP", "10.0.0.1");
  ASSERT_EQ(t.AppendRecord(), kOk);
  t.CloseTable();
  EXPECT_EQ(notices.size(), 1u);
  EXPECT_TRUE(CheckTable(dir.str() + "VISITOR.DBF").Ok());
}

TEST(BadInput, ClosedReadOnlyAndForeignCaseTables) {
  tytest::TempDir dir;
  Table closed;
  EXPECT_EQ(closed.AppendRecord(), kNotOpen);
  EXPECT_EQ(closed.ReplaceRecord(), kNotOpen);
  EXPECT_EQ(closed.SeekKey("x"), kNotOpen);
  EXPECT_EQ(closed.Skip(), kNotOpen);
  EXPECT_EQ(closed.FlushTable(), kNotOpen);
  EXPECT_EQ(closed.SelectTag("key0"), kNotOpen);
  EXPECT_EQ(closed.GetText(0), "");
  EXPECT_EQ(closed.GetNumber("Visits"), 0);
  EXPECT_TRUE(closed.Eof());
  closed.BlankRecord();
  closed.SetText(0, "x");
  closed.CloseTable();
  closed.CloseTable();
  EXPECT_STREQ(StatusText(kCorruptMdx), "index file damaged");
  EXPECT_STREQ(StatusText(12345), "unknown status");

  MakeVisitor(dir, 20);
  // Files named in another case are found, opened and dropped.
  fs::rename(dir.path() / "VISITOR.DBF", dir.path() / "visitor.dbf");
  fs::rename(dir.path() / "VISITOR.MDX", dir.path() / "Visitor.Mdx");
  const std::string before = tytest::ReadFile(dir.path() / "visitor.dbf");
  {
    Opened ro(dir, true);
    ASSERT_EQ(ro.status, kOk);
    EXPECT_TRUE(ro.notices.empty()) << ro.AllNotices();
    EXPECT_EQ(ro.t.SeekKey(VisitorKey(3)), kOk);
    ro.t.SetText("Name", "changed");
    EXPECT_EQ(ro.t.ReplaceRecord(), kReadOnly);
    EXPECT_EQ(ro.t.AppendRecord(), kReadOnly);
    EXPECT_EQ(ro.t.OpenTable(), kAlreadyOpen);
    EXPECT_EQ(ro.t.CreateTable(testing::kVisitorFields, {}), kAlreadyOpen);
  }
  EXPECT_EQ(tytest::ReadFile(dir.path() / "visitor.dbf"), before);
  Table t;
  t.SetLocation(dir.str());
  EXPECT_EQ(t.DropTable("VISITOR"), kOk);
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

}  // namespace
}  // namespace dbase
