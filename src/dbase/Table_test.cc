// The table control against a model: thousands of records (trees of several levels), tag
// order, exact and near seeks, movement, replaces and field values, checked in memory, after
// a flush and after closing and reopening, with the checker run over the files written.
#include "dbase/Table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "dbase/Checker.h"
#include "dbase/MdxWriter.h"
#include "dbase/TestTables.h"
#include "vb/Dates.h"
#include "vb/Strings.h"

namespace dbase {
namespace {

std::string Pad(std::string s, size_t w) {
  s.resize(w, ' ');
  return s;
}

// Creates the table `name` with the given layout in `folder` and opens it.
void CreateAndOpen(Table& t, const std::string& folder, const std::string& name,
                   const std::vector<std::string>& fields, const std::vector<std::string>& tags) {
  t.SetLocation(folder);
  t.SetTableName(name);
  ASSERT_EQ(t.CreateTable(fields, tags), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
}

// A visit as the model keeps it, with its keys built independently of the engine.
struct Visit {
  std::string ip, site, date, no;  // date "yyyymmdd" or 8 blanks
  std::string Key0() const { return Pad(ip, 15) + Pad(site, 20) + date + no; }
  std::string Key1() const { return Pad(site, 20) + date + no; }
};

struct Entry {
  std::string key;
  long recno;
  bool operator==(const Entry&) const = default;
};

// The expected order of a tag: sorted by key (descending when asked), ties by record number,
// a unique tag keeping the first record of each key.
std::vector<Entry> Expected(std::vector<Entry> all, bool unique, bool descending) {
  std::stable_sort(all.begin(), all.end(), [&](const Entry& a, const Entry& b) {
    return descending ? a.key > b.key : a.key < b.key;
  });
  if (unique)
    all.erase(std::unique(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.key == b.key; }),
              all.end());
  return all;
}

std::vector<Entry> Walk(Table& t) {
  std::vector<Entry> out;
  for (int s = t.GoTop(); s == kOk; s = t.Skip()) out.push_back({t.CurrentKey(), t.RecNo()});
  return out;
}

std::vector<Entry> WalkBack(Table& t) {
  std::vector<Entry> out;
  for (int s = t.GoBottom(); s == kOk; s = t.Skip(-1)) out.push_back({t.CurrentKey(), t.RecNo()});
  std::reverse(out.begin(), out.end());
  return out;
}

// Checks order and seeks of the selected tag against the expected entries.
void VerifyTag(Table& t, const std::vector<Entry>& exp, size_t prefix, std::mt19937& rng,
               const std::string& when) {
  SCOPED_TRACE(when + ", tag " + t.SelectedTag());
  std::vector<Entry> got = Walk(t);
  ASSERT_EQ(got.size(), exp.size());
  for (size_t i = 0; i < exp.size(); ++i) {
    ASSERT_EQ(got[i].key, exp[i].key) << "entry " << i;
    ASSERT_EQ(got[i].recno, exp[i].recno) << "entry " << i;
  }
  std::vector<Entry> back = WalkBack(t);
  ASSERT_EQ(back.size(), exp.size());
  for (size_t i = 0; i < exp.size(); ++i) ASSERT_EQ(back[i].recno, exp[i].recno) << "backwards " << i;
  const bool desc = exp.size() > 1 && exp.front().key > exp.back().key;
  auto before = [&](const std::string& a, const std::string& b) { return desc ? a > b : a < b; };
  for (int i = 0; i < 300; ++i) {
    const Entry& e = exp[rng() % exp.size()];
    // Present key: the first entry with it.
    auto lower = [&](const std::string& k, size_t len) {
      return std::partition_point(exp.begin(), exp.end(),
                                  [&](const Entry& x) { return before(x.key.substr(0, len), k); });
    };
    auto first = lower(e.key, e.key.size());
    ASSERT_EQ(t.SeekKey(e.key), kOk);
    EXPECT_EQ(t.RecNo(), first->recno);
    // Absent key: the next entry in order, or past the end.
    std::string absent = e.key;
    absent.back() = absent.back() == '~' ? '}' : '~';
    auto next = lower(absent, absent.size());
    if (next == exp.end()) {
      EXPECT_EQ(t.SeekKey(absent), kEof);
      EXPECT_TRUE(t.Eof());
    } else if (next->key != absent) {
      EXPECT_EQ(t.SeekKey(absent), kAfter);
      EXPECT_EQ(t.RecNo(), next->recno);
    }
    // Near seek on a prefix.
    std::string pre = e.key.substr(0, prefix);
    auto nearE = lower(pre, prefix);
    ASSERT_NE(nearE, exp.end());
    EXPECT_EQ(t.SeekNear(pre), kOk);
    EXPECT_EQ(t.RecNo(), nearE->recno);
    // The entry's key comes from the index, and only while the table stands on that entry.
    EXPECT_EQ(t.EntryKey(), nearE->key);
    // A seek of the prefix, blank-padded, right after: found or not, where a search lands.
    {
      std::string padded = pre;
      padded.resize(e.key.size(), ' ');
      auto at = lower(padded, padded.size());
      const int s = t.SeekKey(pre);
      if (at == exp.end()) {
        EXPECT_EQ(s, kEof);
      } else {
        EXPECT_EQ(s, at->key == padded ? kOk : kAfter);
        EXPECT_EQ(t.RecNo(), at->recno);
      }
      t.SeekNear(pre);
    }
    t.GoTo(long(nearE->recno));
    EXPECT_EQ(t.EntryKey(), "");
    // Moving on from a seek follows the order.
    size_t at = size_t(first - exp.begin());
    t.SeekKey(e.key);
    if (at + 3 < exp.size()) {
      EXPECT_EQ(t.Skip(3), kOk);
      EXPECT_EQ(t.RecNo(), exp[at + 3].recno);
      EXPECT_EQ(t.EntryKey(), exp[at + 3].key);
    }
    if (at >= 2) {
      t.SeekKey(e.key);
      EXPECT_EQ(t.Skip(-2), kOk);
      EXPECT_EQ(t.RecNo(), exp[at - 2].recno);
    }
  }
}

class VisitsModel : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(
        CreateAndOpen(t, dir.str(), "Visits", testing::kVisitsFields, testing::kVisitsTags));
  }
  void Append(const Visit& v) {
    t.BlankRecord();
    t.SetText("IP", v.ip);
    t.SetText("Site", v.site);
    t.SetText("VisitDate", v.date);
    t.SetText("VisitNo", v.no);
    t.SetNumber("PagesSeen", double(visits.size() % 500));
    ASSERT_EQ(t.AppendRecord(), kOk);
    visits.push_back(v);
    EXPECT_EQ(t.RecNo(), long(visits.size()));
  }
  void Verify(const std::string& when) {
    std::vector<Entry> k0, k1;
    for (size_t i = 0; i < visits.size(); ++i) {
      k0.push_back({visits[i].Key0(), long(i + 1)});
      k1.push_back({visits[i].Key1(), long(i + 1)});
    }
    ASSERT_EQ(t.SelectTag("KEY0"), kOk);
    VerifyTag(t, Expected(k0, true, false), 15, rng, when);
    ASSERT_EQ(t.SelectTag("key1"), kOk);
    VerifyTag(t, Expected(k1, false, false), 20, rng, when);
  }
  tytest::TempDir dir;
  Table t;
  std::vector<Visit> visits;
  std::mt19937 rng{7};
};

