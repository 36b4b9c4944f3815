// The packed page-extension list against the plain test (lower-case the extension, compare it
// with each listed text), and the hit processing reading the list at the start of each file.
#include "analysis/PageExtensions.h"

#include <gtest/gtest.h>

#include <random>

#include "analysis/AnalysisTesting.h"
#include "analysis/Text.h"

namespace analysis {
namespace {

bool PlainContains(const std::vector<std::string>& list, std::string_view ext) {
  std::string lower(ext);
  for (char& c : lower) c = LowerChar(c);
  for (const std::string& listed : list)
    if (listed == lower) return true;
  return false;
}

TEST(PageExtensions, PackedListAnswersAsThePlainComparison) {
  std::mt19937 rng(20261122);
  // Few letters, so that near misses (same letters, other length or case) are common; a NUL and
  // a non-ASCII byte, which are kept as they are.
  const std::string alphabet = std::string("aAbBhHtT.\xE9", 10) + std::string(1, '\0');
  auto text = [&](size_t maxLength) {
    std::string s(rng() % (maxLength + 1), ' ');
    for (char& c : s) c = alphabet[rng() % alphabet.size()];
    return s;
  };
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> list;
    const int count = static_cast<int>(rng() % 31);
    for (int i = 0; i < count; ++i) {
      std::string e = text(rng() % 4 == 0 ? 12 : 5);
      // The settings keep entries lower case; some are not, and then match nothing.
      if (rng() % 5 != 0)
        for (char& c : e) c = LowerChar(c);
      list.push_back(e);
    }
    std::array<std::string, 31> slots{};
    for (int i = 0; i < count; ++i) slots[static_cast<size_t>(i) + 1] = list[static_cast<size_t>(i)];
    PageExtensionSet set;
    set.Assign(slots, count);
    for (int probe = 0; probe < 200; ++probe) {
      // Half the probes are listed entries with their case changed at random.
      std::string ext = (count > 0 && probe % 2 == 0) ? list[rng() % list.size()] : text(12);
      for (char& c : ext)
        if (rng() % 2 == 0 && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
      ASSERT_EQ(set.Contains(ExtensionKey::Of(ext), ext), PlainContains(list, ext))
          << "round " << round << " extension of " << ext.size() << " characters";
    }
  }
  // An empty entry lists the empty extension ("page." then counts as a page).
  std::array<std::string, 31> slots{};
  PageExtensionSet set;
  set.Assign(slots, 1);
  EXPECT_TRUE(set.Contains(ExtensionKey::Of(""), ""));
  set.Assign(slots, 0);
  EXPECT_FALSE(set.Contains(ExtensionKey::Of(""), ""));
  // A count beyond the list is cut to its last slot.
  slots[30] = "htm";
  set.Assign(slots, 99);
  EXPECT_TRUE(set.Contains(ExtensionKey::Of("HTM"), "HTM"));
}

TEST(PageExtensions, KeysOfFileTypesMatchOnlyTheirOwnExtension) {
  constexpr ExtensionKey kExe = ExtensionKey::Literal("exe");
  EXPECT_TRUE(ExtensionKey::Of("EXE").Is(kExe));
  EXPECT_TRUE(ExtensionKey::Of("eXe").Is(kExe));
  EXPECT_FALSE(ExtensionKey::Of("exe2").Is(kExe));
  EXPECT_FALSE(ExtensionKey::Of("ex").Is(kExe));
  EXPECT_FALSE(ExtensionKey::Of(std::string_view("exe\0", 4)).Is(kExe));
  // Longer than eight characters: never equal to a short literal, whatever its first eight.
  EXPECT_FALSE(ExtensionKey::Of(std::string_view("exe\0\0\0\0\0\0", 9)).Is(kExe));
}

// The list is read when the processor is made and again at the start of each file, so a list
// changed between files applies to the next file.
TEST(PageExtensions, ListChangedBetweenFilesAppliesFromTheNextFile) {
  antest::Run run;
  ASSERT_TRUE(run.ok);
  run.hits->StartFile();
  run.Hit("2026-11-20", "10:00:00", "10.0.0.1", "/report.pdfx");
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 0);
  startup::AppSettings& s = run.world.settings;
  s.pageExtensions[static_cast<size_t>(++s.pageExtensionCount)] = "pdfx";
  run.Hit("2026-11-20", "10:00:10", "10.0.0.1", "/report.pdfx");
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 0);  // same file: the list it started with
  run.hits->StartFile();
  run.Hit("2026-11-20", "10:00:20", "10.0.0.1", "/Report.PDFX");
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 1);
  run.Hit("2026-11-20", "10:00:30", "10.0.0.1", "/index.HTM");
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 2);
  run.Hit("2026-11-20", "10:00:40", "10.0.0.1", "/logo.gif");
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 2);
}

}  // namespace
}  // namespace analysis
