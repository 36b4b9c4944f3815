// Visit, page and download records, read back from the tables on disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "database/RecordText.h"
#include "vb/Failure.h"
#include "database/TestDatabase.h"

using dbtest::At;
using dbtest::MakeVisit;
using dbtest::ReadTable;
using dbtest::DbRun;

TEST(RecordText, ReferrerIsShortenedToSchemeAndHost) {
  using database::ShortenReferrer;
  EXPECT_EQ(ShortenReferrer(" http://www.example.com/search/results.htm?q=x "),
            "http://www.example.com");
  EXPECT_EQ(ShortenReferrer("http://www.example.com/"), "http://www.example.com");
  EXPECT_EQ(ShortenReferrer("http://www.example.com"), "http://www.example.com");
  EXPECT_EQ(ShortenReferrer("a/b/"), "a/b");  // shorter than 8: only the trailing "/" goes
  EXPECT_EQ(ShortenReferrer("-"), "-");
  EXPECT_EQ(ShortenReferrer("   "), "");
  // In "https://" the 8th character is the second "/" itself, which is not past the 8th: kept.
  EXPECT_EQ(ShortenReferrer("https://host/path/"), "https://host/path");
}

TEST(RecordText, PaddedFieldHoldsTheTextCutOrBlankPaddedAndNothingBeyond) {
  // Every width a record field can have around the 16-byte steps of the copy, with texts from
  // empty to longer than the field; the byte after the field must stay untouched.
  std::string text;
  for (int i = 0; i < 80; ++i) text += static_cast<char>('A' + i % 26);
  for (int width = 0; width <= 70; ++width) {
    for (size_t len = 0; len <= 80; ++len) {
      char out[72];
      std::memset(out, '#', sizeof out);
      database::PadInto(out, width, std::string_view(text).substr(0, len));
      std::string expected = text.substr(0, std::min(len, static_cast<size_t>(width)));
      expected.resize(static_cast<size_t>(width), ' ');
      ASSERT_EQ(std::string(out, static_cast<size_t>(width)), expected)
          << "width " << width << ", length " << len;
      ASSERT_EQ(out[width], '#') << "width " << width << ", length " << len;
    }
  }
}

TEST(RecordText, NumbersDurationsAndCountryKeys) {
  char buf[24];
  EXPECT_EQ(database::ZeroPadded(42, 5, buf), "00042");
  EXPECT_EQ(database::ZeroPadded(123456, 5, buf), "123456");
  EXPECT_EQ(database::ZeroPadded(0, 5, buf), "00000");
  EXPECT_EQ(database::ZeroPadded(-7, 3, buf), "-007");
  EXPECT_EQ(database::ZeroPadded(INT64_MIN, 20, buf), "-09223372036854775808");
  EXPECT_EQ(database::ZeroPadded(INT64_MAX, 1, buf), "9223372036854775807");
  // A field filled in place holds what the padded text would: numbers that fit, longer ones cut,
  // negative ones.
  for (const int width : {1, 2, 4, 5, 6, 7}) {
    for (const int64_t v : {int64_t{0}, int64_t{7}, int64_t{42}, int64_t{999}, int64_t{1000},
                            int64_t{12345}, int64_t{99999}, int64_t{100000}, int64_t{-3},
                            int64_t{1234567}, INT64_MAX, INT64_MIN}) {
      char expected[8], put[8];
      std::memset(expected, '#', sizeof expected);
      std::memset(put, '#', sizeof put);
      database::PadInto(expected, width, database::ZeroPadded(v, width, buf));
      database::PutZeroPadded(put, width, v);
      ASSERT_EQ(std::string(put, sizeof put), std::string(expected, sizeof expected))
          << v << " in " << width;
    }
  }
  // Every digit count, odd and even, either side of each power of ten.
  for (int64_t power = 1; power <= INT64_MAX / 10; power *= 10) {
    for (const int64_t v : {power - 1, power, power + 1, 10 * power - 1}) {
      char expected[32];
      std::snprintf(expected, sizeof expected, "%05lld", static_cast<long long>(v));
      ASSERT_EQ(database::ZeroPadded(v, 5, buf), expected) << v;
    }
  }
  EXPECT_EQ(database::MinsOnText(0, buf), "0:00");
  EXPECT_EQ(database::MinsOnText(59, buf), "0:59");
  EXPECT_EQ(database::MinsOnText(60, buf), "0:60");  // the split only starts above 60
  EXPECT_EQ(database::MinsOnText(61, buf), "1:01");
  EXPECT_EQ(database::MinsOnText(120, buf), "2:00");
  EXPECT_EQ(database::MinsOnText(3600, buf), "60:00");
  char key[48];
  EXPECT_EQ(database::CountryKey("10.0.0.1", key), "010000000001");
  EXPECT_EQ(database::CountryKey("192.168.1.20", key), "192168001020");
  EXPECT_EQ(database::CountryKey("1.2.3.4.5", key), "001002003004");
  EXPECT_THROW(database::CountryKey("1.2.3", key), vb::Failure);
  EXPECT_THROW(database::CountryKey("1.2.x.4", key), vb::Failure);
  EXPECT_THROW(database::CountryKey("", key), vb::Failure);
  EXPECT_EQ(database::CombineDateTime(10, "12:00:00"), 10.5);
  EXPECT_EQ(database::CombineDateTime(10, "        "), 10);
  EXPECT_EQ(database::CombineDateTime(10, "noon"), 10);
}