TEST_F(VisitsModel, OrderAndSeeksMatchTheModelInMemoryAfterFlushAndAfterReopen) {
  const char* sites[] = {"www.tallyo-demo.net", "blog.example.org", "intranet", "b", "a.example"};
  std::vector<std::string> ips;
  for (int i = 0; i < 2500; ++i)
    ips.push_back(std::to_string(rng() % 256) + "." + std::to_string(rng() % 256) + "." +
                  std::to_string(rng() % 256) + "." + std::to_string(rng() % 256));
  auto random = [&]() {
    Visit v;
    v.ip = ips[rng() % ips.size()];
    v.site = sites[rng() % 5];
    v.date = rng() % 40 == 0 ? "        " : "200" + std::to_string(3 + rng() % 4) + "0" +
                                                std::to_string(1 + rng() % 9) + "1" + std::to_string(rng() % 10);
    char no[8];
    std::snprintf(no, sizeof no, "%05u", unsigned(rng() % 20));
    v.no = no;
    return v;
  };
  // First part: appends interleaved with seeks (each new record indexed at once).
  t.SelectTag("key0");
  for (int i = 0; i < 3000; ++i) {
    Visit v = i % 25 == 24 ? visits[rng() % visits.size()] : random();  // some repeated keys
    Append(v);
    if (i % 3 == 0) t.SeekKey(visits[rng() % visits.size()].Key0());
  }
  // Second part: a long run of appends (indexed in one batch when the order is next needed).
  for (int i = 0; i < 12000; ++i) Append(i % 25 == 24 ? visits[rng() % visits.size()] : random());
  Verify("in memory");
  EXPECT_EQ(t.FlushTable(), kOk);
  Verify("after flush");
  EXPECT_TRUE(CheckTable(dir.str() + "VISITS.DBF").Ok());
  // Appending after a flush, then a full close and reopen.
  for (int i = 0; i < 500; ++i) Append(random());
  t.CloseTable();
  EXPECT_FALSE(t.IsOpen());
  CheckReport rep = CheckTable(dir.str() + "VISITS.DBF");
  ASSERT_TRUE(rep.Ok()) << rep.defects.front();
  bool threeLevels = false;
  for (const std::string& n : rep.notes) threeLevels |= n.find("3 level(s)") != std::string::npos;
  EXPECT_TRUE(threeLevels);
  ASSERT_EQ(t.OpenTable(), kOk);
  EXPECT_EQ(t.RecordCount(), long(visits.size()));
  Verify("after reopen");
  t.CloseTable();
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  EXPECT_FALSE(t.Info().indexRebuilt);
  Verify("read-only");
}

TEST_F(VisitsModel, ReplaceMovesAKeyInEveryTag) {
  for (int i = 0; i < 50; ++i)
    Append({"10.0.0." + std::to_string(i), i % 2 ? "odd.example" : "even.example", "20040101", "00001"});
  ASSERT_EQ(t.SelectTag("key1"), kOk);
  ASSERT_EQ(t.GoTo(8), kOk);
  EXPECT_EQ(vb::Trim(t.GetText("Site")), "odd.example");
  t.SetText("Site", "aaa.example");
  t.SetDate("VisitDate", double(vb::DaysFromCivil(2005, 6, 30)));
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  visits[7].site = "aaa.example";
  visits[7].date = "20050630";
  EXPECT_EQ(t.RecNo(), 8);
  ASSERT_EQ(t.GoTop(), kOk);  // now first in Site order
  EXPECT_EQ(t.RecNo(), 8);
  Verify("after replace");
  t.CloseTable();
  EXPECT_TRUE(CheckTable(dir.str() + "VISITS.DBF").Ok());
  ASSERT_EQ(t.OpenTable(), kOk);
  Verify("after reopen");
  EXPECT_EQ(t.ReplaceRecord(), kOk);  // on the top record: no change
  t.SeekNear("~");
  EXPECT_EQ(t.ReplaceRecord(), kNoRecord);
}

