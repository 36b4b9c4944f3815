// Key fingerprints against a map of holders, with hashes forced to collide (equal hashes of
// different keys, long probe runs that wrap around the table) so that telling keys apart,
// growth and erasing by shifting back are all exercised.
#include "dbase/KeyFingerprints.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace dbase {
namespace {

TEST(KeyFingerprints, HoldersFollowInsertsReplacesAndErasesUnderForcedCollisions) {
  std::mt19937 rng(11);
  // Keys 0..299; their "hash" shares its home bits with many others (top bits from key % 5,
  // some keys even share the whole hash), so runs are long and cross the table's end.
  auto hashOf = [](int key) {
    const uint64_t home = key % 5 == 4 ? ~uint64_t(0) << 40 : uint64_t(key % 5) << 61;  // 4: the last slot
    return home | uint64_t(key % 17);
  };
  KeyFingerprints fp;
  std::map<int, uint32_t> holder;      // key -> record holding it
  std::map<uint32_t, int> keyOf;       // record -> its key
  uint32_t nextRec = 1;
  for (int step = 0; step < 20000; ++step) {
    const int key = int(rng() % 300);
    const uint64_t h = hashOf(key);
    auto same = [&](uint32_t rec) { return keyOf.at(rec) == key ? 1 : 0; };
    const int op = int(rng() % 10);
    if (op < 5) {
      // An append: a new record with this key.
      const uint32_t rec = nextRec++;
      keyOf[rec] = key;
      const uint32_t got = fp.InsertUnique(h, rec, same);
      auto it = holder.find(key);
      if (it == holder.end()) {
        EXPECT_EQ(got, 0u);
        holder[key] = rec;
      } else {
        EXPECT_EQ(got, it->second);
      }
    } else if (op < 7) {
      // The holder passes to another record (a later one with the key, or none).
      auto it = holder.find(key);
      if (it == holder.end()) {
        EXPECT_FALSE(fp.Replace(h, nextRec + 5, 1));
        continue;
      }
      if (rng() % 2) {
        const uint32_t rec = nextRec++;
        keyOf[rec] = key;
        ASSERT_TRUE(fp.Replace(h, it->second, rec));
        it->second = rec;
      } else {
        ASSERT_TRUE(fp.Replace(h, it->second, 0));
        holder.erase(it);
      }
    } else if (op < 8) {
      // A record that cannot be read: nothing changes.
      bool hashHeld = false;
      // (The table tells hashes apart by their top half only.)
      for (const auto& [k, r] : holder) hashHeld = hashHeld || (hashOf(k) >> 32) == (h >> 32);
      const uint32_t got = fp.InsertUnique(h, nextRec, [](uint32_t) { return -1; });
      EXPECT_EQ(got, hashHeld ? UINT32_MAX : 0u);
      if (got == 0) {  // no slot of that hash at all: nothing to ask, so recorded
        keyOf[nextRec] = key;
        holder[key] = nextRec++;
      }
    } else {
      // A look-up of a held key finds its holder and changes nothing.
      auto it = holder.find(key);
      if (it == holder.end()) continue;
      const size_t before = fp.Size();
      EXPECT_EQ(fp.InsertUnique(h, nextRec, same), it->second);
      EXPECT_EQ(fp.Size(), before);
    }
    ASSERT_EQ(fp.Size(), holder.size()) << "step " << step;
  }
  // Every holder is still found after all that shifting and growing.
  for (const auto& [key, rec] : holder)
    EXPECT_EQ(fp.InsertUnique(hashOf(key), nextRec, [&](uint32_t r) { return keyOf.at(r) == key ? 1 : 0; }), rec);
  EXPECT_GE(fp.MemoryBytes() * 3, fp.Size() * 4 * 8);
}

TEST(KeyFingerprints, HashSeesEveryByteOfTheKey) {
  std::string key(48, ' ');
  const uint64_t base = KeyFingerprints::Hash(key.data(), 48);
  for (size_t i = 0; i < key.size(); ++i) {
    std::string other = key;
    other[i] = '!';
    EXPECT_NE(KeyFingerprints::Hash(other.data(), 48), base) << "byte " << i;
  }
  // The length counts too, and bytes past it do not.
  EXPECT_NE(KeyFingerprints::Hash(key.data(), 47), base);
  std::string longer = key + "xyz";
  EXPECT_EQ(KeyFingerprints::Hash(longer.data(), 48), base);
}

}  // namespace
}  // namespace dbase
