// The index of an open table as a whole: read from the production .MDX and checked against the
// records, rebuilt from the records when it cannot be trusted, and written back whole.
#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "dbase/FieldSpec.h"
#include "dbase/MdxReader.h"
#include "dbase/MdxWriter.h"
#include "dbase/TableState.h"
#include "vb/Strings.h"

namespace dbase {

bool Table::Impl::LoadIndexFromMdx(std::string* why) {
  MdxReader reader;
  int s = reader.Open(mdxPath, why);
  if (s != kOk) return false;
  const MdxFileInfo& info = reader.Info();
  const uint32_t n = dbf.RecordCount();
  // Tag definitions first, so that a rebuild can use them even if a tree is bad.
  std::vector<Tag> defs;
  for (const MdxTagHeader& h : info.tags) {
    Tag t;
    t.name = vb::UCase(h.name);
    if (t.expr.Parse(h.expression, dbf.Fields()) != kOk) {
      *why = "tag " + h.name + ": key expression \"" + h.expression + "\" not understood";
      return false;
    }
    if (h.keyType != 'C' || t.expr.KeyLength() != h.keyLength) {
      *why = "tag " + h.name + ": key length " + std::to_string(h.keyLength) +
             " does not match \"" + h.expression + "\"";
      return false;
    }
    t.unique = h.unique || h.uniqueByte23 != 0;
    t.descending = h.descending;
    t.index = std::make_unique<TagIndex>(t.expr.KeyLength(), t.descending);
    defs.push_back(std::move(t));
  }
  tags = std::move(defs);
  for (size_t i = 0; i < tags.size(); ++i) {
    Tag& t = tags[i];
    MdxTagWalk walk;
    std::vector<std::string> defects;
    if (!reader.Walk(i, n, true, walk, defects, nullptr)) {
      *why = defects.empty() ? "tag " + t.name + " unreadable" : defects.front();
      return false;
    }
    // Stale: the tag does not cover the records (appended or removed behind its back).
    if ((!t.unique && walk.count != n) || walk.count > n) {
      *why = "tag " + t.name + " holds " + std::to_string(walk.count) + " keys for " +
             std::to_string(n) + " records";
      return false;
    }
    if (!t.unique) {
      std::vector<bool> seen(size_t(n) + 1, false);
      const size_t es = size_t(t.expr.KeyLength()) + 4;
      for (size_t e = 0; e < walk.count; ++e) {
        uint32_t r;
        std::memcpy(&r, &walk.entries[e * es + size_t(t.expr.KeyLength())], 4);
        if (seen[r]) {
          *why = "tag " + t.name + " holds record " + std::to_string(r) + " twice";
          return false;
        }
        seen[r] = true;
      }
    }
    t.index->BulkLoad(walk.entries.data(), walk.count);
    walk.entries.clear();
    walk.entries.shrink_to_fit();
    t.merged = n;
    // Read-only tables are the ones handed over by others (the product's, the previous run's):
    // every key is compared with its record. A table opened for writing gets a spread of
    // records compared, which is what it costs to open a large table quickly.
    if (!(readOnly ? FullCheck(t, why) : SpotCheck(t, why))) return false;
  }
  return true;
}

// Compares the keys of a spread of records with the tag: catches an index left behind by
// changes to the records.
bool Table::Impl::SpotCheck(const Tag& t, std::string* why) {
  const uint32_t n = dbf.RecordCount();
  if (n == 0) return true;
  std::string rec(size_t(dbf.RecordLength()), ' ');
  std::string key(size_t(t.expr.KeyLength()), ' ');
  const uint32_t samples = std::min<uint32_t>(n, 64);
  for (uint32_t i = 0; i < samples; ++i) {
    uint32_t r = samples == 1 ? n : uint32_t(1 + uint64_t(n - 1) * i / (samples - 1));
    if (dbf.Read(r, rec.data()) != kOk) {
      *why = "record " + std::to_string(r) + " unreadable";
      return false;
    }
    t.expr.Evaluate(rec.data(), key.data());
    uint32_t holder = t.index->Find(key.data());
    bool ok;
    if (t.unique) {
      ok = holder != 0 && holder <= r;
    } else {
      TagIndex::Pos p = t.index->LowerBound(key.data(), t.expr.KeyLength(), r);
      ok = p.Valid() && t.index->RecnoAt(p) == r &&
           std::memcmp(t.index->KeyAt(p), key.data(), key.size()) == 0;
    }
    if (!ok) {
      *why = "tag " + t.name + " does not match record " + std::to_string(r);
      return false;
    }
  }
  return true;
}

// Compares every entry of tag t with the key of its record; for a unique tag also that every
// distinct key is there, held by the first record that has it. (Counts and repeated records
// were checked before.)
bool Table::Impl::FullCheck(const Tag& t, std::string* why) {
  const uint32_t n = dbf.RecordCount();
  const size_t k = size_t(t.expr.KeyLength()), rl = size_t(dbf.RecordLength());
  std::vector<char> keys(size_t(n) * k);
  std::vector<char> chunk(size_t(std::min(kScanChunk, std::max(n, 1u))) * rl);
  for (uint32_t at = 1; at <= n; at += kScanChunk) {
    uint32_t cnt = std::min(kScanChunk, n - at + 1);
    if (dbf.ReadRange(at, cnt, chunk.data()) != kOk) {
      *why = "records unreadable";
      return false;
    }
    for (uint32_t i = 0; i < cnt; ++i) t.expr.Evaluate(chunk.data() + size_t(i) * rl, &keys[size_t(at - 1 + i) * k]);
  }
  const TagIndex& ix = *t.index;
  for (TagIndex::Pos p = ix.First(); p.Valid(); ix.Next(p)) {
    uint32_t r = ix.RecnoAt(p);
    if (std::memcmp(ix.KeyAt(p), &keys[size_t(r - 1) * k], k) != 0) {
      *why = "tag " + t.name + ": the entry of record " + std::to_string(r) + " is not the record's key";
      return false;
    }
  }
  if (!t.unique) return true;
  std::unordered_map<std::string_view, uint32_t> first;
  first.reserve(n);
  for (uint32_t r = 1; r <= n; ++r) first.emplace(std::string_view(&keys[size_t(r - 1) * k], k), r);
  if (first.size() != ix.Size()) {
    *why = "tag " + t.name + " holds " + std::to_string(ix.Size()) + " keys, the records have " +
           std::to_string(first.size());
    return false;
  }
  for (TagIndex::Pos p = ix.First(); p.Valid(); ix.Next(p)) {
    uint32_t h = ix.RecnoAt(p);
    uint32_t f = first[std::string_view(&keys[size_t(h - 1) * k], k)];
    if (f != h) {
      *why = "tag " + t.name + ": record " + std::to_string(h) + " holds a key that record " +
             std::to_string(f) + " has first";
      return false;
    }
  }
  return true;
}

bool Table::Impl::TagsFromSpecs(const std::vector<std::string>& specs, std::string* why) {
  std::vector<Tag> defs;
  for (const std::string& def : specs) {
    TagSpec ts;
    Tag t;
    if (ParseTagSpec(def, ts) != kOk || t.expr.Parse(ts.expression, dbf.Fields()) != kOk) {
      *why = "tag definition \"" + def + "\" does not fit the table";
      return false;
    }
    t.name = ts.name;
    t.unique = ts.unique;
    t.descending = ts.descending;
    t.index = std::make_unique<TagIndex>(t.expr.KeyLength(), t.descending);
    defs.push_back(std::move(t));
  }
  tags = std::move(defs);
  return true;
}

// Builds every tag from the records.
int Table::Impl::RebuildIndex() {
  for (Tag& t : tags) {
    t.index->Clear();
    t.merged = 0;
    ForgetMoved(t);
    if (int s = Merge(t); s != kOk) return s;
  }
  return kOk;
}


std::vector<bool> Table::Impl::FieldMdxFlags() const {
  std::vector<bool> flags(dbf.Fields().size(), false);
  for (const Tag& t : tags)
    if (t.expr.IsSingleField())
      for (size_t i = 0; i < flags.size(); ++i)
        if (dbf.Fields()[i].name == t.expr.Text()) flags[i] = true;
  return flags;
}

int Table::Impl::WriteIndex() {
  if (int s = MergeAll(); s != kOk) return s;
  std::vector<MdxTagSource> srcs;
  std::vector<TagIndex::Pos> cursors(tags.size());
  for (size_t i = 0; i < tags.size(); ++i) {
    const Tag& t = tags[i];
    MdxTagSource s;
    s.name = t.name;
    s.expression = t.expr.Text();
    s.keyLength = t.expr.KeyLength();
    s.unique = t.unique;
    s.descending = t.descending;
    s.count = t.index->Size();
    cursors[i] = t.index->First();
    const TagIndex* ix = t.index.get();
    TagIndex::Pos* cur = &cursors[i];
    s.next = [ix, cur](char* key, uint32_t& r) {
      std::memcpy(key, ix->KeyAt(*cur), size_t(ix->KeyLength()));
      r = ix->RecnoAt(*cur);
      ix->Next(*cur);
    };
    srcs.push_back(std::move(s));
  }
  if (mdxPath.empty()) mdxPath = location + MdxName();
  return WriteMdx(mdxPath, stem, srcs, headerDate, indexProgress);
}

}  // namespace dbase