TEST_F(VisitsModel, KeysChangedWhileTheirTagIsNotInUseAreInItsOrderAtItsNextUse) {
  // Visit numbers change again and again while "key0" gives the order: "key1" (not unique, not
  // in use) takes its moves when it is next used, however often a record changed meanwhile,
  // including back to where it was, with appends, a flush and a reopen in between.
  for (int i = 0; i < 300; ++i)
    Append({"10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250),
            i % 3 ? "a.example" : "b.example", "20040101", "00001"});
  auto replaceSome = [&](int times) {
    ASSERT_EQ(t.SelectTag("key0"), kOk);
    for (int i = 0; i < times; ++i) {
      const size_t r = rng() % visits.size();
      char no[8];
      std::snprintf(no, sizeof no, "%05u", unsigned(rng() % 4));
      ASSERT_EQ(t.GoTo(long(r + 1)), kOk);
      t.SetText("VisitNo", no);
      ASSERT_EQ(t.ReplaceRecord(), kOk);
      visits[r].no = no;
    }
  };
  ASSERT_NO_FATAL_FAILURE(replaceSome(2000));
  Verify("after changes");
  ASSERT_NO_FATAL_FAILURE(replaceSome(500));
  for (int i = 0; i < 100; ++i) Append({"10.2.0." + std::to_string(i), "c.example", "20040102", "00002"});
  ASSERT_NO_FATAL_FAILURE(replaceSome(500));
  EXPECT_EQ(t.FlushTable(), kOk);
  EXPECT_TRUE(CheckTable(dir.str() + "VISITS.DBF").Ok());
  ASSERT_NO_FATAL_FAILURE(replaceSome(500));
  t.CloseTable();
  const CheckReport rep = CheckTable(dir.str() + "VISITS.DBF");
  ASSERT_TRUE(rep.Ok()) << rep.defects.front();
  ASSERT_EQ(t.OpenTable(), kOk);
  EXPECT_FALSE(t.Info().indexRebuilt);
  Verify("after reopen");
}

TEST(Table, UniqueKeyPassesToTheNextRecordWhenItsHolderChanges) {
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "Visitor", testing::kVisitorFields, testing::kVisitorTags));
  auto add = [&](const char* ip) {
    t.BlankRecord();
    t.SetText("IP", ip);
    t.SetText("Site", "intranet");
    ASSERT_EQ(t.AppendRecord(), kOk);  // a repeated key is stored too
  };
  add("1.1.1.1");  // 1
  add("1.1.1.1");  // 2: same key, not indexed
  add("2.2.2.2");  // 3
  add("1.1.1.1");  // 4: same key, not indexed
  EXPECT_EQ(t.RecordCount(), 4);
  EXPECT_EQ(t.Tags()[0].entries, 2);
  const std::string k1 = Pad("1.1.1.1", 15) + Pad("intranet", 20);
  const std::string k2 = Pad("2.2.2.2", 15) + Pad("intranet", 20);
  const std::string k3 = Pad("3.3.3.3", 15) + Pad("intranet", 20);
  ASSERT_EQ(t.SeekKey(k1), kOk);
  EXPECT_EQ(t.RecNo(), 1);
  // Record 1 takes another key: record 2 becomes the holder of the old one.
  t.SetText("IP", "3.3.3.3");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  ASSERT_EQ(t.SeekKey(k1), kOk);
  EXPECT_EQ(t.RecNo(), 2);
  ASSERT_EQ(t.SeekKey(k3), kOk);
  EXPECT_EQ(t.RecNo(), 1);
  // Record 4 takes key 2.2.2.2, held by the earlier record 3: no entry for record 4.
  ASSERT_EQ(t.GoTo(4), kOk);
  t.SetText("IP", "2.2.2.2");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  ASSERT_EQ(t.SeekKey(k2), kOk);
  EXPECT_EQ(t.RecNo(), 3);
  // Record 2 takes key 2.2.2.2, held by the later record 3: record 2 comes first and takes it.
  ASSERT_EQ(t.GoTo(2), kOk);
  t.SetText("IP", "2.2.2.2");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  ASSERT_EQ(t.SeekKey(k2), kOk);
  EXPECT_EQ(t.RecNo(), 2);
  EXPECT_EQ(t.SeekKey(k1), kAfter);  // nobody holds 1.1.1.1 any more
  t.CloseTable();
  CheckReport rep = CheckTable(dir.str() + "VISITOR.DBF");
  EXPECT_TRUE(rep.Ok()) << rep.defects.front();
}

TEST(Table, SeekByTicketLandsWhereTheKeySeekLandsEvenAfterDuplicatesAndMovedKeys) {
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "Visitor", testing::kVisitorFields, testing::kVisitorTags));
  auto add = [&](const char* ip) {
    t.BlankRecord();
    t.SetText("IP", ip);
    t.SetText("Site", "intranet");
    EXPECT_EQ(t.AppendRecord(), kOk);
    return t.AppendTicket();
  };
  auto key = [](const char* ip) { return Pad(ip, 15) + Pad("intranet", 20); };
  // Both seeks from the same place must agree on status and record.
  auto agree = [&](const char* ip, uint64_t ticket, long expected) {
    SCOPED_TRACE(ip);
    // A prefetch hint of any ticket, good or not, changes nothing.
    for (uint64_t hint : {ticket, uint64_t{0}, ticket + 1000, ~uint64_t{0}}) t.PrefetchTicket(hint);
    ASSERT_EQ(t.SeekKey(key(ip)), kOk);
    EXPECT_EQ(t.RecNo(), expected);
    const int nextStatus = t.Skip();
    const long next = t.RecNo();
    t.GoTop();
    ASSERT_EQ(t.SeekKeyAt(key(ip), ticket), kOk);
    EXPECT_EQ(t.RecNo(), expected);
    EXPECT_EQ(t.CurrentKey(), key(ip));
    EXPECT_EQ(t.Skip(), nextStatus);  // moving on from there reaches the same record
    EXPECT_EQ(t.RecNo(), next);
  };
  add("1.1.1.1");                         // 1
  ASSERT_EQ(t.SeekKey(key("1.1.1.1")), kOk);  // seeks between appends: keys go in at once
  const uint64_t t2 = add("2.2.2.2");     // 2
  const uint64_t t3 = add("1.1.1.1");     // 3: a duplicate, not indexed
  const uint64_t t4 = add("4.4.4.4");     // 4
  EXPECT_NE(t2, 0u);
  EXPECT_NE(t3, 0u);
  EXPECT_NE(t4, 0u);
  agree("2.2.2.2", t2, 2);
  agree("1.1.1.1", t3, 1);  // the duplicate's ticket names the key's first record
  agree("4.4.4.4", t2, 4);  // a ticket of another record's key: the ordinary seek
  // Record 1 takes key 2.2.2.2, held by the later record 2: record 1 becomes its entry and
  // record 2, still holding that key, loses it. Its ticket must not lead there any more.
  ASSERT_EQ(t.GoTo(1), kOk);
  t.SetText("IP", "2.2.2.2");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  agree("2.2.2.2", t2, 1);
  agree("1.1.1.1", t3, 3);  // record 3 took over the old key
  agree("4.4.4.4", t4, 4);
  // A replace that leaves the key keeps tickets of later appends good.
  const uint64_t t5 = add("5.5.5.5");
  ASSERT_NE(t5, 0u);
  ASSERT_EQ(t.GoTo(4), kOk);
  t.SetText("Site", "intranet");
  ASSERT_EQ(t.ReplaceRecord(), kOk);
  agree("5.5.5.5", t5, 5);
  // After closing and reopening, old tickets are plain seeks.
  t.CloseTable();
  ASSERT_EQ(t.OpenTable(), kOk);
  agree("5.5.5.5", t5, 5);
  agree("2.2.2.2", t2, 1);
  EXPECT_EQ(t.SeekKeyAt(key("3.3.3.3"), t5), kAfter);
  t.CloseTable();
  CheckReport rep = CheckTable(dir.str() + "VISITOR.DBF");
  EXPECT_TRUE(rep.Ok()) << rep.defects.front();
}

