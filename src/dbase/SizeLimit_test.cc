// A table that reaches the size limit of its files: the append that would pass it is refused,
// with one notice, and the files left behind are whole, below the limit, and read back. The
// limits tried are a few kilobytes: the format's own (2 GB) is reached the same way.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dbase/Checker.h"
#include "dbase/MdxWriter.h"
#include "dbase/Table.h"
#include "dbase/TestTables.h"

namespace dbase {
namespace {

namespace fs = std::filesystem;

struct Opened {
  Table t;
  std::vector<std::string> notices;
  Opened(const std::string& folder, const std::string& name, const std::vector<std::string>& fields,
         const std::vector<std::string>& tags, uint64_t limit) {
    t.SetLocation(folder);
    t.SetTableName(name);
    t.SetNoticeSink([this](const std::string& m) { notices.push_back(m); });
    t.SetSizeLimit(limit);
    EXPECT_EQ(t.CreateTable(fields, tags), kOk);
    EXPECT_EQ(t.OpenTable(), kOk);
  }
};

// The "Visits" key0 of the visit AppendVisits writes for this address.
std::string VisitKey(const std::string& ip) {
  std::string key = ip;
  key.resize(15, ' ');
  return key + "Alpha" + std::string(15, ' ') + "20261125" + "00001";
}

// Appends visits with distinct keys until the table refuses one; returns the status that ended
// it (or kOk after `most` appends).
int AppendVisits(Table& t, long most) {
  for (long i = 0; i < most; ++i) {
    t.BlankRecord();
    t.SetText("IP", "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250));
    t.SetText("Site", "Alpha");
    t.SetText("VisitNo", "00001");
    t.SetText("VisitDate", "20261125");
    t.SetText("Active", "Y");
    if (int s = t.AppendRecord(); s != kOk) return s;
  }
  return kOk;
}

// Appends exceptions that give every tag, the unique one included, an entry of their own.
int AppendExceptions(Table& t, long most) {
  for (long i = 0; i < most; ++i) {
    t.BlankRecord();
    t.SetText("Site", "site" + std::to_string(i));
    t.SetText("ExDate", "20261125");
    t.SetNumber("Number", double(i % 999));
    t.SetText("Value", "/page" + std::to_string(i) + ".htm");
    if (int s = t.AppendRecord(); s != kOk) return s;
  }
  return kOk;
}

TEST(SizeLimit, AFullTableRefusesAppendsKeepsItsRecordsAndStaysWhole) {
  tytest::TempDir dir;
  // "Visits": 19 fields (a header of 32 + 19 x 32 + 1 bytes), records of 204 bytes; its two tags
  // take less room than its records, so the .DBF is what fills.
  const uint64_t limit = 100000;
  const long header = 32 + 19 * 32 + 1, length = 204;
  const long expected = long(limit - header - 1) / length;  // 487
  Opened o(dir.str(), "Visits", testing::kVisitsFields, testing::kVisitsTags, limit);
  EXPECT_EQ(AppendVisits(o.t, 100000), kTooLarge);
  ASSERT_EQ(o.t.RecordCount(), expected);
  EXPECT_TRUE(o.t.Full());
  // Nothing changed with the refusal: the buffer still holds the refused record, the table
  // stands where it stood, and every later append is refused as well, without a second notice.
  EXPECT_EQ(o.t.GetText("IP"), "10.0.1.237     ");
  EXPECT_EQ(o.t.RecNo(), expected);
  EXPECT_EQ(o.t.AppendRecord(), kTooLarge);
  EXPECT_EQ(o.t.RecordCount(), expected);
  ASSERT_EQ(o.notices.size(), 1u);
  EXPECT_EQ(o.notices[0],
            "VISITS.DBF is full: it holds 487 records, and one more would take it past 100,000 "
            "bytes, the size limit set for the table's files.");
  // A full table still has its records changed in place: the end of a visit is recorded.
  ASSERT_EQ(o.t.SeekKey(VisitKey("10.0.0.7")), kOk);
  o.t.SetText("Active", "N");
  o.t.SetText("LastPage", "bye.htm");
  EXPECT_EQ(o.t.ReplaceRecord(), kOk);
  o.t.CloseTable();
  EXPECT_TRUE(o.t.Full());  // kept after closing

  // On disk: one record fewer than would pass the limit, every byte accounted for, the checker
  // content, and every record found again through its key.
  const uint64_t size = fs::file_size(dir.path() / "VISITS.DBF");
  EXPECT_EQ(size, uint64_t(header + expected * length + 1));
  EXPECT_LE(size, limit);
  EXPECT_GT(size + length, limit);
  EXPECT_LE(fs::file_size(dir.path() / "VISITS.MDX"), limit);
  const CheckReport report = CheckTable(dir.str() + "VISITS.DBF");
  EXPECT_TRUE(report.Ok()) << (report.defects.empty() ? "" : report.defects[0]);
  Table back;
  back.SetLocation(dir.str());
  back.SetTableName("Visits");
  ASSERT_EQ(back.OpenTableReadOnly(), kOk);
  EXPECT_EQ(back.RecordCount(), expected);
  EXPECT_FALSE(back.Full());
  ASSERT_EQ(back.SeekKey(VisitKey("10.0.0.7")), kOk);
  EXPECT_EQ(back.GetText("LastPage"), std::string("bye.htm") + std::string(13, ' '));
  ASSERT_EQ(back.SeekKey(VisitKey("10.0.1.236")), kOk);
  EXPECT_EQ(back.RecNo(), expected);
  back.CloseTable();

  // Opened again for writing with the same limit, it is full from the first append on; with
  // the format's limit it takes records again.
  Table again;
  std::vector<std::string> notices;
  again.SetLocation(dir.str());
  again.SetTableName("Visits");
  again.SetNoticeSink([&](const std::string& m) { notices.push_back(m); });
  again.SetSizeLimit(limit);
  ASSERT_EQ(again.OpenTable(), kOk);
  EXPECT_EQ(AppendVisits(again, 1), kTooLarge);
  EXPECT_EQ(notices.size(), 1u);
  again.SetSizeLimit(kMaxFileBytes * 4);
  EXPECT_EQ(again.SizeLimit(), kMaxFileBytes);
  EXPECT_EQ(AppendVisits(again, 1), kOk);
  EXPECT_EQ(again.RecordCount(), expected + 1);
}

TEST(SizeLimit, ALimitBelowTheEmptyTableTakesNoRecordAndLeavesItWhole) {
  tytest::TempDir dir;
  Opened o(dir.str(), "Visits", testing::kVisitsFields, testing::kVisitsTags, 600);
  EXPECT_EQ(AppendVisits(o.t, 1), kTooLarge);
  EXPECT_EQ(o.t.RecordCount(), 0);
  ASSERT_EQ(o.notices.size(), 1u);
  EXPECT_NE(o.notices[0].find("VISITS.DBF is full: it holds 0 records"), std::string::npos);
  o.t.CloseTable();
  EXPECT_TRUE(CheckTable(dir.str() + "VISITS.DBF").Ok());
}

TEST(SizeLimit, AnIndexThatWouldOutgrowTheLimitStopsTheTableFirst) {
  tytest::TempDir dir;
  // "Exceptions": records of 89 bytes and three tags whose entries take more room than that
  // when each record has one in every tag. At this limit the .DBF would take 670 records; the
  // .MDX stops the table well before.
  const uint64_t limit = 60000;
  Opened o(dir.str(), "Exceptions", testing::kExceptionsFields, testing::kExceptionsTags, limit);
  EXPECT_EQ(AppendExceptions(o.t, 100000), kTooLarge);
  const long kept = o.t.RecordCount();
  EXPECT_GT(kept, 400);
  EXPECT_LT(kept, 670);
  ASSERT_EQ(o.notices.size(), 1u);
  EXPECT_EQ(o.notices[0], "EXCEPTIONS.DBF is full: it holds " + std::to_string(kept) +
                              " records, and one more could take its index EXCEPTIONS.MDX past "
                              "60,000 bytes, the size limit set for the table's files.");
  o.t.CloseTable();
  // The index written is within the limit, and is what the projection counted.
  const uint64_t mdx = fs::file_size(dir.path() / "EXCEPTIONS.MDX");
  EXPECT_LE(mdx, limit);
  EXPECT_EQ(mdx, MdxFileBytes({29, 28, 23}, {uint64_t(kept), uint64_t(kept), uint64_t(kept)}));
  EXPECT_TRUE(CheckTable(dir.str() + "EXCEPTIONS.DBF").Ok());

  // The stop is not early: the same records and one more, without a limit, make an index past
  // it.
  tytest::TempDir other;
  Opened more(other.str(), "Exceptions", testing::kExceptionsFields, testing::kExceptionsTags,
              kMaxFileBytes);
  EXPECT_EQ(AppendExceptions(more.t, kept + 1), kOk);
  more.t.CloseTable();
  EXPECT_GT(fs::file_size(other.path() / "EXCEPTIONS.MDX"), limit);
  EXPECT_TRUE(more.notices.empty());
}

TEST(SizeLimit, ProjectedIndexSizeIsTheSizeOfTheIndexWritten) {
  // Counts around the edges of the trees' levels (a leaf full, a branch full, a third level),
  // in tags of three key lengths, against the files the engine writes.
  tytest::TempDir dir;
  for (const long n : {0L, 1L, 28L, 29L, 812L, 813L, 841L, 2000L}) {
    SCOPED_TRACE(n);
    const std::string name = "E" + std::to_string(n);
    Opened o(dir.str(), name, testing::kExceptionsFields, testing::kExceptionsTags,
             kMaxFileBytes);
    ASSERT_EQ(AppendExceptions(o.t, n), kOk);
    o.t.CloseTable();
    EXPECT_EQ(fs::file_size(dir.path() / (name + ".MDX")),
              MdxFileBytes({29, 28, 23}, {uint64_t(n), uint64_t(n), uint64_t(n)}));
  }
}

}  // namespace
}  // namespace dbase
