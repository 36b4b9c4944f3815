// The page-extension test of the page filter: whether the extension of a requested file (the
// text after the page's last ".") is on the settings' page-extension list, with ASCII letters
// compared lower-cased.
//
// Every hit whose page has a "." is tested, so the list is kept as packed words: an extension of
// up to eight characters is one 64-bit word (its lower-cased bytes, first byte lowest, the rest
// zero) and its length, and the test is a probe of a small hash table of those words rather than
// a walk of the list's texts. Longer extensions (rare) are compared as text.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace analysis {

// An extension as the page filter and the file-type checks read it: its first eight characters
// lower-cased into one word (first character in the lowest byte, unused bytes zero) and its full
// length. Two extensions of at most eight characters are equal exactly when word and length are.
struct ExtensionKey {
  uint64_t word = 0;
  size_t length = 0;

  // The key of `ext` (any length; ASCII letters are lower-cased, other bytes kept).
  static ExtensionKey Of(std::string_view ext) {
    ExtensionKey k;
    k.length = ext.size();
    const size_t n = ext.size() < 8 ? ext.size() : 8;
    for (size_t i = 0; i < n; ++i) {
      unsigned char c = static_cast<unsigned char>(ext[i]);
      if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c + 32);
      k.word |= static_cast<uint64_t>(c) << (8 * i);
    }
    return k;
  }
  // The key of a lower-case literal of at most eight characters, e.g. Literal("exe").
  static constexpr ExtensionKey Literal(std::string_view lower) {
    ExtensionKey k;
    k.length = lower.size();
    for (size_t i = 0; i < lower.size() && i < 8; ++i)
      k.word |= static_cast<uint64_t>(static_cast<unsigned char>(lower[i])) << (8 * i);
    return k;
  }
  // Whether the two keys are equal (for extensions of at most eight characters: the same text).
  bool Is(ExtensionKey other) const { return word == other.word && length == other.length; }
};

class PageExtensionSet {
 public:
  // Holds the entries 1..count of `list` (count is cut to the list's last slot). Entries are
  // taken as they are written: the settings keep them lower case, and an entry with an upper-case
  // letter matches no extension, as the lower-cased extension never equals it.
  template <size_t N>
  void Assign(const std::array<std::string, N>& list, int count) {
    const int last = count < static_cast<int>(N) - 1 ? count : static_cast<int>(N) - 1;
    std::vector<std::string_view> entries;
    for (int i = 1; i <= last; ++i) entries.push_back(list[static_cast<size_t>(i)]);
    Assign(entries);
  }
  void Assign(const std::vector<std::string_view>& entries);

  // Whether the extension with key `key` and text `ext` equals a listed entry, both read
  // lower-cased (ASCII letters only). REQUIRES: key == ExtensionKey::Of(ext). Allocates nothing.
  bool Contains(ExtensionKey key, std::string_view ext) const {
    if (key.length > 8) return ContainsLong(ext);
    for (size_t at = Slot(key.word);; at = (at + 1) & mask_) {
      const Entry& e = slots_[at];
      if (e.length == kEmpty) return false;
      if (e.word == key.word && e.length == key.length) return true;
    }
  }

 private:
  // Enough slots that a list of up to 30 entries (the most the settings hold) leaves most empty,
  // so a probe nearly always ends at its first or second slot; a longer list grows the table so
  // that at least half of it stays empty (a probe always meets an empty slot).
  static constexpr size_t kMinSlots = 64;
  static constexpr uint8_t kEmpty = 0xFF;
  struct Entry {
    uint64_t word = 0;
    uint8_t length = kEmpty;  // 0..8, or kEmpty
  };
  size_t Slot(uint64_t word) const {
    return static_cast<size_t>((word * 0x9E3779B97F4A7C15ull) >> 40) & mask_;
  }
  bool ContainsLong(std::string_view ext) const;

  std::vector<Entry> slots_ = std::vector<Entry>(kMinSlots);  // a power of two of them
  size_t mask_ = kMinSlots - 1;                               // slots_.size() - 1
  std::vector<std::string> long_;  // entries longer than eight characters, as written
};

}  // namespace analysis
