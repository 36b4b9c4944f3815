// The in-memory tag tree against std::set under random inserts and erases (splits, emptied
// leaves, a shrinking root), in both orders, and its seeks on key prefixes.
#include "dbase/TagIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>

namespace dbase {
namespace {

struct Model {
  bool desc;
  bool operator()(const std::pair<std::string, uint32_t>& a, const std::pair<std::string, uint32_t>& b) const {
    if (a.first != b.first) return desc ? a.first > b.first : a.first < b.first;
    return a.second < b.second;
  }
};

TEST(TagIndex, RandomInsertsAndErasesKeepTheOrderOfASet) {
  for (bool desc : {false, true}) {
    SCOPED_TRACE(desc ? "descending" : "ascending");
    const int k = 6;
    TagIndex ix(k, desc);
    std::set<std::pair<std::string, uint32_t>, Model> model(Model{desc});
    std::mt19937 rng(desc ? 11 : 5);
    auto key = [&]() {
      std::string s(k, 'a');
      for (char& c : s) c = char('a' + rng() % 4);  // few letters: many equal keys
      return s;
    };
    uint32_t next = 1;
    for (int round = 0; round < 3; ++round) {
      for (int i = 0; i < 6000; ++i) {
        std::string s = key();
        ix.Insert(s.data(), next);
        model.insert({s, next++});
      }
      // Erase most entries, so that leaves empty out and the tree shrinks.
      std::vector<std::pair<std::string, uint32_t>> all(model.begin(), model.end());
      std::shuffle(all.begin(), all.end(), rng);
      for (size_t i = 0; i < all.size() * 9 / 10; ++i) {
        ASSERT_TRUE(ix.Erase(all[i].first.data(), all[i].second));
        model.erase(all[i]);
      }
      EXPECT_FALSE(ix.Erase("zzzzzz", 1));
      std::string why;
      ASSERT_TRUE(ix.SelfCheck(&why)) << why;
      ASSERT_EQ(ix.Size(), model.size());
      auto it = model.begin();
      for (TagIndex::Pos p = ix.First(); p.Valid(); ix.Next(p), ++it) {
        ASSERT_EQ(std::string(ix.KeyAt(p), k), it->first);
        ASSERT_EQ(ix.RecnoAt(p), it->second);
      }
      // Prefix seeks land on the first entry not before the prefix.
      for (int i = 0; i < 200; ++i) {
        std::string pre = key().substr(0, 1 + rng() % 3);
        TagIndex::Pos p = ix.LowerBound(pre.data(), int(pre.size()), 0);
        auto m = std::find_if(model.begin(), model.end(), [&](const auto& e) {
          std::string h = e.first.substr(0, pre.size());
          return desc ? h <= pre : h >= pre;
        });
        if (m == model.end()) {
          EXPECT_FALSE(p.Valid());
        } else {
          ASSERT_TRUE(p.Valid());
          EXPECT_EQ(ix.RecnoAt(p), m->second);
        }
      }
    }
    // Unique inserts report the holder instead of adding.
    TagIndex::Pos first = ix.First();
    std::string k0(ix.KeyAt(first), k);
    EXPECT_EQ(ix.InsertUnique(k0.data(), 999999), ix.RecnoAt(first));
  }
}

TEST(TagIndex, SortAndBulkLoadMatchOneByOneInserts) {
  const int k = 5;
  TagIndex a(k, true), b(k, true);
  std::mt19937 rng(9);
  std::vector<char> flat;
  for (uint32_t r = 1; r <= 20000; ++r) {
    char e[9];
    for (int i = 0; i < k; ++i) e[i] = char('0' + rng() % 10);
    std::memcpy(e + k, &r, 4);
    flat.insert(flat.end(), e, e + 9);
    a.Insert(e, r);
  }
  b.SortEntries(flat.data(), 20000);
  b.BulkLoad(flat.data(), 20000);
  std::string why;
  ASSERT_TRUE(b.SelfCheck(&why)) << why;
  TagIndex::Pos p = a.First(), q = b.First();
  for (; p.Valid(); a.Next(p), b.Next(q)) {
    ASSERT_TRUE(q.Valid());
    ASSERT_EQ(a.RecnoAt(p), b.RecnoAt(q));
  }
  EXPECT_FALSE(q.Valid());
  // Inserting into a bulk-loaded (full) tree splits cleanly.
  for (uint32_t r = 20001; r <= 25000; ++r) b.Insert("55555", r);
  ASSERT_TRUE(b.SelfCheck(&why)) << why;
}

// A level of a bulk load whose node count is one more than an inner node holds: the last node
// must not be left with a single child, and no node of the level may be skipped when the one
// before takes a child less. Every entry must then be reached from the root.
TEST(TagIndex, BulkLoadReachesEveryLeafWhenALevelEndsWithOneNodeOver) {
  for (const int k : {5, 38}) {
    TagIndex probe(k, false);
    // Leaves hold 2048 / entry bytes entries, inner nodes 4096 / (entry bytes + 8) children.
    const size_t leafCap = size_t(2048 / (k + 4)), innerCap = size_t(4096 / (k + 12));
    std::vector<size_t> counts = {innerCap + 1, 2 * innerCap + 1};
    if (k == 38) counts.push_back(innerCap * innerCap + 1);  // also a level above that
    for (const size_t leaves : counts) {
      const size_t n = leaves * leafCap;
      std::vector<char> flat(n * size_t(k + 4), 0);
      for (uint32_t i = 0; i < n; ++i) {
        char* e = &flat[size_t(i) * size_t(k + 4)];
        const uint32_t big = __builtin_bswap32(i), r = i + 1;  // ascending keys, byte-wise
        std::memcpy(e + k - 4, &big, 4);
        std::memcpy(e + k, &r, 4);
      }
      TagIndex ix(k, false);
      ix.BulkLoad(flat.data(), n);
      std::string why;
      EXPECT_TRUE(ix.SelfCheck(&why)) << "key " << k << ", " << leaves << " leaves: " << why;
      EXPECT_EQ(ix.Find(&flat[(n - 1) * size_t(k + 4)]), n);
    }
  }
}

TEST(TagIndex, LargeSortsWithASharedPrefixAgreeWithAStableSort) {
  // Keys "SITE" + a date-like part drawn from few values: a prefix every key shares, buckets
  // after it, many equal keys whose record numbers must stay in order; both orders, and a batch
  // that is in order already.
  for (const bool desc : {false, true}) {
    for (const bool presorted : {false, true}) {
      const int k = 10;
      TagIndex ix(k, desc);
      std::mt19937 rng(desc ? 3 : 4);
      std::vector<std::pair<std::string, uint32_t>> model;
      for (uint32_t r = 1; r <= 9000; ++r) {
        std::string key = "SITE" + std::to_string(100000 + rng() % 300);
        model.emplace_back(key, r);
      }
      if (presorted) std::stable_sort(model.begin(), model.end(), Model{desc});
      std::vector<char> flat;
      for (const auto& [key, r] : model) {
        flat.insert(flat.end(), key.begin(), key.end());
        flat.insert(flat.end(), reinterpret_cast<const char*>(&r),
                    reinterpret_cast<const char*>(&r) + 4);
      }
      ix.SortEntries(flat.data(), model.size());
      std::stable_sort(model.begin(), model.end(), Model{desc});
      for (size_t i = 0; i < model.size(); ++i) {
        uint32_t r;
        std::memcpy(&r, &flat[i * 14 + 10], 4);
        ASSERT_EQ(std::string(&flat[i * 14], 10), model[i].first) << i;
        ASSERT_EQ(r, model[i].second) << i;
      }
    }
  }
}

// Batches drawn from a few distinct keys (a code or a date per record) are dealt out by key when
// their record numbers ascend; around the limit of that path, and with record numbers out of
// order, every batch must still come out as the plain order (key, then record number).
TEST(TagIndex, BatchesOfFewDistinctKeysSortLikeThePlainOrder) {
  for (const bool desc : {false, true}) {
    for (const size_t distinct : {1u, 2u, 7u, 63u, 64u, 65u, 300u}) {
      for (const bool shuffled : {false, true}) {
        SCOPED_TRACE(std::to_string(distinct) + (desc ? " desc" : " asc") +
                     (shuffled ? " shuffled" : ""));
        const int k = 9;
        TagIndex ix(k, desc);
        std::mt19937 rng(unsigned(distinct) * 2 + (desc ? 1 : 0));
        std::vector<std::string> pool;
        for (size_t j = 0; j < distinct; ++j) pool.push_back("SITE " + std::to_string(1000 + rng() % 9000));
        std::vector<std::pair<std::string, uint32_t>> model;
        for (uint32_t r = 1; r <= 20000; ++r) {
          // Runs of equal keys, as records of one kind come together.
          const std::string& key = pool[(r / (1 + rng() % 5) + rng() % 2) % pool.size()];
          model.emplace_back(key, r * 3);
        }
        if (shuffled) std::shuffle(model.begin(), model.end(), rng);
        std::vector<char> flat;
        for (const auto& [key, r] : model) {
          flat.insert(flat.end(), key.begin(), key.end());
          flat.insert(flat.end(), reinterpret_cast<const char*>(&r), reinterpret_cast<const char*>(&r) + 4);
        }
        PageBuffer scratch;
        ix.SortEntries(flat.data(), model.size(), scratch);
        std::sort(model.begin(), model.end(), Model{desc});
        for (size_t i = 0; i < model.size(); ++i) {
          uint32_t r;
          std::memcpy(&r, &flat[i * 13 + 9], 4);
          ASSERT_EQ(std::string(&flat[i * 13], 9), model[i].first) << i;
          ASSERT_EQ(r, model[i].second) << i;
        }
      }
    }
  }
}

}  // namespace
}  // namespace dbase
