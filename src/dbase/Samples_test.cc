// The reference tables written by an independent dBASE engine: the engine reads them, lists
// them in tag order, seeks in them, and the checker accepts them; a table the engine writes
// from the same records is laid out byte for byte like the reference.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "dbase/LittleEndian.h"
#include "dbase/Checker.h"
#include "dbase/Table.h"
#include "dbase/TestTables.h"
#include "vb/Dates.h"
#include "vb/Strings.h"

namespace dbase {
namespace {

std::string SamplesDir() { return (tytest::SourceDir() / "testdata/dbase/samples").string() + "/"; }

// Opens a sample read-only; notices (there should be none) are collected.
struct Sample {
  Table t;
  std::vector<std::string> notices;
  explicit Sample(const std::string& stem) {
    t.SetLocation(SamplesDir());
    t.SetTableName(stem);
    t.SetNoticeSink([this](const std::string& m) { notices.push_back(m); });
    EXPECT_EQ(t.OpenTableReadOnly(), kOk) << stem;
    EXPECT_TRUE(notices.empty()) << notices.front();
  }
};

std::string Pad(std::string s, size_t w) {
  s.resize(w, ' ');
  return s;
}

TEST(Samples, CheckerAcceptsEveryReferenceTable) {
  for (const char* stem : {"VISITOR", "REFERRERS", "VISITS", "EXCEPTIONS"}) {
    CheckReport r = CheckTable(SamplesDir() + stem + ".DBF");
    EXPECT_TRUE(r.Ok()) << stem << ": " << (r.defects.empty() ? "" : r.defects.front());
  }
}

TEST(Samples, VisitorUniqueTagSkipsRepeatedKeysAndKeepsDeletedRecords) {
  Sample s("Visitor");  // found case-insensitively as VISITOR.DBF
  Table& t = s.t;
  EXPECT_EQ(t.RecordCount(), 2000);
  ASSERT_EQ(t.Tags().size(), 1u);
  EXPECT_EQ(t.Tags()[0].expression, "IP + SITE");
  EXPECT_TRUE(t.Tags()[0].unique);
  EXPECT_EQ(t.Tags()[0].entries, 1995);
  // Records 400, 800, ... repeat the key of an earlier record: a seek finds the earlier one.
  for (long r : {400L, 800L, 1200L, 1600L, 2000L}) {
    ASSERT_EQ(t.GoTo(r), kOk);
    std::string key = t.CurrentKey();
    ASSERT_EQ(t.SeekKey(key), kOk);
    EXPECT_LT(t.RecNo(), r) << "record " << r;
  }
  // Deleted records stay in the tag.
  for (long r : {7L, 1234L, 1999L}) {
    ASSERT_EQ(t.GoTo(r), kOk);
    EXPECT_TRUE(t.Deleted());
    ASSERT_EQ(t.SeekKey(t.CurrentKey()), kOk);
    EXPECT_EQ(t.RecNo(), r);
  }
  ASSERT_EQ(t.GoTo(8), kOk);
  EXPECT_FALSE(t.Deleted());
  // The tag's order is ascending and walking it visits 1995 records.
  long n = 0;
  std::string prev;
  for (int st = t.GoTop(); st == kOk; st = t.Skip()) {
    std::string k = t.CurrentKey();
    EXPECT_LT(prev, k);
    prev = k;
    ++n;
  }
  EXPECT_EQ(n, 1995);
  EXPECT_TRUE(t.Eof());
}

TEST(Samples, VisitorExactAndNearSeeks) {
  Sample s("VISITOR");
  Table& t = s.t;
  ASSERT_EQ(t.SeekKey(Pad("128.160.133.119", 15) + Pad("support.widgets.co", 20)), kOk);
  EXPECT_EQ(t.RecNo(), 178);
  EXPECT_EQ(vb::Trim(t.GetText("Country")), "BR");
  EXPECT_EQ(t.GetNumber("Visits"), 14);
  EXPECT_EQ(t.GetDate("FirstVDate"), double(vb::DaysFromCivil(2003, 6, 9)));
  // A shorter exact key is blank-padded: the IP alone is no key of "IP + Site".
  EXPECT_EQ(t.SeekKey("128.160.133.119"), kAfter);
  EXPECT_EQ(t.RecNo(), 178);  // positioned on the next key
  // A near seek compares the IP alone as a prefix.
  EXPECT_EQ(t.SeekNear(Pad("128.160.133.119", 15)), kOk);
  EXPECT_EQ(t.RecNo(), 178);
  EXPECT_EQ(t.SeekNear("128.160"), kOk);
  EXPECT_EQ(vb::Trim(t.GetText("IP")).substr(0, 7), "128.160");
  EXPECT_EQ(t.SeekNear("128.1600"), kAfter);
  EXPECT_EQ(t.SeekNear("~"), kEof);
  EXPECT_TRUE(t.Eof());
  EXPECT_EQ(t.RecNo(), 0);
  EXPECT_EQ(t.Skip(-1), kOk);  // from past the end back to the last key
  EXPECT_FALSE(t.Eof());
}

TEST(Samples, ExceptionsUniqueTagHoldsTheFirstRecordOfEachSite) {
  Sample s("Exceptions");
  Table& t = s.t;
  std::vector<long> recs;
  for (int st = t.GoTop(); st == kOk; st = t.Skip()) recs.push_back(t.RecNo());
  EXPECT_EQ(recs, (std::vector<long>{1, 2, 3, 6, 11}));
  // STR(Number,3) of the blank number of record 5.
  ASSERT_EQ(t.SelectTag("KEY2"), kOk);
  ASSERT_EQ(t.GoTo(5), kOk);
  EXPECT_TRUE(vb::Trim(t.GetText("Number")).empty());
  EXPECT_EQ(t.CurrentKey().substr(20), "  0");
  EXPECT_EQ(t.SelectTag("nosuch"), kNoSuchTag);
  EXPECT_EQ(t.SelectedTag(), "KEY2");
}

TEST(Samples, ReferrersDescendingTagListsASitesReferrersByVisitsHighestFirst) {
  Sample s("REFERRERS");
  Table& t = s.t;
  ASSERT_EQ(t.SelectTag("key1"), kOk);
  ASSERT_EQ(t.GoTop(), kOk);
  EXPECT_EQ(t.CurrentKey(), Pad("www.tallyo-demo.net", 20) + "     99864");
  ASSERT_EQ(t.GoBottom(), kOk);
  EXPECT_EQ(t.CurrentKey(), Pad("blog.example.org", 20) + "         1");
  // Equal keys at the end run in ascending record order, also in a descending tag.
  std::vector<long> tail;
  for (int i = 0; i < 3; ++i) {
    tail.insert(tail.begin(), t.RecNo());
    t.Skip(-1);
  }
  EXPECT_EQ(tail, (std::vector<long>{1600, 1919, 1927}));
  // One site's referrers, highest count first: near seek on the site, walk while it matches.
  const std::string site = Pad("intranet", 20);
  ASSERT_EQ(t.SeekNear(site), kOk);
  double last = 1e9;
  long listed = 0;
  while (!t.Eof() && t.GetText("Site") == site) {
    double v = t.GetNumber("Visits");
    EXPECT_LE(v, last);
    last = v;
    ++listed;
    t.Skip();
  }
  EXPECT_GT(listed, 100);
  // STR() of record 17's blank count.
  ASSERT_EQ(t.GoTo(17), kOk);
  EXPECT_EQ(t.CurrentKey().substr(20), "         0");
}

TEST(Samples, ReferenceTableOpenedForWritingIsLeftAloneUnlessChanged) {
  tytest::TempDir dir;
  for (const char* ext : {".DBF", ".MDX"})
    std::filesystem::copy_file(SamplesDir() + "REFERRERS" + ext, dir.path() / (std::string("REFERRERS") + ext));
  const std::string dbf0 = tytest::ReadFile(dir.path() / "REFERRERS.DBF");
  const std::string mdx0 = tytest::ReadFile(dir.path() / "REFERRERS.MDX");
  Table t;
  t.SetLocation(dir.str());
  t.SetTableName("Referrers");
  ASSERT_EQ(t.OpenTable(), kOk);
  ASSERT_EQ(t.SeekNear("http://"), kOk);
  t.CloseTable();
  EXPECT_EQ(tytest::ReadFile(dir.path() / "REFERRERS.DBF"), dbf0);
  EXPECT_EQ(tytest::ReadFile(dir.path() / "REFERRERS.MDX"), mdx0);
  // Changed: both files are rewritten and still pass the check, the tags' flags kept.
  ASSERT_EQ(t.OpenTable(), kOk);
  t.BlankRecord();
  t.SetText("Name", "http://new.example/");
  t.SetText("Site", "intranet");
  t.SetNumber("Visits", 123456);  // too wide for N5: 99999
  ASSERT_EQ(t.AppendRecord(), kOk);
  ASSERT_EQ(t.GoTo(3), kOk);
  t.SetText("Site", "moved.example");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  t.CloseTable();
  CheckReport r = CheckTable(dir.str() + "REFERRERS.DBF");
  EXPECT_TRUE(r.Ok()) << r.defects.front();
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  EXPECT_EQ(t.RecordCount(), 2001);
  std::vector<TagInfo> tags = t.Tags();
  ASSERT_EQ(tags.size(), 2u);
  EXPECT_TRUE(tags[0].unique);
  EXPECT_TRUE(tags[1].descending);
  EXPECT_EQ(tags[1].entries, 2001);
  ASSERT_EQ(t.SelectTag("KEY1"), kOk);
  ASSERT_EQ(t.SeekNear(Pad("intranet", 20)), kOk);
  EXPECT_EQ(t.RecNo(), 2001);  // the highest count of the site comes first
  EXPECT_EQ(t.GetNumber("Visits"), 99999);
}

// Reads every record of a reference table and writes them into a table of our own with the
// product's definitions; compares the files' layouts.
TEST(Samples, OwnTableFromTheSameRecordsHasTheReferenceLayout) {
  tytest::TempDir dir;
  Sample ref("VISITOR");
  Table own;
  own.SetLocation(dir.str());
  own.SetTableName("Visitor");
  ASSERT_EQ(own.CreateTable(testing::kVisitorFields, testing::kVisitorTags), kOk);
  ASSERT_EQ(own.OpenTable(), kOk);
  ref.t.SelectTag("");
  for (int st = ref.t.GoTop(); st == kOk; st = ref.t.Skip()) {
    own.BlankRecord();
    for (int f = 0; f < ref.t.FieldCount(); ++f) own.SetText(f, ref.t.GetText(f));
    own.SetDeleted(ref.t.Deleted());
    ASSERT_EQ(own.AppendRecord(), kOk);
  }
  own.CloseTable();
  EXPECT_TRUE(CheckTable(dir.str() + "VISITOR.DBF").Ok());

  std::string a = tytest::ReadFile(SamplesDir() + "VISITOR.DBF");
  std::string b = tytest::ReadFile(dir.path() / "VISITOR.DBF");
  ASSERT_EQ(a.size(), b.size());
  // Same bytes but the update date (1-3) and the language driver (29): ours is Windows ANSI.
  for (size_t i = 0; i < a.size(); ++i) {
    if ((i >= 1 && i <= 3) || i == 29) continue;
    ASSERT_EQ(a[i], b[i]) << "DBF byte " << i;
  }
  EXPECT_EQ(b[29], 0x03);

  std::string x = tytest::ReadFile(SamplesDir() + "VISITOR.MDX");
  std::string y = tytest::ReadFile(dir.path() / "VISITOR.MDX");
  auto u8 = [](const std::string& s, size_t i) { return int(static_cast<unsigned char>(s[i])); };
  // File header: all but the dates and the page count (our tree is packed fuller).
  for (size_t i = 0; i < 512; ++i) {
    if ((i >= 1 && i <= 3) || (i >= 32 && i <= 35) || (i >= 44 && i <= 46)) continue;
    EXPECT_EQ(u8(x, i), u8(y, i)) << "MDX header byte " << i;
  }
  EXPECT_EQ(GetU32(reinterpret_cast<const unsigned char*>(y.data()) + 32) * 512, y.size());
  // Tag table: identical (header page 4 in both).
  for (size_t i = 512; i < 2048; ++i) EXPECT_EQ(u8(x, i), u8(y, i)) << "tag table byte " << i;
  // Tag header: the described fields agree (byte 23: both non-zero for unique).
  for (size_t i : {8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 245}) EXPECT_EQ(u8(x, 2048 + i), u8(y, 2048 + i)) << i;
  EXPECT_NE(u8(y, 2048 + 23), 0);
  EXPECT_EQ(x.substr(2048 + 24, 221), y.substr(2048 + 24, 221));  // expression text
}

}  // namespace
}  // namespace dbase
