// The line reader in both modes: where lines end, what the last line is, positions, and that the
// block size never changes the lines.
#include "loginput/LineReader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace loginput {
namespace {

struct ReadBack {
  std::vector<std::string> lines;
  std::vector<int64_t> positions;  // Position() after each line
  bool readFailed = false;
  bool operator==(const ReadBack&) const = default;
};

ReadBack ReadAll(const std::string& path, LineReader::Mode mode, size_t maxLine = 1 << 20,
                 size_t block = 4096, bool readAhead = false) {
  LineReader reader(maxLine, block, readAhead);
  reader.Open(path, mode);
  ReadBack out;
  while (!reader.AtEnd()) {
    out.lines.emplace_back(reader.Next());
    out.positions.push_back(reader.Position());
  }
  out.readFailed = reader.ReadFailed();
  return out;
}

ReadBack ReadBytes(const std::string& bytes, LineReader::Mode mode, size_t maxLine = 1 << 20,
                   size_t block = 4096) {
  tytest::TempDir dir;
  tytest::WriteFile(dir.path() / "f.log", bytes);
  return ReadAll((dir.path() / "f.log").string(), mode, maxLine, block);
}

using Lines = std::vector<std::string>;

TEST(LineReader, TextModeEndsLinesAtCrOrCrLfOnly) {
  EXPECT_EQ(ReadBytes("a\r\nb\rc\r\n", LineReader::Mode::kText).lines, (Lines{"a", "b", "c", ""}));
  // LF alone is part of the line: an LF-only file is one line.
  EXPECT_EQ(ReadBytes("a b\nc d\n", LineReader::Mode::kText).lines, (Lines{"a b\nc d\n"}));
  // A CR followed by CR LF is an empty line between.
  EXPECT_EQ(ReadBytes("a\r\r\nb", LineReader::Mode::kText).lines, (Lines{"a", "", "b"}));
  // Ctrl-Z ends a text file; in Unix mode it is an ordinary byte.
  EXPECT_EQ(ReadBytes("a\r\nb\x1a c\r\n", LineReader::Mode::kText).lines, (Lines{"a", "b"}));
  EXPECT_EQ(ReadBytes("a\nb\x1a c\n", LineReader::Mode::kUnix).lines, (Lines{"a", "b\x1a c", ""}));
  // Positions are 1-based and count the line ends.
  EXPECT_EQ(ReadBytes("ab\r\nc\rd", LineReader::Mode::kText).positions,
            (std::vector<int64_t>{5, 7, 8}));
}

TEST(LineReader, UnixModeEndsLinesAtLfAndKeepsTheCr) {
  ReadBack r = ReadBytes("a\r\nbb\nccc", LineReader::Mode::kUnix);
  EXPECT_EQ(r.lines, (Lines{"a\r", "bb", "ccc"}));
  EXPECT_EQ(r.positions, (std::vector<int64_t>{4, 7, 10}));
  // A line longer than the 256-byte chunk comes back whole, with no blank fill at the end.
  const std::string longLine(300, 'x');
  EXPECT_EQ(ReadBytes(longLine + "\n" + longLine, LineReader::Mode::kUnix).lines,
            (Lines{longLine, longLine}));
  // A bare CR is an ordinary character here.
  EXPECT_EQ(ReadBytes("a\rb\n", LineReader::Mode::kUnix).lines, (Lines{"a\rb", ""}));
}

TEST(LineReader, LineEndAtTheEndOfTheFileLeavesAnEmptyLastLine) {
  EXPECT_EQ(ReadBytes("a\r\n", LineReader::Mode::kText).lines, (Lines{"a", ""}));
  EXPECT_EQ(ReadBytes("a\n", LineReader::Mode::kUnix).lines, (Lines{"a", ""}));
  EXPECT_EQ(ReadBytes("a", LineReader::Mode::kUnix).lines, (Lines{"a"}));
  EXPECT_EQ(ReadBytes("", LineReader::Mode::kText).lines, (Lines{""}));
  EXPECT_EQ(ReadBytes("", LineReader::Mode::kUnix).lines, (Lines{""}));
}

TEST(LineReader, MissingFileReadsAsEmptyAndReaderCanBeReused) {
  tytest::TempDir dir;
  LineReader reader;
  EXPECT_FALSE(reader.Open((dir.path() / "gone.log").string(), LineReader::Mode::kText));
  EXPECT_FALSE(reader.AtEnd());
  EXPECT_EQ(reader.Next(), "");
  EXPECT_TRUE(reader.AtEnd());
  EXPECT_EQ(reader.Next(), "");

  tytest::WriteFile(dir.path() / "x.log", "one\r\ntwo");
  EXPECT_TRUE(reader.Open((dir.path() / "x.log").string(), LineReader::Mode::kText));
  EXPECT_EQ(reader.Next(), "one");
  EXPECT_EQ(reader.Next(), "two");
  EXPECT_TRUE(reader.AtEnd());
}

TEST(LineReader, OverlongLineIsCutAndTheRestDropped) {
  const std::string big(5000, 'y');
  ReadBack r = ReadBytes("a\r\n" + big + "\r\nb", LineReader::Mode::kText, 1000, 64);
  ASSERT_EQ(r.lines.size(), 3u);
  EXPECT_EQ(r.lines[1], std::string(1000, 'y'));
  EXPECT_EQ(r.lines[2], "b");
  EXPECT_EQ(r.positions[1], 3 + 5000 + 2 + 1);  // the dropped bytes still count
  // The same when the cut line is the last one.
  r = ReadBytes(big, LineReader::Mode::kUnix, 1000, 64);
  EXPECT_EQ(r.lines, (Lines{std::string(1000, 'y')}));
  EXPECT_EQ(r.positions.back(), 5001);
}

// Reference: cut the bytes at every line end as the modes define them.
Lines Reference(const std::string& s, LineReader::Mode mode) {
  Lines out;
  std::string cur;
  for (size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (mode == LineReader::Mode::kText && c == 26) break;
    if (mode == LineReader::Mode::kUnix && c == '\n') {
      out.push_back(cur);
      cur.clear();
    } else if (mode == LineReader::Mode::kText && c == '\r') {
      out.push_back(cur);
      cur.clear();
      if (i + 1 < s.size() && s[i + 1] == '\n') ++i;
    } else {
      cur.push_back(c);
    }
  }
  out.push_back(cur);
  return out;
}

// Random files of CRs, LFs, Ctrl-Zs and long lines, read in blocks of a few bytes, cut at small
// line limits, with and without the helper thread, so that lines, line ends and cut lines
// straddle every boundary: the lines, positions and end are those of the plain reader, and
// without a line limit the lines are those of cutting the bytes at each line end.
TEST(LineReader, BlockSizeLineLimitAndReadingAheadNeverChangeTheLines) {
  std::mt19937 rng(1234);
  const char alphabet[] = {'a', 'b', 'c', ' ', '\r', '\n', '\r', 'x', '\0', 26};
  for (int round = 0; round < 50; ++round) {
    std::string bytes;
    const int n = static_cast<int>(rng() % 3000);
    for (int i = 0; i < n; ++i) {
      // Ctrl-Z rarely, so that most files have lines after the first few blocks.
      char c = alphabet[rng() % sizeof alphabet];
      if (c == 26 && rng() % 8 != 0) c = 'z';
      bytes.push_back(c);
      if (rng() % 200 == 0) bytes += std::string(rng() % 700, 'L');
    }
    tytest::TempDir dir;
    const std::string path = (dir.path() / "r.log").string();
    tytest::WriteFile(path, bytes);
    for (auto mode : {LineReader::Mode::kText, LineReader::Mode::kUnix}) {
      const size_t stop = mode == LineReader::Mode::kText ? bytes.find('\x1a') : bytes.npos;
      for (size_t maxLine : {size_t{3}, size_t{64}, size_t{1} << 20}) {
        const ReadBack plain = ReadAll(path, mode, maxLine, 4096, false);
        EXPECT_EQ(plain.positions.back(),
                  static_cast<int64_t>(stop == bytes.npos ? bytes.size() : stop) + 1);
        if (maxLine == size_t{1} << 20) {
          ASSERT_EQ(plain.lines, Reference(bytes, mode));
        }
        for (size_t block : {1, 2, 5, 64, 700}) {
          for (bool ahead : {false, true}) {
            ASSERT_TRUE(ReadAll(path, mode, maxLine, block, ahead) == plain)
                << "round " << round << " block " << block << " maxLine " << maxLine
                << " ahead " << ahead;
          }
        }
      }
    }
  }
}

TEST(LineReader, ReadingAheadGivesTheSameLinesOnALargeFile) {
  std::string bytes;
  for (int i = 0; bytes.size() < (size_t{3} << 20); ++i) {
    bytes += "line " + std::to_string(i) + std::string(static_cast<size_t>(i % 300), 'x') + "\r\n";
  }
  bytes += std::string(5000, 'z');  // a last line longer than the line limit below
  const size_t endMark = bytes.size();
  bytes += "\x1a and what follows the end mark\r\n";
  tytest::TempDir dir;
  const std::string path = (dir.path() / "big.log").string();
  tytest::WriteFile(path, bytes);
  const ReadBack plain = ReadAll(path, LineReader::Mode::kText, 4096, 64 << 10, false);
  const ReadBack ahead = ReadAll(path, LineReader::Mode::kText, 4096, 64 << 10, true);
  EXPECT_TRUE(plain == ahead);
  EXPECT_EQ(ahead.lines.back(), std::string(4096, 'z'));
  EXPECT_EQ(ahead.positions.back(), static_cast<int64_t>(endMark) + 1);
}

// Closing a reader part way stops its helper; the reader can open the next file at once.
TEST(LineReader, ClosingPartWayThroughStopsReadingAhead) {
  std::string bytes;
  for (int i = 0; i < 20000; ++i) bytes += "line " + std::to_string(i) + "\r\n";
  tytest::TempDir dir;
  const std::string path = (dir.path() / "big.log").string();
  tytest::WriteFile(path, bytes);
  LineReader reader(1 << 20, 4096, true);
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(reader.Open(path, LineReader::Mode::kText));
    for (int i = 0; i < 10 * round; ++i)
      EXPECT_EQ(reader.Next(), "line " + std::to_string(i));
    reader.Close();
    EXPECT_TRUE(reader.AtEnd());
    EXPECT_EQ(reader.Next(), "");
  }
  EXPECT_FALSE(reader.Open((dir.path() / "missing.log").string(), LineReader::Mode::kText));
  EXPECT_EQ(reader.Next(), "");
  EXPECT_TRUE(reader.AtEnd());
}

}  // namespace
}  // namespace loginput