// The scan's way with "Visits": appends whose keys the selected unique tag learns to be new from
// its key fingerprints and merges later, seeks by ticket that need no tree. A table used that
// way ("fast") runs beside one that is only ever sought by key ("plain"); both take the same
// appends (many repeated keys), replaces that move keys or not, seeks, near seeks, skips,
// flushes, reopens and changes of the selected tag, in phases that make the fast table defer
// its keys, give up deferring (the tree is wanted after every few appends) and start again.
// Every answer must be the same, and so must the files written.
TEST(Table, TicketSeeksWithDeferredKeysMatchPlainSeeksThroughEveryChange) {
  tytest::TempDir fastDir, plainDir;
  Table fast, plain;
  for (auto [t, d] : {std::pair{&fast, &fastDir}, std::pair{&plain, &plainDir}}) {
    ASSERT_NO_FATAL_FAILURE(
        CreateAndOpen(*t, d->str(), "Visits", testing::kVisitsFields, testing::kVisitsTags));
  }
  std::mt19937 rng(2024);
  std::vector<Visit> model;  // the records as they stand
  struct Ticketed {
    uint64_t ticket;
    long recno;
  };
  std::vector<Ticketed> tickets;
  std::map<std::string, int> held;  // records per key0
  auto random = [&](int ips) {
    Visit v;
    v.ip = "10.1." + std::to_string(rng() % 7) + "." + std::to_string(rng() % unsigned(ips));
    v.site = rng() % 2 ? "shop.example" : "blog.example";
    v.date = "2004010" + std::to_string(1 + rng() % 3);
    v.no = "0000" + std::to_string(rng() % 3);
    return v;
  };
  auto same = [&](int fs, int ps, const std::string& what) {
    ASSERT_EQ(fs, ps) << what;
    ASSERT_EQ(fast.RecNo(), plain.RecNo()) << what;
    ASSERT_EQ(fast.Eof(), plain.Eof()) << what;
  };
  auto both = [&](auto&& op, const std::string& what) { same(op(fast), op(plain), what); };
  auto append = [&](const Visit& v) {
    for (Table* t : {&fast, &plain}) {
      t->BlankRecord();
      t->SetText("IP", v.ip);
      t->SetText("Site", v.site);
      t->SetText("VisitDate", v.date);
      t->SetText("VisitNo", v.no);
      ASSERT_EQ(t->AppendRecord(), kOk);
    }
    model.push_back(v);
    tickets.push_back({fast.AppendTicket(), long(model.size())});
    // A ticket names a record with the new record's key: itself, or the key's holder.
    if (const uint64_t tk = tickets.back().ticket; tk != 0) {
      const uint32_t named = uint32_t(tk & 0xffffffffu);
      ASSERT_TRUE(named >= 1 && named <= model.size()) << model.size();
      ASSERT_EQ(model[named - 1].Key0(), v.Key0()) << model.size();
      if (held[v.Key0()] == 0) {
        ASSERT_EQ(named, model.size());
      }
    }
    ++held[v.Key0()];
  };
  bool skips = true;  // now and then a move in the order after the end of a visit
  size_t window = 50;  // most visits that end are among the last this many
  unsigned oldEvery = 5;  // one visit in this many that end is any earlier one
  // The end of a visit: found again by its ticket (fast) or by its key (plain), then updated.
  auto endVisit = [&](const Ticketed& tk, bool moveKey) {
    const std::string key = model[size_t(tk.recno - 1)].Key0();
    same(fast.SeekKeyAt(key, tk.ticket), plain.SeekKey(key), "seek " + key);
    if (fast.Eof()) return;
    Visit& v = model[size_t(fast.RecNo() - 1)];
    const double pages = double(rng() % 100);
    for (Table* t : {&fast, &plain}) {
      t->SetNumber("PagesSeen", pages);
      if (moveKey) t->SetText("VisitNo", "00009");
    }
    if (moveKey) {
      --held[v.Key0()];
      v.no = "00009";
      ++held[v.Key0()];
    }
    same(fast.ReplaceRecord(), plain.ReplaceRecord(), "replace");
    if (skips && rng() % 100 == 0) {
      const long n = long(rng() % 7) - 3;
      both([&](Table& t) { return t.Skip(n); }, "skip after the end of a visit");
    }
  };
  // Record r takes the IP and visit number of v, in both tables.
  auto moveKey = [&](long r, const Visit& v) {
    for (Table* t : {&fast, &plain}) {
      ASSERT_EQ(t->GoTo(r), kOk);
      t->SetText("IP", v.ip);
      t->SetText("VisitNo", v.no);
    }
    Visit& m = model[size_t(r - 1)];
    --held[m.Key0()];
    m.ip = v.ip;
    m.no = v.no;
    ++held[m.Key0()];
    same(fast.ReplaceRecord(), plain.ReplaceRecord(), "moved key");
  };
  auto moveOp = [&](int ips) {
    // A record takes another key: a new one or one that another record has (the holder
    // may be before or after it), often while a later record has its old key too. Then
    // the record that gave the new key may move on as well, and new visits come with the
    // key given up and the key taken: whoever holds each now decides about their tickets.
    const long r = long(1 + rng() % model.size());
    const bool copied = rng() % 2;
    const size_t q = rng() % model.size();
    const Visit v = copied ? model[q] : random(ips);
    const Visit old = model[size_t(r - 1)];
    if (rng() % 2) append(old);
    moveKey(r, v);
    if (copied && rng() % 2 && long(q + 1) != r) moveKey(long(q + 1), random(ips));
    append(old);
    append(v);
    endVisit(tickets[tickets.size() - 2], false);
    endVisit(tickets.back(), false);
  };
  // One step in 1,000 + extraSeeks: mostly appends (one in copyEvery with a key that another
  // record has) and ends of visits; now and then something that needs the tree (a near seek, a
  // move to the top or bottom, a key that moves, a flush, another order) and, with extraSeeks,
  // many key seeks.
  auto step = [&](int ips, unsigned extraSeeks, unsigned copyEvery) {
    const unsigned op = rng() % (1000 + extraSeeks);
    if (op < 520 || model.empty()) {
      append(rng() % copyEvery == 0 && !model.empty() ? model[rng() % model.size()] : random(ips));
    } else if (op < 980) {
      // Mostly the newest visits end, as in a scan; now and then an old ticket or none.
      const size_t n = tickets.size();
      const size_t at = rng() % oldEvery ? n - 1 - rng() % std::min<size_t>(n, window) : rng() % n;
      Ticketed tk = tickets[at];
      if (rng() % (4 * copyEvery) == 0) tk.ticket = tickets[rng() % n].ticket;  // someone else's
      endVisit(tk, rng() % 500 == 0);
    } else if (op < 986) {
      const std::string pre = random(ips).Key0().substr(0, 10 + rng() % 20);
      both([&](Table& t) { return t.SeekNear(pre); }, "near " + pre);
    } else if (op < 992) {
      const bool top = rng() % 2;
      both([&](Table& t) { return top ? t.GoTop() : t.GoBottom(); }, "top/bottom");
    } else if (op < 995) {
      moveOp(ips);
    } else if (op < 997) {
      ASSERT_EQ(fast.FlushTable(), kOk);
      ASSERT_EQ(plain.FlushTable(), kOk);
    } else if (op < 998) {
      // Another order for a while: tickets of the other tag prove nothing.
      for (Table* t : {&fast, &plain}) ASSERT_EQ(t->SelectTag("key1"), kOk);
      const std::string key = model[rng() % model.size()].Key1();
      both([&](Table& t) { return t.SeekKey(key); }, "key1 seek");
      append(random(ips));
      const Ticketed& tk = tickets[rng() % tickets.size()];
      same(fast.SeekKeyAt(key, tk.ticket), plain.SeekKey(key), "key1 seek by ticket");
      for (Table* t : {&fast, &plain}) ASSERT_EQ(t->SelectTag("key0"), kOk);
    } else {
      const std::string key = rng() % 3 ? model[rng() % model.size()].Key0() : random(ips).Key0();
      both([&](Table& t) { return t.SeekKey(key); }, "seek " + key);
    }
  };
  auto verify = [&](const std::string& when) {
    std::vector<Entry> k0;
    for (size_t i = 0; i < model.size(); ++i) k0.push_back({model[i].Key0(), long(i + 1)});
    ASSERT_EQ(fast.SelectTag("key0"), kOk);
    ASSERT_EQ(plain.SelectTag("key0"), kOk);
    VerifyTag(fast, Expected(k0, true, false), 15, rng, when);
  };
  ASSERT_EQ(fast.SelectTag("key0"), kOk);
  ASSERT_EQ(plain.SelectTag("key0"), kOk);
  // 1. A scan's pattern: key seeks are rare, the fast table defers its keys.
  for (int i = 0; i < 6000; ++i) ASSERT_NO_FATAL_FAILURE(step(250, 1, 6));
  ASSERT_NO_FATAL_FAILURE(verify("deferring"));
  // 2. Key seeks after every few appends: deferring no longer pays and stops.
  for (int i = 0; i < 3000; ++i) ASSERT_NO_FATAL_FAILURE(step(250, 400, 6));
  // 3. Tickets again, with few repeated keys and visits that end soon, so that the fast table
  //    keeps deferring while keys move; then a close and reopen in the middle.
  window = 3;
  oldEvery = 500;
  for (int i = 0; i < 6000; ++i) ASSERT_NO_FATAL_FAILURE(step(2000, 0, 60));
  // Keys that move among runs of visits that end at once: the fingerprints follow each move.
  for (int i = 0; i < 300; ++i) {
    for (int j = 0; j < 40; ++j) {
      ASSERT_NO_FATAL_FAILURE(append(random(2000)));
      ASSERT_NO_FATAL_FAILURE(endVisit(tickets.back(), false));
    }
    ASSERT_NO_FATAL_FAILURE(moveOp(2000));
  }
  fast.CloseTable();
  plain.CloseTable();
  ASSERT_EQ(fast.OpenTable(), kOk);
  ASSERT_EQ(plain.OpenTable(), kOk);
  for (int i = 0; i < 3000; ++i) ASSERT_NO_FATAL_FAILURE(step(2000, 0, 60));
  // 4. A long run of new visits that end at once: the deferred keys are merged in batches
  //    without being asked for.
  skips = false;
  for (int i = 0; i < 40000; ++i) {
    Visit v = random(250);
    v.ip = "172.16." + std::to_string(i / 250) + "." + std::to_string(i % 250);
    ASSERT_NO_FATAL_FAILURE(append(v));
    ASSERT_NE(tickets.back().ticket, 0u) << "a new key in a table used through tickets";
    ASSERT_NO_FATAL_FAILURE(endVisit(tickets.back(), false));
  }
  ASSERT_NO_FATAL_FAILURE(verify("after the long run"));
  fast.CloseTable();
  plain.CloseTable();
  for (const char* name : {"VISITS.DBF", "VISITS.MDX"})
    EXPECT_TRUE(tytest::ReadFile(fastDir.str() + name) == tytest::ReadFile(plainDir.str() + name)) << name;
  CheckReport rep = CheckTable(fastDir.str() + "VISITS.DBF");
  EXPECT_TRUE(rep.Ok()) << rep.defects.front();
}

