// The index of an open table as a whole: read from the production .MDX and checked against the
// records, rebuilt from the records when it cannot be trusted, and written back whole.
#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>

#include "dbase/FieldSpec.h"
#include "dbase/KeyMerge.h"
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

// Gets tag t ready to be written: its moved entries moved and its gathered keys in sorted runs,
// which the writing merges with its tree. A tag without runs has its pending records merged
// into its tree, as a use of its order would.
int Table::Impl::PrepareToWrite(Tag& t) {
  if (t.runs.empty()) return Merge(t);
  if (!t.movedRecs.empty())
    if (int s = MoveNoted(t); s != kOk) return s;
  SettleRuns(t);
  return kOk;
}

int Table::Impl::SortKeys() {
  int status = kOk;
  mergingAll = true;
  for (Tag& t : tags)
    if (status = PrepareToWrite(t); status != kOk) break;
  mergingAll = false;
  TrimMergeBuffers(0);
  return status;
}

namespace {

// A tag's entries in order, from its tree, its runs (in memory or in its temporary file) and
// the keys read back from the table, each source through a buffer of its own; a unique tag's
// entries without the repeats of a key (the first record of a key holds it). The merge and its
// buffers exist from the first entry asked for until Close.
class TagEntries {
 public:
  TagEntries(const Tag& t, const std::vector<char>& rest, int* status)
      : t_(t), rest_(rest), status_(status), k_(size_t(t.expr.KeyLength())), es_(k_ + 4),
        last_(k_, '\0') {}

  // The next entry (key, then record number), valid until the next call; null at the end (or
  // when a source could not be read: *status says so).
  const char* Next() {
    if (!merger_) merger_ = std::make_unique<EntryMerger>(*t_.index, Sources());
    for (const char* e; (e = merger_->Next()) != nullptr;) {
      if (t_.unique) {
        if (any_ && std::memcmp(last_.data(), e, k_) == 0) continue;
        std::memcpy(last_.data(), e, k_);
        any_ = true;
      }
      return e;
    }
    return nullptr;
  }
  void Close() { merger_.reset(); }

 private:
  std::vector<MergeSource> Sources() const {
    std::vector<MergeSource> sources;
    const size_t es = es_;
    // 1. The tree, a thousand entries at a time.
    const TagIndex* const ix = t_.index.get();
    if (ix->Size() > 0) {
      auto buf = std::make_shared<std::vector<char>>(1024 * es);
      auto pos = std::make_shared<TagIndex::Pos>(ix->First());
      const size_t k = k_;
      sources.push_back(MergeSource{nullptr, nullptr, [ix, buf, pos, es, k](const char*& at, const char*& end) {
        size_t n = 0;
        for (; n < 1024 && pos->Valid(); ++n, ix->Next(*pos)) {
          std::memcpy(buf->data() + n * es, ix->KeyAt(*pos), k);
          const uint32_t r = ix->RecnoAt(*pos);
          std::memcpy(buf->data() + n * es + k, &r, 4);
        }
        at = buf->data();
        end = at + n * es;
        return n > 0;
      }});
    }
    // 2. The runs: in memory as they are, from the file through a buffer each.
    for (const KeyRun& run : t_.runs) {
      if (run.count == 0) continue;
      if (!run.inFile) {
        sources.push_back(MergeSource{run.entries, run.entries + run.count * es, {}});
        continue;
      }
      const SpillFile* file = t_.spill.get();
      auto buf = std::make_shared<std::vector<char>>(std::max<size_t>(1, kSpillReadBytes / es) * es);
      auto left = std::make_shared<std::pair<uint64_t, uint64_t>>(run.fileOffset, run.count * es);
      int* const status = status_;
      sources.push_back(MergeSource{nullptr, nullptr, [file, buf, left, status](const char*& at, const char*& end) {
        const size_t n = size_t(std::min<uint64_t>(left->second, buf->size()));
        if (n == 0) return false;
        if (file->Read(buf->data(), n, left->first) != 0) {
          *status = kIoError;
          return false;
        }
        left->first += n;
        left->second -= n;
        at = buf->data();
        end = at + n;
        return true;
      }});
    }
    // 3. The keys of the records after the runs, read back and sorted.
    if (!rest_.empty())
      sources.push_back(MergeSource{rest_.data(), rest_.data() + rest_.size(), {}});
    return sources;
  }

