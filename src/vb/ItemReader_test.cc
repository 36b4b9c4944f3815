// Tests of the delimited item input, above all the loop that never processes the last item.
#include "vb/ItemReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "vb/Failure.h"

namespace vb {
namespace {

// Every item, read until Eof().
std::vector<std::string> AllItems(std::string bytes) {
  ItemReader r(std::move(bytes));
  std::vector<std::string> items;
  while (!r.Eof()) items.push_back(r.ReadItem());
  return items;
}

// The items a configuration loader processes: the loop tests Eof() before processing.
std::vector<std::string> Processed(std::string bytes) {
  ItemReader r(std::move(bytes));
  std::vector<std::string> items;
  try {
    std::string item = r.ReadItem();
    while (!r.Eof()) {
      items.push_back(item);
      item = r.ReadItem();
    }
  } catch (const Failure&) {
    // an empty input fails at the first read; the loader keeps what it has
  }
  return items;
}

using Items = std::vector<std::string>;

TEST(ItemReader, LastItemOfTheInputIsNeverProcessed) {
  EXPECT_EQ(Processed("A=1\r\nB=2\r\n"), Items({"A=1"}));
  EXPECT_EQ(Processed("A=1\r\nB=2\r\n\r\n"), Items({"A=1", "B=2"}));
  EXPECT_EQ(Processed("A=1\r\nB=2"), Items({"A=1"}));
  EXPECT_EQ(Processed("A=1\nB=2\n\n"), Items({"A=1", "B=2"}));
  EXPECT_EQ(Processed("REVERSEDNS=False"), Items());
  EXPECT_EQ(Processed(""), Items());
}

TEST(ItemReader, SplitsAtCommasAndEveryKindOfLineEnd) {
  EXPECT_EQ(AllItems("EMAILSUBJECT=Hello, world\r\n"), Items({"EMAILSUBJECT=Hello", "world"}));
  EXPECT_EQ(AllItems("a\rb\nc\r\nd"), Items({"a", "b", "c", "d"}));
  EXPECT_EQ(AllItems("a,,b\r\n\r\nc\n"), Items({"a", "", "b", "", "c"}));
  EXPECT_EQ(AllItems("  inactivitymins = 15 \t\r\n"), Items({"inactivitymins = 15"}));
  EXPECT_EQ(AllItems("\tx\ty\t,z"), Items({"x\ty", "z"}));
  EXPECT_EQ(AllItems("   "), Items({""}));
}

TEST(ItemReader, QuotedItemsKeepCommasAndDropTheRestOfTheField) {
  EXPECT_EQ(AllItems("\"a, b\"\r\nc\r\n"), Items({"a, b", "c"}));
  EXPECT_EQ(AllItems("  \"x\" junk,y"), Items({"x", "y"}));
  EXPECT_EQ(AllItems("\"two\r\nlines\",z"), Items({"two\r\nlines", "z"}));
  EXPECT_EQ(AllItems("K=\"v,w\",z"), Items({"K=\"v", "w\"", "z"}));  // inner quotes are plain
  EXPECT_EQ(AllItems("\"never closed, at all\r\nx"), Items({"never closed, at all\r\nx"}));
  EXPECT_EQ(AllItems("\"\""), Items({""}));
}

TEST(ItemReader, OddBytesNeitherCrashNorHang) {
  EXPECT_EQ(AllItems(std::string("a\0b,c", 5)), Items({std::string("a\0b", 3), "c"}));
  EXPECT_EQ(AllItems("a=1\r\nb=2\r\n\x1A" "c=3\r\n"), Items({"a=1", "b=2"}));  // Ctrl-Z ends it
  EXPECT_EQ(AllItems("\x1A"), Items());

  const std::string huge(10 * 1024 * 1024, 'x');
  const Items big = AllItems(huge + "\r\ny\r\n");
  ASSERT_EQ(big.size(), 2u);
  EXPECT_EQ(big[0].size(), huge.size());

  ItemReader r("a\r\n");
  EXPECT_EQ(r.ReadItem(), "a");
  EXPECT_TRUE(r.Eof());
  try {
    r.ReadItem();
    ADD_FAILURE();
  } catch (const Failure& e) {
    EXPECT_EQ(e.Number(), 62);
    EXPECT_EQ(e.Description(), "Input past end of file");
  }
}

TEST(ItemReader, OpenReadsAFileOrReportsItUnreadable) {
  tytest::TempDir dir;
  tytest::WriteFile(dir.path() / "SETTINGS.INI", "[Settings]\r\nDNSMASK1=*.aol.com\r\n\r\n");
  auto r = ItemReader::Open(dir.path() / "SETTINGS.INI");
  ASSERT_TRUE(r.has_value());
  EXPECT_EQ(r->ReadItem(), "[Settings]");
  EXPECT_EQ(r->ReadItem(), "DNSMASK1=*.aol.com");
  EXPECT_FALSE(r->Eof());
  EXPECT_FALSE(ItemReader::Open(dir.path() / "missing.ini").has_value());
  EXPECT_FALSE(ItemReader::Open(dir.path()).has_value());
}

}  // namespace
}  // namespace vb