TEST(Table, DescendingTagKeepsEqualKeysInRecordOrderAcrossReopen) {
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "Referrers", testing::kReferrersFields,
                    testing::kReferrersTags));
  std::mt19937 rng(3);
  std::vector<Entry> k1;
  for (int i = 1; i <= 4000; ++i) {
    t.BlankRecord();
    std::string site = i % 3 ? "intranet" : "blog.example.org";
    t.SetText("Name", "http://ref" + std::to_string(i % 1500) + ".example/");
    t.SetText("Site", site);
    int visits = int(rng() % 60);
    if (i % 97 != 0) t.SetNumber("Visits", visits);  // some stay blank: STR() gives 0
    ASSERT_EQ(t.AppendRecord(), kOk);
    char num[16];
    std::snprintf(num, sizeof num, "%10d", i % 97 != 0 ? visits : 0);
    k1.push_back({Pad(site, 20) + num, i});
  }
  t.CloseTable();
  ASSERT_TRUE(CheckTable(dir.str() + "REFERRERS.DBF").Ok());
  ASSERT_EQ(t.OpenTable(), kOk);
  ASSERT_EQ(t.SelectTag("KEY1"), kOk);
  VerifyTag(t, Expected(k1, false, true), 20, rng, "descending");
  // A site's referrers by visits, highest first.
  ASSERT_EQ(t.SeekNear(Pad("intranet", 20)), kOk);
  double last = 1e9;
  long lastRec = 0;
  int listed = 0;
  while (!t.Eof() && vb::Trim(t.GetText("Site")) == "intranet") {
    double v = t.GetNumber("Visits");
    EXPECT_TRUE(v < last || (v == last && t.RecNo() > lastRec));
    last = v;
    lastRec = t.RecNo();
    ++listed;
    t.Skip();
  }
  EXPECT_EQ(listed, 4000 - 4000 / 3);
}

