// Exception records: the catalogue decides what is recorded, the message text, and the batches
// of the exception cache, read back from the table on disk.
#include <gtest/gtest.h>

#include "database/TestDatabase.h"

using dbtest::At;
using dbtest::ReadTable;
using dbtest::DbRun;

TEST(Exceptions, CatalogueDecidesWhatIsRecordedAndTheText) {
  DbRun run;
  // 131 switched off; 999 not in the catalogue.
  for (auto& t : run.world.exceptions.types) {
    if (t.number == 131) t.raise = false;
  }
  dbtest::CountingHooks hooks;
  database::Database f(run.Inputs());
  f.SetHooks(hooks);
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");

  EXPECT_FALSE(f.AddException(1, 131, At(9, 0, 0), "30"));
  EXPECT_FALSE(f.AddException(1, 999, At(9, 0, 0), "x"));
  EXPECT_TRUE(hooks.exceptions.empty());

  // No value: the catalogue's default (161 has 10) in the text and in the record.
  ASSERT_TRUE(f.AddException(2, 161, At(9, 15, 0), std::nullopt, "host.example.org", 7));
  EXPECT_EQ(f.LastExceptionText(),
            "Visitor generated more than 10 404 errors DNS: host.example.org Visit No: 7");
  // A given value replaces every "[value]"; without ip and visit number nothing is appended.
  ASSERT_TRUE(f.AddException(1, 404, At(9, 16, 0), "missing.htm"));
  EXPECT_EQ(f.LastExceptionText(), "HTTP Page missing.htm not found 404 error");
  // An entry without a default value and no value given: the template stays as it is.
  ASSERT_TRUE(f.AddException(1, 165, 0));
  EXPECT_EQ(f.LastExceptionText(), "Possible HACKER detected!");
  EXPECT_EQ(hooks.exceptions[1], 2);
  EXPECT_EQ(hooks.exceptions[2], 1);
  f.CloseDatabase();

  const auto rows = ReadTable(run.Data(), "Exceptions");
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].at("NUMBER"), "161");
  EXPECT_EQ(rows[0].at("VALUE"), "10");
  EXPECT_EQ(rows[0].at("IP"), "host.example.or");  // cut to the field's 15 characters
  EXPECT_EQ(rows[0].at("VISITNO"), "7");
  EXPECT_EQ(rows[0].at("EXDATE"), "20260314");
  EXPECT_EQ(rows[0].at("EXTIME"), "09:15:00");
  EXPECT_EQ(rows[0].at("SITE"), "Alpha");
  EXPECT_EQ(rows[1].at("VALUE"), "missing.htm");
  EXPECT_EQ(rows[1].at("VISITNO"), "");  // raised without a visit
  // A zero date means now (the run's clock stands at 23:00).
  EXPECT_EQ(rows[2].at("EXTIME"), "23:00:00");
  EXPECT_EQ(rows[2].at("VALUE"), "");
  EXPECT_EQ(f.Totals().exceptionRecordsAdded, 3);
}

TEST(Exceptions, TheFiveThousandAndFirstWritesAFullBatchWithOneBlankRecord) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  for (int i = 1; i <= 5000; ++i) {
    ASSERT_TRUE(f.AddException(1, 404, At(9, 0, 0), "p" + std::to_string(i)));
  }
  EXPECT_EQ(f.Inspect(database::TableId::kExceptions).RecordCount(), 0);  // the 5000th is still cached
  ASSERT_TRUE(f.AddException(1, 404, At(9, 0, 0), "p5001"));
  EXPECT_EQ(f.Inspect(database::TableId::kExceptions).RecordCount(), 5001);
  f.CloseDatabase();
  const auto rows = ReadTable(run.Data(), "Exceptions");
  ASSERT_EQ(rows.size(), 5002u);
  EXPECT_EQ(rows[0].at("VALUE"), "p1");
  EXPECT_EQ(rows[4999].at("VALUE"), "p5000");
  EXPECT_EQ(rows[5000].at("VALUE"), "");
  EXPECT_EQ(rows[5000].at("NUMBER"), "");
  EXPECT_EQ(rows[5000].at("SITE"), "");
  EXPECT_EQ(rows[5001].at("VALUE"), "p5001");  // the first entry of the next batch
  EXPECT_EQ(f.Totals().exceptionRecordsAdded, 5002);
}
