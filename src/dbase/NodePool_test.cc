// The node pool and the page buffers: blocks stay distinct and keep their bytes while many are
// alive, freed blocks come back, Clear keeps the chunks for reuse and Release gives them back,
// and buffers keep what they must across a growth. Then many index trees alive at once, cleared and refilled, against a model.
#include "dbase/NodePool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "dbase/PageMemory.h"
#include "dbase/TagIndex.h"

namespace dbase {
namespace {

TEST(NodePool, BlocksKeepTheirBytesAndFreedBlocksAreReused) {
  NodePool pool(2068);  // a leaf's size: not a multiple of 16
  EXPECT_EQ(pool.BlockBytes() % 16, 0u);
  EXPECT_GE(pool.BlockBytes(), 2068u);
  // Enough blocks to go through the growing chunks into huge-page ones.
  std::vector<unsigned char*> blocks;
  for (int i = 0; i < 12000; ++i) {
    auto* b = static_cast<unsigned char*>(pool.Allocate());
    ASSERT_EQ(reinterpret_cast<uintptr_t>(b) % 16, 0u);
    std::memset(b, i & 0xFF, 2068);
    blocks.push_back(b);
  }
  EXPECT_EQ(std::set<unsigned char*>(blocks.begin(), blocks.end()).size(), blocks.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ(blocks[i][0], i & 0xFF) << i;
    ASSERT_EQ(blocks[i][2067], i & 0xFF) << i;
  }
  const size_t held = pool.ChunkBytes();
  EXPECT_GE(held, 12000u * pool.BlockBytes());
  // Freed blocks are handed out again before any new chunk is taken.
  std::set<unsigned char*> freed;
  for (size_t i = 0; i < blocks.size(); i += 3) {
    pool.Free(blocks[i]);
    freed.insert(blocks[i]);
  }
  for (size_t i = 0; i < freed.size(); ++i)
    EXPECT_TRUE(freed.count(static_cast<unsigned char*>(pool.Allocate())));
  EXPECT_EQ(pool.ChunkBytes(), held);
  // A cleared pool carves the same number of blocks from the chunks it kept.
  pool.Clear();
  EXPECT_EQ(pool.ChunkBytes(), held);
  std::set<void*> again;
  for (int i = 0; i < 12000; ++i) {
    void* b = pool.Allocate();
    std::memset(b, 0x33, pool.BlockBytes());
    again.insert(b);
  }
  EXPECT_EQ(again.size(), 12000u);
  EXPECT_EQ(pool.ChunkBytes(), held);
  pool.Release();
  EXPECT_EQ(pool.ChunkBytes(), 0u);
  // Usable again after Release; a reservation takes a single chunk for all it asks.
  pool.Reserve(5000);
  const size_t reserved = pool.ChunkBytes();
  EXPECT_GE(reserved, 5000u * pool.BlockBytes());
  for (int i = 0; i < 5000; ++i) std::memset(pool.Allocate(), 0x5A, pool.BlockBytes());
  EXPECT_EQ(pool.ChunkBytes(), reserved);
}

TEST(PageBuffer, GrowKeepsTheBytesAskedForAndLargeBuffersAreWhole) {
  PageBuffer buf;
  char* p = buf.Reserve(1000);
  ASSERT_GE(buf.Capacity(), 1000u);
  for (int i = 0; i < 1000; ++i) p[i] = char(i * 7);
  EXPECT_EQ(buf.Reserve(500), p);  // no growth: same memory, same bytes
  // Growing past a huge page keeps the first bytes; the whole capacity is writable.
  p = buf.Grow(5u << 20, 1000);
  ASSERT_GE(buf.Capacity(), 5u << 20);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(p[i], char(i * 7)) << i;
  std::memset(p + 1000, 1, buf.Capacity() - 1000);
  EXPECT_EQ(p[buf.Capacity() - 1], 1);
  buf.Release();
  EXPECT_EQ(buf.Capacity(), 0u);
  EXPECT_EQ(buf.Data(), nullptr);
}

// Trees of different key lengths (so different node sizes) grow, shrink, clear and bulk-load in
// turns while all are alive; each must keep exactly its own entries.
TEST(TagIndex, ManyTreesAliveAtOnceKeepTheirOwnEntriesThroughClears) {
  using Set = std::set<std::pair<std::string, uint32_t>>;
  std::mt19937 rng(21);
  std::vector<std::unique_ptr<TagIndex>> trees;
  std::vector<Set> models(12);
  for (int i = 0; i < 12; ++i) trees.push_back(std::make_unique<TagIndex>(3 + i * 7, false));
  uint32_t next = 1;
  auto keyFor = [&](int t) {
    std::string s(size_t(trees[size_t(t)]->KeyLength()), ' ');
    for (char& c : s) c = char('a' + rng() % 3);
    return s;
  };
  for (int round = 0; round < 6; ++round) {
    for (int step = 0; step < 20000; ++step) {
      const int t = int(rng() % 12);
      TagIndex& ix = *trees[size_t(t)];
      Set& m = models[size_t(t)];
      if (rng() % 4 == 0 && !m.empty()) {
        auto it = m.lower_bound({keyFor(t), 0});
        if (it == m.end()) it = m.begin();
        ASSERT_TRUE(ix.Erase(it->first.data(), it->second));
        m.erase(it);
      } else {
        std::string k = keyFor(t);
        ix.Insert(k.data(), next);
        m.insert({k, next++});
      }
    }
    // One tree is cleared, one rebuilt from a sorted batch of its own entries plus new ones.
    const int c = round % 12, b = (round + 5) % 12;
    trees[size_t(c)]->Clear();
    models[size_t(c)].clear();
    EXPECT_EQ(trees[size_t(c)]->Size(), 0u);
    TagIndex& bt = *trees[size_t(b)];
    const size_t es = size_t(bt.EntrySize());
    for (int i = 0; i < 3000; ++i) models[size_t(b)].insert({keyFor(b), next++});
    std::vector<char> flat;
    for (const auto& [k, r] : models[size_t(b)]) {
      flat.insert(flat.end(), k.begin(), k.end());
      flat.insert(flat.end(), reinterpret_cast<const char*>(&r), reinterpret_cast<const char*>(&r) + 4);
    }
    ASSERT_EQ(flat.size(), models[size_t(b)].size() * es);
    bt.BulkLoad(flat.data(), models[size_t(b)].size());
    for (size_t t = 0; t < trees.size(); ++t) {
      const TagIndex& ix = *trees[t];
      std::string why;
      ASSERT_TRUE(ix.SelfCheck(&why)) << "tree " << t << ": " << why;
      ASSERT_EQ(ix.Size(), models[t].size()) << "tree " << t;
      auto it = models[t].begin();
      for (TagIndex::Pos p = ix.First(); p.Valid(); ix.Next(p), ++it) {
        ASSERT_EQ(std::string(ix.KeyAt(p), size_t(ix.KeyLength())), it->first);
        ASSERT_EQ(ix.RecnoAt(p), it->second);
      }
    }
  }
  // A cleared tree holds one empty leaf again.
  TagIndex& last = *trees[0];
  const size_t empty = TagIndex(last.KeyLength(), false).MemoryBytes();
  last.Clear();
  EXPECT_EQ(last.MemoryBytes(), empty);
}

}  // namespace
}  // namespace dbase