TEST(Table, SkipRunsOffBothEndsInTagAndRecordOrder) {
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "DaySum", testing::kDaySumFields, testing::kDaySumTags));
  EXPECT_EQ(t.GoTop(), kEof);  // empty
  EXPECT_TRUE(t.Eof());
  EXPECT_EQ(t.Skip(), kEof);
  EXPECT_EQ(t.SeekNear(""), kEof);
  for (const char* s : {"c", "a", "b"}) {
    t.BlankRecord();
    t.SetText("Site", s);
    ASSERT_EQ(t.AppendRecord(), kOk);
  }
  for (const std::string order : {"KEY0", ""}) {
    SCOPED_TRACE("order " + order);
    ASSERT_EQ(t.SelectTag(order), kOk);
    const std::vector<long> seq = order.empty() ? std::vector<long>{1, 2, 3} : std::vector<long>{2, 3, 1};
    ASSERT_EQ(t.GoTop(), kOk);
    EXPECT_EQ(t.RecNo(), seq[0]);
    EXPECT_EQ(t.Skip(2), kOk);
    EXPECT_EQ(t.RecNo(), seq[2]);
    EXPECT_EQ(t.Skip(1), kEof);
    EXPECT_TRUE(t.Eof());
    EXPECT_EQ(t.RecNo(), 0);
    EXPECT_TRUE(vb::Trim(t.GetText("Site")).empty());  // nothing to stand on: a blank buffer
    EXPECT_EQ(t.Skip(-1), kOk);
    EXPECT_EQ(t.RecNo(), seq[2]);
    EXPECT_EQ(t.Skip(-5), kBof);
    EXPECT_FALSE(t.Eof());
    EXPECT_EQ(t.RecNo(), seq[0]);
    EXPECT_EQ(t.GoBottom(), kOk);
    EXPECT_EQ(t.RecNo(), seq[2]);
    EXPECT_EQ(t.Skip(0), kOk);
    EXPECT_EQ(t.RecNo(), seq[2]);
  }
  EXPECT_EQ(t.SeekKey("a"), kNoTags);  // record-number order has no keys
  EXPECT_EQ(t.GoTo(4), kEof);
  EXPECT_EQ(t.GoTo(0), kEof);
}