TEST(Records, VisitRecordIsWrittenAtStartAndCompletedAtEnd) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  // Five visits whose durations test the minutes rule.
  const int durations[] = {59, 60, 61, 120, 0};
  for (int i = 0; i < 5; ++i) {
    database::Visit v = MakeVisit("10.0.0." + std::to_string(i + 1), At(9, 0, 0));
    v.referrer = "http://www.search.example/find?q=widgets";
    v.alert = i == 0;
    v.alertNumber = i == 0 ? 4 : 0;
    v.visitNumber = 7;
    f.AddVisitToDatabase(v, "/home.htm");
    v.lastHitTime = v.startTime + durations[i] / 86400.0;
    v.currentPage = "order.htm";
    v.pageCount = 3;
    v.hackRaised = i == 1;
    v.friendlyName = i == 2 ? "Joe" : "";
    v.groupMask = i == 3 ? "*.proxy.example" : "";
    f.UpdateVisitInDatabase(v);
  }
  // A visit without a record is left alone.
  database::Visit unknown = MakeVisit("10.9.9.9", At(9, 0, 0));
  f.UpdateVisitInDatabase(unknown);
  EXPECT_NE(f.LastStatus(), 0);
  EXPECT_EQ(f.Totals().visitRecordsAdded, 5);
  f.CloseDatabase();

  const auto visits = ReadTable(run.Data(), "Visits");
  ASSERT_EQ(visits.size(), 5u);
  const char* const minsOn[] = {"0:59", "0:60", "1:01", "2:00", "0:00"};
  const char* const flags[] = {"NN", "NN", "YN", "NY", "NN"};
  for (int i = 0; i < 5; ++i) {
    const auto& r = visits[i];
    EXPECT_EQ(r.at("MINSON"), minsOn[i]);
    EXPECT_EQ(r.at("FLAGS"), flags[i]);
    EXPECT_EQ(r.at("HACKRAISED"), i == 1 ? "Y" : "N");
    EXPECT_EQ(r.at("ACTIVE"), "N");
    EXPECT_EQ(r.at("LASTPAGE"), "order.htm");
    EXPECT_EQ(r.at("FIRSTPAGE"), "/home.htm");
    EXPECT_EQ(r.at("PAGESSEEN"), "3");
    EXPECT_EQ(r.at("SITE"), "Alpha");
    EXPECT_EQ(r.at("VISITNO"), "00007");
    EXPECT_EQ(r.at("VISITDATE"), "20260314");
    EXPECT_EQ(r.at("VISITTIME"), "09:00:00");
    EXPECT_EQ(r.at("REFERRER"), "http://www.search.example");
    EXPECT_EQ(r.at("BROWSER"), "IE6");
    EXPECT_EQ(r.at("SPIDER"), "N");
    EXPECT_EQ(r.at("RECORDNO"), "");
  }
  EXPECT_EQ(visits[0].at("ALERT"), "Y");
  EXPECT_EQ(visits[0].at("ALERTNO"), "4");
  EXPECT_EQ(visits[1].at("ALERT"), "N");
}