  const Tag& t_;
  const std::vector<char>& rest_;
  int* const status_;
  const size_t k_, es_;
  std::unique_ptr<EntryMerger> merger_;
  std::string last_;
  bool any_ = false;
};

}  // namespace

int Table::Impl::WriteIndex() {
  // 1. Every tag ready: trees up to date, or sorted runs to merge with them.
  if (int s = SortKeys(); s != kOk) return s;
  int status = kOk;
  // 2. The keys of records appended after a tag's runs (when its gathering stopped at a gap),
  //    read back and sorted, one buffer per tag.
  const uint32_t n = dbf.RecordCount();
  std::vector<std::vector<char>> rests(tags.size());
  for (size_t i = 0; i < tags.size(); ++i) {
    Tag& t = tags[i];
    const uint32_t from = std::max(t.merged, t.gatheredTo) + 1;
    if (t.runs.empty() || from > n) continue;
    const size_t es = size_t(t.expr.KeyLength()) + 4;
    rests[i].resize(size_t(n - from + 1) * es);
    if (int s = ReadKeys(t, from, n, rests[i].data()); s != kOk) return s;
    t.index->SortEntries(rests[i].data(), n - from + 1, sortScratch);
  }
  TrimMergeBuffers(0);
  // 3. Each tag's entries go to the writer as they come from its tree, or from the merge of
  //    its tree and runs: no whole tag is built in memory for the writing. The count of a
  //    unique tag with runs is that of its distinct keys, which a merge of its sources counts
  //    first (a non-unique tag has an entry per record).
  std::vector<MdxTagSource> srcs;
  std::vector<std::unique_ptr<TagEntries>> streams;
  std::vector<TagIndex::Pos> cursors(tags.size());
  for (size_t i = 0; i < tags.size(); ++i) {
    const Tag& t = tags[i];
    MdxTagSource s;
    s.name = t.name;
    s.expression = t.expr.Text();
    s.keyLength = t.expr.KeyLength();
    s.unique = t.unique;
    s.descending = t.descending;
    const TagIndex* ix = t.index.get();
    if (t.runs.empty()) {
      s.count = ix->Size();
      cursors[i] = ix->First();
      TagIndex::Pos* cur = &cursors[i];
      s.next = [ix, cur](char* key, uint32_t& r) {
        std::memcpy(key, ix->KeyAt(*cur), size_t(ix->KeyLength()));
        r = ix->RecnoAt(*cur);
        ix->Next(*cur);
        return true;
      };
    } else {
      if (t.unique) {
        TagEntries counting(t, rests[i], &status);
        size_t count = 0;
        while (counting.Next()) ++count;
        if (status != kOk) return status;
        s.count = count;
      } else {
        s.count = ix->Size() + (n - t.merged);
      }
      streams.push_back(std::make_unique<TagEntries>(t, rests[i], &status));
      TagEntries* const stream = streams.back().get();
      const size_t k = size_t(t.expr.KeyLength()), count = s.count;
      auto given = std::make_shared<size_t>(0);
      s.next = [stream, k, count, given](char* key, uint32_t& r) {
        const char* e = stream->Next();
        if (!e) return false;
        std::memcpy(key, e, k);
        std::memcpy(&r, e + k, 4);
        if (++*given == count) stream->Close();  // its buffers go before the next tag's come
        return true;
      };
    }
    srcs.push_back(std::move(s));
  }
  if (mdxPath.empty()) mdxPath = location + MdxName();
  const int written = WriteMdx(mdxPath, stem, srcs, headerDate, indexProgress);
  return status != kOk ? status : written;
}

}  // namespace dbase