TEST(Table, FieldValuesAreStoredAsDbaseWritesThem) {
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "Exceptions", testing::kExceptionsFields,
                    testing::kExceptionsTags));
  const int num = t.FieldIndex("number"), site = t.FieldIndex("SITE"), date = t.FieldIndex("ExDate");
  ASSERT_GE(num, 0);
  t.BlankRecord();
  auto numText = [&](double v) {
    t.SetNumber(num, v);
    return std::string(t.GetText(num));
  };
  EXPECT_EQ(numText(42), " 42");
  EXPECT_EQ(numText(2.5), "  3");  // halves away from zero
  EXPECT_EQ(numText(-2.5), " -3");
  EXPECT_EQ(numText(1234), "999");  // too wide: the largest value that fits
  EXPECT_EQ(numText(-1234), "-99");
  EXPECT_EQ(numText(-0.4), "  0");  // no "-0"
  EXPECT_EQ(numText(998.5), "999");
  EXPECT_EQ(numText(-98.6), "-99");
  EXPECT_EQ(numText(7), "  7");
  EXPECT_EQ(numText(0), "  0");
  EXPECT_EQ(t.GetNumber(num), 0);
  t.SetText(num, "   ");
  EXPECT_EQ(t.GetNumber(num), 0);  // blank counts as 0
  // Stored texts read back as numbers: whole numbers, a sign, decimals, and what is not one.
  for (const auto& [text, value] : std::vector<std::pair<std::string, double>>{
           {" -5", -5}, {"+7 ", 7}, {"1.5", 1.5}, {"12x", 12}, {" - ", 0}, {"x1 ", 0}, {"007", 7}}) {
    t.SetText(num, text);
    EXPECT_EQ(t.GetNumber(num), value) << text;
  }

  t.SetText(site, "a-site-name-longer-than-twenty");
  EXPECT_EQ(t.GetText(site), "a-site-name-longer-t");
  t.SetText(site, "x");
  EXPECT_EQ(t.GetText(site), Pad("x", 20));

  EXPECT_TRUE(t.DateIsBlank(date));
  EXPECT_EQ(t.GetDate(date), 0);
  t.SetDate(date, double(vb::DaysFromCivil(2024, 2, 29)) + 0.75);  // the time of day is dropped
  EXPECT_EQ(t.GetText(date), "20240229");
  EXPECT_EQ(t.GetDate(date), double(vb::DaysFromCivil(2024, 2, 29)));
  EXPECT_FALSE(t.DateIsBlank(date));
  t.SetDate(date, 0);  // the empty date
  EXPECT_EQ(t.GetText(date), "        ");
  t.SetDate(date, double(vb::DaysFromCivil(1899, 12, 29)));
  EXPECT_EQ(t.GetText(date), "18991229");

  EXPECT_EQ(t.SetText("NoSuchField", "x"), kNoSuchField);
  EXPECT_EQ(t.SetNumber("NoSuchField", 1), kNoSuchField);
  EXPECT_EQ(t.GetText("NoSuchField"), "");
  EXPECT_EQ(t.GetText(99), "");
  t.SetText(-1, "x");  // ignored
  EXPECT_EQ(t.FieldIndex("nosuch"), -1);
  EXPECT_EQ(t.FieldCount(), 8);

  t.SetText(site, "kept");
  t.SetNumber(num, 117);
  t.SetDate(date, double(vb::DaysFromCivil(2003, 11, 16)));
  t.SetDeleted(true);
  ASSERT_EQ(t.AppendRecord(), kOk);
  t.CloseTable();
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  ASSERT_EQ(t.GoTo(1), kOk);
  EXPECT_EQ(vb::Trim(t.GetText("Site")), "kept");
  EXPECT_EQ(t.GetNumber("Number"), 117);
  EXPECT_EQ(t.GetDate("ExDate"), double(vb::DaysFromCivil(2003, 11, 16)));
  EXPECT_TRUE(t.Deleted());
  // The files: upper-case names, header flags and the end-of-file mark.
  std::string dbf = tytest::ReadFile(dir.path() / "EXCEPTIONS.DBF");
  ASSERT_EQ(dbf.size(), 289u + 89u + 1u);
  EXPECT_EQ(dbf[0], 0x03);
  EXPECT_EQ(dbf[28], 1);
  EXPECT_EQ(dbf[29], 0x03);
  EXPECT_EQ(dbf.back(), 0x1A);
  EXPECT_EQ(dbf.substr(32, 9), std::string("RECORDNO\0", 9));
  EXPECT_TRUE(std::filesystem::exists(dir.path() / "EXCEPTIONS.MDX"));
}

// Wide records fill the write buffer many times over: the older half of it goes to the file while
// the newer half stays in memory. Records on both sides of that line are read back and replaced,
// and every record must read back as last written, before and after reopening.
TEST(Table, StoredDatesReadBackOnlyWhenTheyAreDaysOfTheCalendar) {
  // Month ends, leap years by all three rules, and texts that are no day, read in an order that
  // makes the remembered last dates both help and be replaced.
  tytest::TempDir dir;
  Table t;
  ASSERT_NO_FATAL_FAILURE(
      CreateAndOpen(t, dir.str(), "Exceptions", testing::kExceptionsFields,
                    testing::kExceptionsTags));
  const int date = t.FieldIndex("ExDate");
  t.BlankRecord();
  for (const int year : {0, 1, 4, 100, 400, 1600, 1899, 1900, 2000, 2023, 2024, 9999}) {
    for (int month = 0; month <= 13; ++month) {
      for (int day = 0; day <= 32; ++day) {
        char text[16];
        std::snprintf(text, sizeof text, "%04d%02d%02d", year, month, day);
        int y = -1, m = -1, d = -1;
        if (month >= 1 && month <= 12 && day >= 1) vb::CivilFromDays(vb::DaysFromCivil(year, month, day), y, m, d);
        const bool real = y == year && m == month && d == day;
        const double expected = real ? double(vb::DaysFromCivil(year, month, day)) : 0;
        for (int again = 0; again < 2; ++again) {
          t.SetText(date, text);
          ASSERT_EQ(t.GetDate(date), expected) << text;
          ASSERT_EQ(t.DateIsBlank(date), !real) << text;
          t.SetText(date, "20240229");
          ASSERT_EQ(t.GetDate(date), double(vb::DaysFromCivil(2024, 2, 29)));
        }
      }
    }
  }
  t.SetText(date, "2024-2-1");
  EXPECT_EQ(t.GetDate(date), 0);
}