TEST(Records, EndOfAVisitWithARepeatedKeyCompletesTheFirstRecordOfThatKey) {
  // The same story with the records written at once and on the writer's thread.
  for (const bool background : {false, true}) {
    SCOPED_TRACE(background ? "writer thread" : "at once");
    DbRun run;
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    f.WriteInBackground(background);
    ASSERT_EQ(f.WritingInBackground(), background);
    f.SetCurrentSite("Alpha");
    // Ends of visits between the starts, as in a scan: keys go into the index as they come.
    database::Visit early = MakeVisit("10.0.0.0", At(8, 0, 0));
    f.AddVisitToDatabase(early, "/early.htm");
    database::Visit unknown = MakeVisit("10.9.9.9", At(8, 0, 0));
    f.UpdateVisitInDatabase(unknown);
    // Two visits of one address, day and number: the "Visits" key0 finds the first record only.
    database::Visit first = MakeVisit("10.0.0.1", At(9, 0, 0));
    first.visitNumber = 3;
    f.AddVisitToDatabase(first, "/a.htm");
    database::Visit other = MakeVisit("10.0.0.2", At(9, 1, 0));
    f.AddVisitToDatabase(other, "/b.htm");
    database::Visit repeat = MakeVisit("10.0.0.1", At(9, 2, 0));
    repeat.visitNumber = 3;
    f.AddVisitToDatabase(repeat, "/c.htm");
    // Even the ticket of another visit cannot lead the end of this one astray.
    repeat.visitsTicket = other.visitsTicket;
    repeat.currentPage = "end-of-repeat.htm";
    repeat.pageCount = 9;
    f.UpdateVisitInDatabase(repeat);
    if (!background) {
      EXPECT_EQ(f.LastStatus(), 0);
    }
    other.currentPage = "end-of-other.htm";
    f.UpdateVisitInDatabase(other);
    // A visit whose number changed after its record was written is not found by the old record.
    first.visitNumber = 4;
    f.UpdateVisitInDatabase(first);
    if (!background) {
      EXPECT_NE(f.LastStatus(), 0);
    }
    f.WaitForRecords();
    EXPECT_EQ(f.Totals().visitRecordsAdded, 4);
    f.CloseDatabase();
    const auto visits = ReadTable(run.Data(), "Visits");
    ASSERT_EQ(visits.size(), 4u);
    EXPECT_EQ(visits[1].at("LASTPAGE"), "end-of-repeat.htm");
    EXPECT_EQ(visits[1].at("PAGESSEEN"), "9");
    EXPECT_EQ(visits[2].at("LASTPAGE"), "end-of-other.htm");
    EXPECT_EQ(visits[3].at("LASTPAGE"), "/c.htm");
    EXPECT_EQ(visits[3].at("ACTIVE"), "Y");
  }
}

TEST(Records, WriterThreadWritesTheSameFilesAsWritingAtOnce) {
  // A busy run: visits that start and end interleaved, their visitors and referrers counted,
  // downloads, batches of pages and of exceptions, a
  // second site, and one visit that stays open while more visits start than the writer keeps
  // tickets for (its end then finds its record by key). Written at once and on the writer's
  // thread, the files must be the same byte for byte.
  const auto scan = [](bool background, DbRun& run) {
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    f.WriteInBackground(background);
    constexpr uint32_t kTickets = uint32_t(1) << 16;  // fewer than a scan keeps: a shorter test
    f.KeepTicketsFor(kTickets);
    f.SetCurrentSite("Alpha");
    database::Visit longest = MakeVisit("10.200.0.1", At(0, 0, 0, 13));
    f.AddVisitToDatabase(longest, "/first.htm");
    const int visits = static_cast<int>(kTickets) + 500;
    database::Visit open[4];
    for (int i = 0; i < visits; ++i) {
      if (i == visits / 2) f.SetCurrentSite("Beta");
      database::Visit& v = open[i % 4];
      if (i >= 4) {
        v.lastHitTime = v.startTime + (i % 7) * 20 / 86400.0;
        v.currentPage = "last" + std::to_string(i % 13) + ".htm";
        f.UpdateVisitInDatabase(v);
      }
      v = MakeVisit("10." + std::to_string(i / 62500) + "." + std::to_string(i / 250 % 250) +
                        "." + std::to_string(i % 250),
                    At(i / 3600 % 24, i / 60 % 60, i % 60));
      v.referrer = "http://ref" + std::to_string(i % 50) + ".example/from.htm";
      f.UpdateVisitor(v);
      f.AddVisitToDatabase(v, "/entry.htm");
      // Enough batches of each kind for every array that carries them over to be used again.
      if (i % 2 == 0) {
        v.pageCount = 2;
        v.currentPage = "page" + std::to_string(i % 17) + ".htm";
        f.AddPageToDatabase(v);
      }
      if (i % 3 == 0) f.AddException(1, 404, v.startTime, v.currentPage, v.clientAddress, i);
      if (i % 5 == 0) {
        v.currentPage = "/files\\setup" + std::to_string(i % 9) + ".exe";
        v.status = 200 + i % 3;
        f.AddDownload(v);
      }
    }
    f.SetCurrentSite("Alpha");  // the key is built with the current site's name
    longest.currentPage = "/at-last.htm";
    longest.lastHitTime = longest.startTime + 1;
    f.UpdateVisitInDatabase(longest);
    f.CloseDatabase();
    EXPECT_EQ(f.Totals().visitRecordsAdded, visits + 1);
    EXPECT_EQ(f.Totals().newReferrers, 50 * 2);  // 50 referrers on each of two sites
  };
  DbRun atOnce, writer;
  scan(false, atOnce);
  scan(true, writer);
  for (const char* file : {"VISITS.DBF", "VISITS.MDX", "PAGES.DBF", "PAGES.MDX", "EXCEPTIONS.DBF",
                           "EXCEPTIONS.MDX", "REFERRERS.DBF", "REFERRERS.MDX", "VISITOR.DBF",
                           "DOWNLOADS.DBF", "DOWNLOADS.MDX"}) {
    SCOPED_TRACE(file);
    const std::string a = tytest::ReadFile(std::filesystem::path(atOnce.Data()) / file);
    EXPECT_GT(a.size(), 1000u);
    EXPECT_TRUE(a == tytest::ReadFile(std::filesystem::path(writer.Data()) / file));
  }
  const auto rows = ReadTable(writer.Data(), "Visits");
  EXPECT_EQ(rows.front().at("LASTPAGE"), "/at-last.htm");
  EXPECT_EQ(rows.front().at("ACTIVE"), "N");
  EXPECT_GT(ReadTable(writer.Data(), "Pages").size(), 10000u);
  EXPECT_GT(ReadTable(writer.Data(), "Exceptions").size(), 8000u);
}