TEST(Table, RecordsReadAndReplacedAcrossTheWriteBufferEdge) {
  tytest::TempDir dir;
  Table t;
  t.SetLocation(dir.str());
  t.SetTableName("Wide");
  const std::vector<std::string> fields = {"A|C|254", "B|C|254", "C|C|254", "D|C|254", "K|C|8"};
  ASSERT_EQ(t.CreateTable(fields, {"key0|K||U|"}), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  const int a = t.FieldIndex("A"), d = t.FieldIndex("D"), k = t.FieldIndex("K");
  auto keyOf = [](long r) {
    std::string s = std::to_string(r);
    return std::string(8 - s.size(), '0') + s;
  };
  constexpr long kRecords = 60000;  // about 61 MB of records
  std::vector<std::string> expectD(kRecords + 1);
  for (long r = 1; r <= kRecords; ++r) {
    t.BlankRecord();
    t.SetText(a, "rec" + std::to_string(r));
    t.SetText(k, keyOf(r));
    expectD[size_t(r)] = "first" + std::to_string(r);
    t.SetText(d, expectD[size_t(r)]);
    ASSERT_EQ(t.AppendRecord(), kOk);
    // Now and then a record far back (on disk) and one just behind (still buffered) change.
    if (r % 997 == 0) {
      for (long back : {r - 1, r / 2}) {
        ASSERT_EQ(t.GoTo(back), kOk);
        ASSERT_EQ(vb::Trim(t.GetText(a)), "rec" + std::to_string(back));
        expectD[size_t(back)] = "changed" + std::to_string(r);
        t.SetText(d, expectD[size_t(back)]);
        ASSERT_EQ(t.ReplaceRecord(), kOk);
      }
    }
  }
  auto checkAll = [&](const char* when) {
    for (long r = 1; r <= kRecords; ++r) {
      ASSERT_EQ(t.GoTo(r), kOk) << when;
      ASSERT_EQ(vb::Trim(t.GetText(a)), "rec" + std::to_string(r)) << when;
      ASSERT_EQ(vb::Trim(t.GetText(d)), expectD[size_t(r)]) << when << " record " << r;
    }
  };
  checkAll("open");
  t.CloseTable();
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  EXPECT_EQ(t.RecordCount(), kRecords);
  checkAll("reopened");
  ASSERT_EQ(t.SeekKey(keyOf(kRecords / 3)), kOk);
  EXPECT_EQ(t.RecNo(), kRecords / 3);
  t.CloseTable();
  EXPECT_TRUE(CheckTable(dir.str() + "WIDE.DBF").Ok());
}

// Keys of a tag not in use are gathered at their appends and sorted on a helper thread in runs;
// the tag must come out exactly as if every key had been read back and sorted at once: ties in
// record order, a unique tag keeping the first record of a key, a descending tag reversed. A
// replace in the middle moves keys (the runs so far are merged then) and gathering starts again.
TEST(Table, KeysSortedAsideInRunsGiveTheSameOrder) {
  tytest::TempDir dir;
  Table t;
  t.SetLocation(dir.str());
  t.SetTableName("Runs");
  ASSERT_EQ(t.CreateTable({"NO|C|6", "K|C|5"}, {"key0|NO||U|", "keyu|K||U|", "keyd|K||N|D"}), kOk);
  ASSERT_EQ(t.OpenTable(), kOk);
  const int no = t.FieldIndex("NO"), kf = t.FieldIndex("K");
  std::mt19937 rng(7);
  std::vector<Entry> model;  // record r's key K at model[r - 1]
  constexpr long kRecords = 150000;  // after the first merge, more than two runs' worth
  auto number = [](long r) {
    std::string s = std::to_string(r);
    return std::string(6 - s.size(), '0') + s;
  };
  auto check = [&](const char* when) {
    SCOPED_TRACE(when);
    ASSERT_EQ(t.SelectTag("keyu"), kOk);
    EXPECT_TRUE(Walk(t) == Expected(model, true, false));
    ASSERT_EQ(t.SelectTag("keyd"), kOk);
    EXPECT_TRUE(Walk(t) == Expected(model, false, true));
  };
  for (long r = 1; r <= kRecords; ++r) {
    std::string k = std::to_string(rng() % 6000);
    k.resize(5, ' ');
    t.BlankRecord();
    t.SetText(no, number(r));
    t.SetText(kf, k);
    ASSERT_EQ(t.AppendRecord(), kOk);
    model.push_back({k, r});
    if (r == 15000 || r == 15001) {
      // Another record's K moves: the tags that hold K take everything up to here first.
      ASSERT_EQ(t.GoTo(r / 3), kOk);
      t.SetText(kf, "moved");
      ASSERT_EQ(t.ReplaceRecord(), kOk);
      model[size_t(r / 3 - 1)].key = "moved";
      // The first merge built each tree from the runs alone.
      if (r == 15000) check("after the first merge");
      ASSERT_EQ(t.SelectTag("key0"), kOk);
      ASSERT_EQ(t.GoTo(r), kOk);
    }
  }
  check("open");
  t.CloseTable();
  EXPECT_TRUE(CheckTable(dir.str() + "RUNS.DBF").Ok());
  ASSERT_EQ(t.OpenTableReadOnly(), kOk);
  check("reopened");
}

// Writing the index tells how many entries went into the .MDX, in steps of at least 65,536
// entries but for each tag's last step, adding up to every entry of every tag; a table
// written while it is told has the same bytes as one written without.
TEST(Table, IndexWritingTellsItsEntriesInModestStepsAndWritesTheSameBytes) {
  tytest::TempDir told, untold;
  constexpr long kRecords = 150000;
  std::vector<uint64_t> steps;  // entries told at each step
  std::set<std::string> distinct;
  for (const tytest::TempDir* dir : {&told, &untold}) {
    Table t;
    t.SetHeaderDate(HeaderDate{2026, 11, 16});
    CreateAndOpen(t, dir->str(), "Told", {"NO|C|6", "K|C|5"},
                  {"key0|NO||U|", "keyu|K||U|", "keyn|K||N|"});
    EXPECT_EQ(t.TagCount(), 3);
    const int no = t.FieldIndex("NO"), kf = t.FieldIndex("K");
    for (long r = 1; r <= kRecords; ++r) {
      std::string k = std::to_string((r * 7919) % 40000);
      k.resize(5, ' ');
      distinct.insert(k);
      t.BlankRecord();
      t.SetText(no, std::to_string(r));
      t.SetText(kf, k);
      ASSERT_EQ(t.AppendRecord(), kOk);
    }
    if (dir == &told)
      t.SetIndexProgress([&](uint64_t entries) { steps.push_back(entries); });
    t.CloseTable();
    EXPECT_EQ(t.TagCount(), 0);
  }
  uint64_t sum = 0;
  for (const uint64_t step : steps) sum += step;
  EXPECT_EQ(sum, uint64_t(kRecords) + distinct.size() + uint64_t(kRecords));
  // Each tag's entries come in full steps and one last, smaller one at most.
  size_t small = 0;
  for (const uint64_t step : steps)
    if (step < kMdxProgressEntries) ++small;
  EXPECT_LE(small, 3u);
  EXPECT_LE(steps.size(), size_t(sum / kMdxProgressEntries + 3));
  EXPECT_GE(steps.size(), size_t(sum / (2 * kMdxProgressEntries)));
  EXPECT_EQ(tytest::ReadFile(told.path() / "TOLD.MDX"), tytest::ReadFile(untold.path() / "TOLD.MDX"));
  EXPECT_EQ(tytest::ReadFile(told.path() / "TOLD.DBF"), tytest::ReadFile(untold.path() / "TOLD.DBF"));
  EXPECT_TRUE(CheckTable(told.str() + "TOLD.DBF").Ok());
}

}  // namespace
}  // namespace dbase