TEST(Records, PageCacheWritesOnTheFiveThousandthCallAndDropsItsPage) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  database::Visit v = MakeVisit("10.0.0.1", At(9, 0, 0));
  for (int n = 1; n <= 4999; ++n) {
    v.pageCount = static_cast<int16_t>(n);
    v.currentPage = "p" + std::to_string(n) + ".htm";
    f.AddPageToDatabase(v);
  }
  EXPECT_EQ(f.Inspect(database::TableId::kPages).RecordCount(), 0);  // the 4999th page is still cached
  v.pageCount = 5000;
  v.currentPage = "p5000.htm";
  f.AddPageToDatabase(v);
  // The batch is entries 0..4999: 4999 pages and one blank record; page 5000 is not among them.
  EXPECT_EQ(f.Inspect(database::TableId::kPages).RecordCount(), 5000);
  v.pageCount = 5001;
  v.currentPage = "p5001.htm";
  f.AddPageToDatabase(v);
  f.CloseDatabase();
  // Closing writes entries 0 and 1: the first page of the first batch again, then page 5001.
  const auto pages = ReadTable(run.Data(), "Pages");
  ASSERT_EQ(pages.size(), 5002u);
  EXPECT_EQ(pages[0].at("PAGE"), "p1.htm");
  EXPECT_EQ(pages[0].at("PAGENO"), "0001");
  EXPECT_EQ(pages[0].at("VISITNO"), "00001");
  EXPECT_EQ(pages[0].at("PAGEDATE"), "20260314");
  EXPECT_EQ(pages[0].at("PAGETIME"), "09:00:00");
  EXPECT_EQ(pages[0].at("STATUS"), "200");
  EXPECT_EQ(pages[4998].at("PAGE"), "p4999.htm");
  EXPECT_EQ(pages[4999].at("PAGE"), "");
  EXPECT_EQ(pages[4999].at("IP"), "");
  EXPECT_EQ(pages[5000].at("PAGE"), "p1.htm");
  EXPECT_EQ(pages[5001].at("PAGE"), "p5001.htm");
  for (const auto& p : pages) EXPECT_NE(p.at("PAGE"), "p5000.htm");
  EXPECT_EQ(f.Totals().pageRecordsAdded, 5002);
}

TEST(Records, DownloadKeepsTheFileNameAndIsCountedForTheSite) {
  DbRun run;
  dbtest::CountingHooks hooks;
  database::Database f(run.Inputs());
  f.SetHooks(hooks);
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Beta");
  database::Visit v = MakeVisit("10.0.0.1", At(9, 0, 0), 2);
  v.visitNumber = 3;
  for (const char* page : {"/files/setup.exe", "a\\b/c\\d.zip", "plain.dll", "dir/"}) {
    v.currentPage = page;
    v.lastHitTime = At(9, 5, 30);
    v.status = 404;
    f.AddDownload(v);
  }
  EXPECT_EQ(hooks.downloads[2], 4);
  f.CloseDatabase();
  const auto downloads = ReadTable(run.Data(), "Downloads");
  ASSERT_EQ(downloads.size(), 4u);
  EXPECT_EQ(downloads[0].at("DOWNLOAD"), "setup.exe");
  EXPECT_EQ(downloads[1].at("DOWNLOAD"), "d.zip");
  EXPECT_EQ(downloads[2].at("DOWNLOAD"), "plain.dll");
  EXPECT_EQ(downloads[3].at("DOWNLOAD"), "");
  EXPECT_EQ(downloads[0].at("SITE"), "Beta");
  EXPECT_EQ(downloads[0].at("VISITNO"), "00003");
  EXPECT_EQ(downloads[0].at("VISITTIME"), "09:05:30");
  EXPECT_EQ(downloads[0].at("STATUS"), "404");
}
