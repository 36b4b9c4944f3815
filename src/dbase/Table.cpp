// The table control: a .DBF with its production .MDX, its record buffer and its tag order.
#include "dbase/Table.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <unordered_map>
#include <utility>

#include "dbase/DbfFile.h"
#include "dbase/FieldSpec.h"
#include "dbase/KeyExpression.h"
#include "dbase/KeyFingerprints.h"
#include "dbase/MdxFormat.h"
#include "dbase/MdxReader.h"
#include "dbase/MdxWriter.h"
#include "dbase/PageMemory.h"
#include "dbase/TagIndex.h"
#include "dbase/Util.h"
#include "vb/ShortCopy.h"

namespace dbase {

namespace {

// Keys of a tag's pending records, gathered at their appends: up to kRunRecords entries (key,
// then record number), in record order until handed to a helper thread that sorts them while
// the scan goes on. A large merge (the close, above all) then merges sorted runs instead of
// reading every pending record back and sorting all their keys at once.
// Its room for a whole run is reserved at once and mapped on its own, outside the heap: pages
// become memory only as keys are written into them (a small table's tag uses one), and a run
// given back at its merge leaves the process at once, so the tree built next can use that
// memory. (From the heap, freed runs would stay with the process as free heap space the index's
// node chunks do not take.)
struct KeyRun {
  KeyRun() = default;
  KeyRun(KeyRun&& o) noexcept
      : entries(std::exchange(o.entries, nullptr)), bytes(std::exchange(o.bytes, 0)),
        count(o.count), sorted(std::move(o.sorted)) {}
  KeyRun& operator=(KeyRun&&) = delete;
  KeyRun(const KeyRun&) = delete;
  ~KeyRun() {
    if (sorted.valid()) sorted.wait();  // the helper thread is done with the entries
    FreeMapped(entries, bytes);
  }
  // Room for `n` bytes; false when there is no memory.
  bool Reserve(size_t n) {
    entries = AllocateMapped(n);
    bytes = entries ? n : 0;
    return entries != nullptr;
  }

  char* entries = nullptr;
  size_t bytes = 0;
  size_t count = 0;
  std::future<void> sorted;  // valid once handed over; the entries are sorted when it is ready
};

// One index tag of an open table.
struct Tag {
  std::string name;
  KeyExpression expr;
  bool unique = false;
  bool descending = false;
  std::unique_ptr<TagIndex> index;
  uint32_t merged = 0;  // records 1..merged are in the index; later ones are still to add
  // Appends and uses of this tag's order alternate: each new record's key goes in at once
  // instead of being read back later. Dropped after a long run of appends without a use.
  bool eager = false;
  uint32_t appendsSinceUse = 0;
  // Fingerprints of this unique tag's keys while its appends are deferred: a new record's key
  // is found new or repeated here, without the tree, and waits for the next merge with the
  // other pending records. Present only on the selected unique tag, and only while its order
  // is mostly used through tickets (SeekKeyAt), which need no tree. Holds every entry of the
  // tree and, for each pending record whose key no earlier record has, that record.
  std::unique_ptr<KeyFingerprints> fingerprints;
  uint32_t ticketHits = 0;   // seeks proved by a ticket since the fingerprints were last dropped
  uint32_t shortMerges = 0;  // merges in a row that found only a few deferred records
  // Runs of gathered keys (declared after the index: a run still being sorted is waited for
  // before the index it sorts for goes away). They hold the keys of records merged+1..gatheredTo;
  // any later pending record is read back at the merge.
  std::vector<KeyRun> runs;
  uint32_t gatheredTo = 0;
  // Records whose key in this (non-unique, unselected) tag changed since its last use: the tree
  // still holds each one's entry under its key at the first change (k bytes each in movedKeys,
  // in the order of movedRecs), and the next merge moves it to the record's key then. A counter
  // that a scan raises again and again ("Referrers" by visits) thus moves once per use of the
  // order instead of at every change.
  std::vector<uint32_t> movedRecs;
  std::string movedKeys;
  std::vector<bool> isMoved;  // by record number
};

// Record numbers are read in chunks of this many records when all of them are needed.
constexpr uint32_t kScanChunk = 4096;
// Up to this many new records are added to a tag one by one; more are sorted first.
constexpr uint32_t kSmallBatch = 64;
// Appends without a use of the order after which an eager tag goes back to batches.
constexpr uint32_t kEagerRun = 4096;
// A merge of fewer deferred records than this is short: the tree was needed soon after.
constexpr uint32_t kShortMerge = 16;
// Merge buffers up to this size are kept from one merge to the next.
constexpr size_t kKeptMergeBytes = 4 << 20;
// Deferred keys waiting for the tree after which they are merged without being asked for.
constexpr uint32_t kDeferredBatch = 32768;
// Short merges in a row after which deferring gives way to adding each key at once.
constexpr uint32_t kShortMergesToStop = 8;
// Gathered keys per run sorted on a helper thread.
constexpr size_t kRunRecords = 65536;

}  // namespace

struct Table::Impl {
  std::string location, stem;
  int shareMode = 0;
  bool rebuild = false;
  std::function<void(const std::string&)> sink;
  std::vector<std::string> indexSpecs;
  HeaderDate headerDate;  // the date of the files' headers (default: today)

  bool open = false;
  bool readOnly = false;
  DbfFile dbf;
  std::string mdxPath;
  std::vector<Tag> tags;
  int selected = -1;         // tag giving the order; -1 = record-number order
  bool indexDirty = false;   // the .MDX must be written
  bool indexRebuilt = false;
  int flushStatus = kOk;
  // A write to the table's files failed since it was opened: reported once (see WriteFailed).
  bool writeFailureReported = false;

  // Position. recno 0 = none (past the end).
  uint32_t recno = 0;
  bool eof = true;
  std::string curKey;         // key of the current record in the selected tag
  bool curKeyValid = false;
  TagIndex::Pos pos;          // the current record's place, if posVersion is the index's
  uint64_t posVersion = ~uint64_t(0);

  // Record buffer; filled from the file on first use after a positioning.
  mutable std::string buf;
  mutable bool loaded = true;
  mutable int loadStatus = kOk;
  std::string scratch, scratch2, oldRec;
  std::string mergeRec, mergeKey;  // a small merge's record and key, reused
  // A large merge's entries, records read, and sort space (also the tree's old entries when
  // they are merged with a sorted batch). Kept from one merge to the next (merges of a busy
  // table come batch after batch), so their pages are faulted in once. Sort space larger than
  // kKeptMergeBytes is given back before the tree is built from the entries, and entries larger
  // than that after it, as they would be without reuse: peak memory stays where it was. Within
  // MergeAll the entries' buffer serves every tag in turn (it is in use while each tree is
  // built anyway) and is given back at its end, with all the others.
  PageBuffer mergeFlat, mergeChunk, sortScratch;
  bool mergingAll = false;
  void TrimMergeBuffers(size_t largest);
  std::string deferKey;            // the key of an append to the tag that defers its keys
  // The last day written by SetDate and its text, and the last two date texts read by GetDate
  // and their days (a record's first and last date are often read in turn): dates repeat from
  // record to record. getNext is the slot the next new text takes.
  int64_t setDay = INT64_MIN;
  char setText[8] = {};
  mutable char getText[2][8] = {};
  mutable bool getKnown[2] = {};
  mutable vb::Date getDate[2] = {};
  mutable int getNext = 0;
  // Tickets for finding an appended record again (AppendTicket, SeekKeyAt). The epoch grows
  // whenever an entry of a unique tag may have passed from one record to another, or the
  // selected tag changed; a ticket is the epoch at its append and stays good while it is
  // unchanged. A ticket is the epoch times 2^32 plus its record number; appendTicket is the
  // last append's ticket, 0 when it has none.
  uint64_t uniqueEpoch = 1;
  uint64_t appendTicket = 0;

  void Notice(const std::string& m) const {
    if (sink) sink(m);
  }
  // Tells the notice sink, once per open, that a write to `file` failed (status kIoError, with
  // the system's reason in `error`, the errno of the failed call): the records written since
  // are not all on disk, and nothing else would say so, as the record operations' callers do
  // not examine statuses. A full disk is the usual cause.
  void WriteFailed(int status, int error, const std::string& file) {
    if (status != kIoError || writeFailureReported) return;
    writeFailureReported = true;
    const std::string reason = error != 0 ? std::strerror(error) : "nothing written";
    Notice(file + " could not be written (" + reason +
           "): the table on disk is incomplete. Make room on the disk and run the scan again.");
  }
  std::string DbfName() const { return UpperAscii(stem) + ".DBF"; }
  std::string MdxName() const { return UpperAscii(stem) + ".MDX"; }

  // The field calls test only `loaded` in line; the read itself is out of line.
  void EnsureLoaded() const {
    if (!loaded) Load();
  }
  void Load() const;

  // The open file's fields, kept at hand for the field calls (a writer sets millions of fields
  // in a scan): none while the table is closed. Set by TakeFields at every open and close.
  const FieldInfo* fieldArr = nullptr;
  uint32_t fieldCount = 0;
  void TakeFields() {
    fieldArr = open ? dbf.Fields().data() : nullptr;
    fieldCount = open ? uint32_t(dbf.Fields().size()) : 0;
  }
  const FieldInfo* Field(int i) const {
    return uint32_t(i) < fieldCount ? fieldArr + i : nullptr;
  }
  int IndexOf(std::string_view name) const {
    const auto& f = dbf.Fields();
    for (size_t i = 0; i < f.size(); ++i)
      if (EqualsNoCase(f[i].name, name)) return int(i);
    return -1;
  }

  void SetPastEnd() {
    recno = 0;
    eof = true;
    curKeyValid = false;
    posVersion = ~uint64_t(0);
    loaded = false;
  }
  // Stands on the tag entry at p of the selected tag.
  void SetAt(TagIndex::Pos p) {
    const TagIndex& ix = *tags[size_t(selected)].index;
    recno = ix.RecnoAt(p);
    eof = false;
    curKey.assign(ix.KeyAt(p), size_t(ix.KeyLength()));
    curKeyValid = true;
    pos = p;
    posVersion = ix.Version();
    loaded = false;
  }
  void SetRecno(uint32_t r) {
    recno = r;
    eof = r == 0;
    curKeyValid = false;
    posVersion = ~uint64_t(0);
    loaded = false;
  }
  // The current record's key in the selected tag, computed from the record when not known.
  void EnsureCurKey() {
    if (curKeyValid || selected < 0 || recno == 0) return;
    EnsureLoaded();
    const Tag& t = tags[size_t(selected)];
    curKey.resize(size_t(t.expr.KeyLength()));
    t.expr.Evaluate(buf.data(), curKey.data());
    curKeyValid = true;
  }
  // The first entry at or after the current record's place; *present tells whether it is the
  // current record's own entry (a record left out of a unique tag has none).
  TagIndex::Pos Place(bool* present) {
    EnsureCurKey();
    const TagIndex& ix = *tags[size_t(selected)].index;
    if (posVersion == ix.Version() && pos.Valid()) {
      *present = true;
      return pos;
    }
    TagIndex::Pos p = ix.LowerBound(curKey.data(), ix.KeyLength(), recno);
    *present = p.Valid() && ix.RecnoAt(p) == recno &&
               std::memcmp(ix.KeyAt(p), curKey.data(), curKey.size()) == 0;
    return p;
  }

  int CheckWritable() const {
    if (!open) return kNotOpen;
    if (readOnly) return kReadOnly;
    return kOk;
  }

  // ---- index loading and rebuilding ------------------------------------------------------
  int Open(bool ro);
  bool LoadIndexFromMdx(std::string* why);
  bool TagsFromSpecs(const std::vector<std::string>& specs, std::string* why);
  int RebuildIndex();
  int Merge(Tag& t);
  int MergeAppended(Tag& t);
  void NoteMoved(Tag& t, uint32_t r, const char* key);
  int MoveNoted(Tag& t);
  void ForgetMoved(Tag& t, size_t count = SIZE_MAX);
  void GatherKey(Tag& t, uint32_t r);
  int MergeAll();
  int MergeSelected() { return selected >= 0 ? Merge(tags[size_t(selected)]) : int(kOk); }
  void StartFingerprints(Tag& t);
  void DropFingerprints(Tag& t);
  int SameKeyAs(const Tag& t, uint32_t holder, const char* key);
  bool DeferKey(Tag& t, uint32_t r, uint64_t h);
  bool SpotCheck(const Tag& t, std::string* why);
  bool FullCheck(const Tag& t, std::string* why);
  uint32_t FirstOtherHolder(const Tag& t, const char* key, uint32_t except);
  int WriteIndex();
  std::vector<bool> FieldMdxFlags() const;
};

// ---- properties ----------------------------------------------------------------------------

Table::Table() : impl_(std::make_unique<Impl>()) {}
Table::~Table() { CloseTable(); }

void Table::SetHeaderDate(const HeaderDate& date) {
  impl_->headerDate = date;
  impl_->dbf.SetHeaderDate(date);
}

void Table::SetLocation(std::string folder) {
  if (!folder.empty() && folder.back() != '/') folder += '/';
  impl_->location = std::move(folder);
}
void Table::SetTableName(std::string stem) { impl_->stem = std::move(stem); }
const std::string& Table::Location() const { return impl_->location; }
const std::string& Table::TableName() const { return impl_->stem; }
void Table::SetShareMode(int mode) { impl_->shareMode = mode; }
int Table::ShareMode() const { return impl_->shareMode; }
void Table::SetRebuild(bool rebuild) { impl_->rebuild = rebuild; }
bool Table::Rebuild() const { return impl_->rebuild; }
void Table::SetNoticeSink(std::function<void(const std::string&)> sink) { impl_->sink = std::move(sink); }
void Table::SetIndexSpecs(std::vector<std::string> tagSpecs) { impl_->indexSpecs = std::move(tagSpecs); }

static bool ValidStem(std::string_view stem) {
  if (stem.empty() || stem.size() > 64) return false;
  for (char c : stem)
    if (c == '/' || c == '\\' || c == '\0') return false;
  return stem != "." && stem != "..";
}

// ---- files ---------------------------------------------------------------------------------

int Table::DropTable(std::string_view stem) {
  Impl& m = *impl_;
  if (m.location.empty() || !ValidStem(stem)) return kBadName;
  if (m.open && EqualsNoCase(stem, m.stem)) CloseTable();
  int status = kOk;
  for (const char* ext : {".DBF", ".MDX"}) {
    std::string path = FindFileNoCase(m.location, UpperAscii(stem) + ext);
    if (!path.empty() && ::unlink(path.c_str()) != 0) status = kIoError;
  }
  return status;
}

int Table::CreateTable(const std::vector<std::string>& fieldSpecs,
                       const std::vector<std::string>& tagSpecs) {
  Impl& m = *impl_;
  if (m.open) return kAlreadyOpen;
  if (m.location.empty() || !ValidStem(m.stem)) return kBadName;
  // 1. Fields.
  std::vector<FieldInfo> fields;
  int offset = 1;
  for (const std::string& def : fieldSpecs) {
    FieldInfo f;
    if (ParseFieldSpec(def, f) != kOk) return kBadFieldSpec;
    for (const FieldInfo& g : fields)
      if (g.name == f.name) return kBadFieldSpec;
    f.offset = offset;
    offset += f.width;
    fields.push_back(f);
  }
  // dBASE IV's own limits: 255 fields, 4,000 bytes per record.
  if (fields.empty() || fields.size() > size_t(dbf::kMaxFields) || offset > 4000)
    return kBadFieldSpec;
  // 2. Tags, each expression checked against the fields.
  std::vector<MdxTagSource> tags;
  std::vector<bool> fieldFlags(fields.size(), false);
  for (const std::string& def : tagSpecs) {
    TagSpec ts;
    if (ParseTagSpec(def, ts) != kOk) return kBadTagSpec;
    for (const MdxTagSource& t : tags)
      if (t.name == ts.name) return kBadTagSpec;
    KeyExpression expr;
    if (expr.Parse(ts.expression, fields) != kOk) return kBadExpression;
    if (expr.IsSingleField())
      for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i].name == expr.Text()) fieldFlags[i] = true;
    MdxTagSource src;
    src.name = ts.name;
    src.expression = expr.Text();
    src.keyLength = expr.KeyLength();
    src.unique = ts.unique;
    src.descending = ts.descending;
    src.count = 0;
    tags.push_back(std::move(src));
  }
  if (tags.size() > size_t(mdx::kMaxTags)) return kBadTagSpec;
  if (::access(m.location.c_str(), W_OK) != 0) return kCannotCreate;
  // 3. Files: any old ones (in whatever case) go, then the new .DBF and .MDX.
  for (const char* ext : {".DBF", ".MDX"}) {
    std::string old = FindFileNoCase(m.location, UpperAscii(m.stem) + ext);
    if (!old.empty() && ::unlink(old.c_str()) != 0) return kCannotCreate;
  }
  std::string dbfPath = m.location + m.DbfName();
  std::string bytes = BuildDbfHeader(m.headerDate, fields, 0, !tags.empty(), fieldFlags);
  bytes.push_back(char(dbf::kEofMark));
  if (!WriteFileAtomic(dbfPath, bytes)) return kCannotCreate;
  if (!tags.empty()) {
    int s = WriteMdx(m.location + m.MdxName(), m.stem, tags, m.headerDate);
    if (s != kOk) {
      ::unlink(dbfPath.c_str());
      return kCannotCreate;
    }
  }
  return kOk;
}

void Table::Impl::Load() const {
  loaded = true;
  if (recno == 0) {
    std::fill(buf.begin(), buf.end(), ' ');
    return;
  }
  loadStatus = dbf.Read(recno, buf.data());
  if (loadStatus != kOk) std::fill(buf.begin(), buf.end(), ' ');
}

int Table::OpenTable() { return impl_->Open(false); }
int Table::OpenTableReadOnly() { return impl_->Open(true); }

int Table::Impl::Open(bool ro) {
  if (open) return kAlreadyOpen;
  if (location.empty() || !ValidStem(stem)) return kBadName;
  std::string path = FindFileNoCase(location, DbfName());
  if (path.empty()) return kFileMissing;
  std::string why, notice;
  // A fresh index: no ticket of an earlier open may match it.
  ++uniqueEpoch;
  appendTicket = 0;
  int s = dbf.Open(path, ro, &why, &notice);
  if (s != kOk) return s;
  dbf.SetHeaderDate(headerDate);
  if (!notice.empty()) Notice(dbf.Path() + ": " + notice);
  open = true;
  TakeFields();
  writeFailureReported = false;
  readOnly = ro;
  indexDirty = false;
  indexRebuilt = false;
  flushStatus = kOk;
  buf.assign(size_t(dbf.RecordLength()), ' ');
  loaded = true;
  tags.clear();

  // The index: read from the .MDX; rebuilt from the records when it is missing, damaged or
  // does not match the records.
  mdxPath = FindFileNoCase(location, MdxName());
  std::string problem;
  bool good = false;
  if (!mdxPath.empty()) {
    good = LoadIndexFromMdx(&problem);
  } else if (dbf.Header().productionMdx || !indexSpecs.empty()) {
    problem = "index file " + MdxName() + " is missing";
  }
  if (!good && !problem.empty()) {
    std::string tagWhy;
    // Keep the tag definitions the damaged file still shows; else use the ones supplied.
    if (tags.empty() && !indexSpecs.empty() && !TagsFromSpecs(indexSpecs, &tagWhy))
      problem += "; " + tagWhy;
    s = RebuildIndex();
    if (s != kOk) {
      dbf.Close();
      tags.clear();
      open = false;
      TakeFields();
      return s;
    }
    indexRebuilt = !tags.empty();
    indexDirty = !ro && !tags.empty();
    if (mdxPath.empty()) mdxPath = location + MdxName();
    if (tags.empty())
      Notice("index of " + DbfName() + " could not be rebuilt (no tag definitions): " + problem);
    else
      Notice("index of " + DbfName() + " rebuilt: " + problem);
  }
  if (tags.empty() && mdxPath.empty()) mdxPath.clear();
  selected = tags.empty() ? -1 : 0;
  recno = 0;
  eof = true;
  if (selected >= 0) {
    TagIndex::Pos p = tags[0].index->First();
    if (p.Valid()) SetAt(p);
    else SetPastEnd();
  } else {
    SetRecno(dbf.RecordCount() > 0 ? 1 : 0);
  }
  return kOk;
}

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
    t.name = UpperAscii(h.name);
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

// Adds the records appended since the last merge to tag t. The appends themselves only store
// the records: the keys are computed, sorted and added here, when the tag's order is first
// needed (a seek, a move, a replace, a flush). A few records go in one by one; a large batch
// is sorted in one go and, when the tag holds fewer entries than the batch, merged with them
// and built bottom up. Ties are ordered by record number, and a unique tag keeps only the
// first record of a key.
// The key of record r (just appended, still in the buffer) joins the tag's gathered keys when
// it follows on from them; a full run goes to a helper thread to be sorted. A gap (keys that
// went another way since the last merge) ends the gathering until the next merge: the records
// after it are read back then, as without runs.
void Table::Impl::GatherKey(Tag& t, uint32_t r) {
  if (std::max(t.merged, t.gatheredTo) != r - 1) return;
  const size_t k = size_t(t.expr.KeyLength()), es = k + 4;
  // A run that is full (handed over, or left to be sorted at the merge) takes no more keys.
  if (t.runs.empty() || t.runs.back().sorted.valid() || t.runs.back().count == kRunRecords) {
    // Without memory for a run the key is simply not gathered, and the merge reads it back.
    KeyRun run;
    if (!run.Reserve(kRunRecords * es)) return;
    try {
      t.runs.push_back(std::move(run));
    } catch (const std::exception&) {
      return;
    }
  }
  KeyRun& run = t.runs.back();
  char* const e = run.entries + run.count * es;
  t.expr.Evaluate(buf.data(), e);
  std::memcpy(e + k, &r, 4);
  ++run.count;
  t.gatheredTo = r;
  if (run.count < kRunRecords) return;
  // The sort reads only the index's order rules, which never change, and entries that this
  // thread no longer touches until the merge waits for them. Without a thread (or memory for
  // one) the run stays unsorted, and the merge sorts it.
  const TagIndex* const order = t.index.get();
  char* const entries = run.entries;
  const size_t n = run.count;
  try {
    run.sorted = std::async(std::launch::async, [order, entries, n] { order->SortEntries(entries, n); });
  } catch (const std::exception&) {
  }
}

namespace {

// Merges sorted runs of entries (key, then record number), handing each entry to `out` in the
// tag's order, ties by record number: the same order as sorting them all at once. A tournament
// of the runs' next entries picks each one: every node of a binary tree over the runs keeps the
// loser of the match played there, so the run that gave the last entry replays only its own
// path to the root, one comparison per level (a binary heap needs about two per level).
template <class Out>
void MergeRuns(const TagIndex& order, const std::vector<std::pair<const char*, size_t>>& runs,
               Out&& out) {
  const int k = order.KeyLength();
  const size_t es = size_t(k) + 4;
  struct Head {
    const char* at;
    const char* end;
  };
  std::vector<Head> heads;
  for (const auto& [entries, n] : runs)
    if (n > 0) heads.push_back({entries, entries + n * es});
  if (heads.empty()) return;
  if (heads.size() == 1) {
    for (const char* e = heads[0].at; e != heads[0].end; e += es) out(e);
    return;
  }
  // The tree has a leaf per run, up to a power of two; the extra leaves are runs already done.
  size_t leaves = 1;
  while (leaves < heads.size()) leaves <<= 1;
  heads.resize(leaves, Head{nullptr, nullptr});
  // Whether run a's next entry goes before run b's; a run that is done goes after every other.
  auto before = [&](uint32_t a, uint32_t b) {
    const Head& x = heads[a];
    const Head& y = heads[b];
    if (x.at == x.end) return false;
    if (y.at == y.end) return true;
    const int c = order.Compare(x.at, y.at, k);
    if (c != 0) return c < 0;
    uint32_t ra, rb;
    std::memcpy(&ra, x.at + k, 4);
    std::memcpy(&rb, y.at + k, 4);
    return ra < rb;
  };
  // Node n (1 .. leaves-1) has the children 2n and 2n+1; node leaves+i is run i.
  std::vector<uint32_t> loser(leaves), winner(2 * leaves);
  for (size_t i = 0; i < leaves; ++i) winner[leaves + i] = uint32_t(i);
  for (size_t n = leaves - 1; n >= 1; --n) {
    const uint32_t l = winner[2 * n], r = winner[2 * n + 1];
    const bool rightFirst = before(r, l);
    winner[n] = rightFirst ? r : l;
    loser[n] = rightFirst ? l : r;
  }
  uint32_t best = winner[1];
  while (heads[best].at != heads[best].end) {
    out(static_cast<const char*>(heads[best].at));
    heads[best].at += es;
    for (size_t n = (leaves + best) >> 1; n >= 1; n >>= 1)
      if (before(loser[n], best)) std::swap(loser[n], best);
  }
}

}  // namespace

// Brings tag t up to date for a use of its order: the entries of records whose key changed
// since its last use move, and the records appended since go in.
int Table::Impl::Merge(Tag& t) {
  if (!t.movedRecs.empty())
    if (int s = MoveNoted(t); s != kOk) return s;
  return MergeAppended(t);
}

// Record r (in the tree) has a new key in tag t, whose entry is still under `key`: noted for the
// next merge, unless it is noted already (then the tree's entry is still under the first key).
void Table::Impl::NoteMoved(Tag& t, uint32_t r, const char* key) {
  if (t.isMoved.size() <= r)
    t.isMoved.resize(std::max<size_t>(size_t(r) + 1, t.isMoved.size() * 2));
  if (t.isMoved[r]) return;
  t.isMoved[r] = true;
  t.movedRecs.push_back(r);
  t.movedKeys.append(key, size_t(t.expr.KeyLength()));
}

// Moves the entries noted by NoteMoved to their records' keys as they are now. A record that
// cannot be read stops the moves: the ones made are forgotten, the others stay noted.
int Table::Impl::MoveNoted(Tag& t) {
  const size_t k = size_t(t.expr.KeyLength());
  mergeRec.resize(size_t(dbf.RecordLength()));
  mergeKey.resize(k);
  size_t done = 0;
  int status = kOk;
  for (; done < t.movedRecs.size(); ++done) {
    const uint32_t r = t.movedRecs[done];
    if (status = dbf.Read(r, mergeRec.data()); status != kOk) break;
    t.expr.Evaluate(mergeRec.data(), mergeKey.data());
    const char* was = t.movedKeys.data() + done * k;
    if (std::memcmp(was, mergeKey.data(), k) == 0) continue;
    t.index->Erase(was, r);
    t.index->Insert(mergeKey.data(), r);
  }
  ForgetMoved(t, done);
  return status;
}

// Forgets the first `count` noted records of tag t (all of them by default).
void Table::Impl::ForgetMoved(Tag& t, size_t count) {
  count = std::min(count, t.movedRecs.size());
  for (size_t i = 0; i < count; ++i) t.isMoved[t.movedRecs[i]] = false;
  t.movedRecs.erase(t.movedRecs.begin(), t.movedRecs.begin() + ptrdiff_t(count));
  t.movedKeys.erase(0, count * size_t(t.expr.KeyLength()));
}

int Table::Impl::MergeAppended(Tag& t) {
  const uint32_t n = dbf.RecordCount();
  t.appendsSinceUse = 0;
  // The gathered keys are taken over by this merge (a run still being sorted is waited for when
  // `runs` goes out of scope, whichever way this returns).
  std::vector<KeyRun> runs;
  runs.swap(t.runs);
  const uint32_t gathered = runs.empty() ? t.merged : std::max(t.merged, t.gatheredTo);
  t.gatheredTo = 0;
  if (t.merged >= n) return kOk;
  const uint32_t first = t.merged + 1, count = n - t.merged;
  const size_t k = size_t(t.expr.KeyLength()), es = k + 4, rl = size_t(dbf.RecordLength());
  // Deferred keys are wanted by the tree again soon after each merge, time after time: the
  // deferring costs more than it saves, so each key goes in at its append again.
  if (t.fingerprints) {
    t.shortMerges = count < kShortMerge ? t.shortMerges + 1 : 0;
    if (t.shortMerges >= kShortMergesToStop) DropFingerprints(t);
  }
  if (count <= kSmallBatch) {
    std::string& rec = mergeRec;
    std::string& key = mergeKey;
    rec.resize(rl);
    key.resize(k);
    for (uint32_t r = first; r <= n; ++r) {
      if (int s = dbf.Read(r, rec.data()); s != kOk) return s;
      t.expr.Evaluate(rec.data(), key.data());
      if (t.unique) t.index->InsertUnique(key.data(), r);
      else t.index->Insert(key.data(), r);
      t.merged = r;
    }
    t.eager = true;
    return kOk;
  }
  // A tree smaller than the batch is rebuilt with it: its entries (room for them is left in
  // front of the batch) and the sorted batch are merged into one order and loaded bottom up.
  const size_t held = t.index->Size();
  const bool rebuild = held < count;
  const size_t front = rebuild ? held : 0;
  // Sorted runs that become the whole tree go into it straight from their merge, without a
  // copy of all the entries in between.
  const bool straight = !runs.empty() && rebuild && front == 0;
  char* const flat = straight ? nullptr : mergeFlat.Reserve((front + count) * es);
  char* const batch = straight ? nullptr : flat + front * es;
  // Records whose keys were not gathered are read back: all of them, or those after the runs
  // (into a buffer of their own, merged with the runs below).
  const uint32_t readFrom = runs.empty() ? first : gathered + 1;
  std::vector<char> rest;
  char* const readInto = runs.empty() ? batch : (rest.resize(size_t(n - gathered) * es), rest.data());
  if (readFrom <= n) {
    char* const chunk = mergeChunk.Reserve(size_t(std::min(kScanChunk, n - readFrom + 1)) * rl);
    for (uint32_t at = readFrom; at <= n; at += kScanChunk) {
      uint32_t cnt = std::min(kScanChunk, n - at + 1);
      if (int s = dbf.ReadRange(at, cnt, chunk); s != kOk) return s;
      for (uint32_t i = 0; i < cnt; ++i) {
        char* e = readInto + size_t(at - readFrom + i) * es;
        t.expr.Evaluate(chunk + size_t(i) * rl, e);
        uint32_t r = at + i;
        std::memcpy(e + k, &r, 4);
      }
    }
  }
  if (mergeChunk.Capacity() > kKeptMergeBytes) mergeChunk.Release();
  if (runs.empty()) {
    t.index->SortEntries(batch, count, sortScratch);
  } else {
    std::vector<std::pair<const char*, size_t>> sorted;
    for (KeyRun& run : runs) {
      bool done = false;
      if (run.sorted.valid()) {
        try {
          run.sorted.get();
          done = true;
        } catch (const std::exception&) {
          // The helper thread could not sort (no memory): the run is sorted here after all.
        }
      }
      if (!done) t.index->SortEntries(run.entries, run.count, sortScratch);  // also the run still filling
      sorted.emplace_back(run.entries, run.count);
    }
    t.index->SortEntries(rest.data(), n - gathered, sortScratch);
    sorted.emplace_back(rest.data(), size_t(n - gathered));
    if (straight) {
      // A unique tag keeps the first entry of every run of equal keys.
      const char* previous = nullptr;
      t.index->BeginLoad(count);
      MergeRuns(*t.index, sorted, [&](const char* e) {
        if (t.unique && previous && std::memcmp(previous, e, k) == 0) return;
        t.index->AddLoaded(e);
        previous = e;
      });
      t.index->EndLoad();
      t.merged = n;
      t.eager = false;
      return kOk;
    }
    char* out = batch;
    MergeRuns(*t.index, sorted, [&](const char* e) {
      std::memcpy(out, e, es);
      out += es;
    });
  }
  if (rebuild) {
    size_t total = count;
    if (front > 0) {
      // Every record of the tree comes before every record of the batch, so on equal keys the
      // tree's entry goes first, as an insert would have put it. The output never overtakes
      // the batch: after i tree entries and j batch entries it writes entry i + j, and the
      // batch's next unread one is entry front + j.
      char* const old = sortScratch.Reserve(front * es);  // the sort is done with it
      size_t i = 0;
      for (TagIndex::Pos p = t.index->First(); p.Valid(); t.index->Next(p), ++i) {
        std::memcpy(&old[i * es], t.index->KeyAt(p), k);
        const uint32_t r = t.index->RecnoAt(p);
        std::memcpy(&old[i * es + k], &r, 4);
      }
      size_t a = 0, b = 0, out = 0;
      while (a < front || b < count) {
        const char* pick;
        if (b == count) pick = &old[a++ * es];
        else if (a == front) pick = batch + b++ * es;
        else if (t.index->Compare(&old[a * es], batch + b * es, int(k)) <= 0) pick = &old[a++ * es];
        else pick = batch + b++ * es;
        std::memmove(&flat[out++ * es], pick, es);
      }
      total = out;
    }
    size_t kept = total;
    if (t.unique) {  // keep the first entry of every run of equal keys
      kept = 0;
      for (size_t i = 0; i < total; ++i) {
        const char* e = &flat[i * es];
        if (kept > 0 && std::memcmp(&flat[(kept - 1) * es], e, k) == 0) continue;
        if (kept != i) std::memcpy(&flat[kept * es], e, es);
        ++kept;
      }
    }
    if (sortScratch.Capacity() > kKeptMergeBytes) sortScratch.Release();
    t.index->BulkLoad(flat, kept);
  } else {
    for (size_t i = 0; i < count; ++i) {
      const char* e = &flat[i * es];
      uint32_t r;
      std::memcpy(&r, e + k, 4);
      if (t.unique) {
        if (i > 0 && std::memcmp(&flat[(i - 1) * es], e, k) == 0) continue;
        t.index->InsertUnique(e, r);
      } else {
        t.index->Insert(e, r);
      }
    }
  }
  if (mergeChunk.Capacity() > kKeptMergeBytes) mergeChunk.Release();
  if (sortScratch.Capacity() > kKeptMergeBytes) sortScratch.Release();
  if (!mergingAll && mergeFlat.Capacity() > kKeptMergeBytes) mergeFlat.Release();
  t.merged = n;
  t.eager = false;
  return kOk;
}

// Fingerprints of every entry of tag t. REQUIRES: every record is merged into t.
void Table::Impl::StartFingerprints(Tag& t) {
  auto fp = std::make_unique<KeyFingerprints>();
  const TagIndex& ix = *t.index;
  for (TagIndex::Pos p = ix.First(); p.Valid(); ix.Next(p))
    fp->Insert(KeyFingerprints::Hash(ix.KeyAt(p), ix.KeyLength()), ix.RecnoAt(p));
  t.fingerprints = std::move(fp);
  t.shortMerges = 0;
}

// Back to adding keys at their appends; the records appended meanwhile wait for the next merge.
void Table::Impl::DropFingerprints(Tag& t) {
  if (!t.fingerprints) return;
  t.fingerprints.reset();
  t.ticketHits = 0;
  t.shortMerges = 0;
}

// 1 when record `holder`'s key in tag t is `key`, 0 when not, -1 when it cannot be read.
int Table::Impl::SameKeyAs(const Tag& t, uint32_t holder, const char* key) {
  mergeRec.resize(size_t(dbf.RecordLength()));
  mergeKey.resize(size_t(t.expr.KeyLength()));
  if (dbf.Read(holder, mergeRec.data()) != kOk) return -1;
  t.expr.Evaluate(mergeRec.data(), mergeKey.data());
  return std::memcmp(mergeKey.data(), key, mergeKey.size()) == 0 ? 1 : 0;
}

// The append of record r to the selected tag, which has fingerprints: its key (in deferKey,
// hash h) is looked up there; a new key makes r its holder and earns a ticket. The key enters
// the tree at the next merge, as any pending record's does, where it meets the same decision:
// the first record of a key holds it. False when a record could not be read to tell keys
// apart: the fingerprints are dropped, and r simply waits for the next merge.
bool Table::Impl::DeferKey(Tag& t, uint32_t r, uint64_t h) {
  const uint32_t holder = t.fingerprints->InsertUnique(
      h, r, [&](uint32_t rec) { return SameKeyAs(t, rec, deferKey.data()); });
  if (holder == UINT32_MAX) {
    DropFingerprints(t);
    return false;
  }
  if (holder == 0) appendTicket = (uniqueEpoch << 32) | r;
  return true;
}

int Table::Impl::MergeAll() {
  int status = kOk;
  mergingAll = true;
  for (Tag& t : tags)
    if (status = Merge(t); status != kOk) break;
  mergingAll = false;
  TrimMergeBuffers(0);
  return status;
}

// Gives back the merge buffers larger than `largest` bytes.
void Table::Impl::TrimMergeBuffers(size_t largest) {
  for (PageBuffer* b : {&mergeFlat, &mergeChunk, &sortScratch})
    if (b->Capacity() > largest) b->Release();
}

// The lowest record other than `except` whose key in tag t is `key`; 0 when none.
uint32_t Table::Impl::FirstOtherHolder(const Tag& t, const char* key, uint32_t except) {
  const uint32_t n = dbf.RecordCount();
  const size_t rl = size_t(dbf.RecordLength());
  std::vector<char> chunk(size_t(kScanChunk) * rl);
  std::string k(size_t(t.expr.KeyLength()), ' ');
  for (uint32_t first = 1; first <= n; first += kScanChunk) {
    uint32_t cnt = std::min(kScanChunk, n - first + 1);
    if (dbf.ReadRange(first, cnt, chunk.data()) != kOk) return 0;
    for (uint32_t i = 0; i < cnt; ++i) {
      if (first + i == except) continue;
      t.expr.Evaluate(chunk.data() + size_t(i) * rl, k.data());
      if (std::memcmp(k.data(), key, k.size()) == 0) return first + i;
    }
  }
  return 0;
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
  return WriteMdx(mdxPath, stem, srcs, headerDate);
}

bool Table::IsOpen() const { return impl_->open; }
bool Table::IsReadOnly() const { return impl_->open && impl_->readOnly; }

int Table::FlushTable() {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.readOnly) return kOk;
  errno = 0;
  int s = m.dbf.Flush(!m.tags.empty(), m.FieldMdxFlags());
  m.WriteFailed(s, errno, m.DbfName());
  if (s == kOk && m.indexDirty && !m.tags.empty()) {
    errno = 0;
    s = m.WriteIndex();
    m.WriteFailed(s, errno, m.MdxName());
    if (s == kOk) m.indexDirty = false;
  }
  m.flushStatus = s;
  return s;
}

bool Table::WriteFailed() const { return impl_->writeFailureReported; }

void Table::CloseTable() {
  Impl& m = *impl_;
  if (!m.open) return;
  // The fingerprints are of no more use: their memory goes before the last merges need theirs.
  for (Tag& t : m.tags) m.DropFingerprints(t);
  FlushTable();
  m.dbf.Close();
  m.tags.clear();
  m.open = false;
  m.TakeFields();
  m.selected = -1;
  m.recno = 0;
  m.eof = true;
  m.curKeyValid = false;
  m.loaded = true;
}

// ---- order ---------------------------------------------------------------------------------

void Table::ResetTable() { GoTop(); }

int Table::SelectTag(std::string_view tag) {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  int found = -2;
  if (tag.empty()) found = -1;
  for (size_t i = 0; i < m.tags.size() && found == -2; ++i)
    if (EqualsNoCase(m.tags[i].name, tag)) found = int(i);
  if (found == -2) return kNoSuchTag;
  if (found != m.selected) {
    // Only the selected tag defers its keys (tickets are for it alone).
    if (m.selected >= 0) m.DropFingerprints(m.tags[size_t(m.selected)]);
    m.selected = found;
    ++m.uniqueEpoch;  // tickets are for the tag selected at their append
    m.appendTicket = 0;
    m.curKeyValid = false;
    m.posVersion = ~uint64_t(0);
  }
  return kOk;
}

std::string Table::SelectedTag() const {
  const Impl& m = *impl_;
  return m.selected >= 0 ? m.tags[size_t(m.selected)].name : std::string();
}

// ---- fields --------------------------------------------------------------------------------

int Table::FieldIndex(std::string_view name) const { return impl_->open ? impl_->IndexOf(name) : -1; }
int Table::FieldCount() const { return impl_->open ? int(impl_->dbf.Fields().size()) : 0; }

std::vector<FieldInfo> Table::Fields() const {
  return impl_->open ? impl_->dbf.Fields() : std::vector<FieldInfo>{};
}

std::vector<TagInfo> Table::Tags() const {
  std::vector<TagInfo> out;
  impl_->MergeAll();
  for (const Tag& t : impl_->tags) {
    TagInfo i;
    i.name = t.name;
    i.expression = t.expr.Text();
    i.keyLength = t.expr.KeyLength();
    i.unique = t.unique;
    i.descending = t.descending;
    i.entries = long(t.index->Size());
    out.push_back(i);
  }
  return out;
}

TableInfo Table::Info() const {
  const Impl& m = *impl_;
  TableInfo i;
  if (!m.open) return i;
  const DbfHeader& h = m.dbf.Header();
  i.dbfPath = m.dbf.Path();
  i.mdxPath = m.tags.empty() ? std::string() : m.mdxPath;
  i.version = h.version;
  i.updateYear = h.year;
  i.updateMonth = h.month;
  i.updateDay = h.day;
  i.headerLength = h.headerLength;
  i.recordLength = h.recordLength;
  i.productionMdx = h.productionMdx;
  i.languageDriver = h.languageDriver;
  i.readOnly = m.readOnly;
  i.indexRebuilt = m.indexRebuilt;
  return i;
}

// ---- the record buffer ---------------------------------------------------------------------

void Table::BlankRecord() {
  Impl& m = *impl_;
  if (!m.open) return;
  std::fill(m.buf.begin(), m.buf.end(), ' ');
  m.loaded = true;
}

void Table::SetDeleted(bool deleted) {
  Impl& m = *impl_;
  if (!m.open) return;
  m.EnsureLoaded();
  m.buf[0] = deleted ? dbf::kDeletedFlag : dbf::kActive;
}

bool Table::Deleted() const {
  const Impl& m = *impl_;
  if (!m.open) return false;
  m.EnsureLoaded();
  return m.buf[0] == dbf::kDeletedFlag;
}

int Table::AppendRecord() {
  Impl& m = *impl_;
  if (int s = m.CheckWritable(); s != kOk) return s;
  m.EnsureLoaded();
  // Only the selected tag defers its keys. Its key is hashed first, so that the fingerprint
  // slot it needs comes from memory while the record is being stored.
  Tag* const deferring =
      m.selected >= 0 && m.tags[size_t(m.selected)].fingerprints ? &m.tags[size_t(m.selected)] : nullptr;
  uint64_t hash = 0;
  if (deferring) {
    m.deferKey.resize(size_t(deferring->expr.KeyLength()));
    deferring->expr.Evaluate(m.buf.data(), m.deferKey.data());
    hash = KeyFingerprints::Hash(m.deferKey.data(), deferring->expr.KeyLength());
    deferring->fingerprints->Prefetch(hash);
  }
  errno = 0;
  int s = m.dbf.Append(m.buf.data());
  if (s != kOk) {
    m.WriteFailed(s, errno, m.DbfName());
    return s;
  }
  const uint32_t r = m.dbf.RecordCount();
  bool selectedKeyKnown = false;
  m.appendTicket = 0;
  for (size_t i = 0; i < m.tags.size(); ++i) {
    Tag& t = m.tags[i];
    if (&t == deferring && m.DeferKey(t, r, hash)) {
      m.curKey.assign(m.deferKey);
      selectedKeyKnown = true;
      // Deferred keys go into the tree in sorted batches of a bounded size, so that the batch
      // left for the close needs little memory beyond the tree's own.
      if (r - t.merged >= kDeferredBatch) m.Merge(t);
      continue;
    }
    const bool now = t.eager && t.merged == r - 1 && ++t.appendsSinceUse <= kEagerRun;
    if (!now) {
      t.eager = false;
      m.GatherKey(t, r);
      continue;  // added at the next merge; the current key is computed when it is asked for
    }
    const bool selected = i == size_t(m.selected);
    std::string& key = selected ? m.curKey : m.scratch;
    key.resize(size_t(t.expr.KeyLength()));
    t.expr.Evaluate(m.buf.data(), key.data());
    selectedKeyKnown = selectedKeyKnown || selected;
    // A unique tag indexes only the first record of a key.
    if (t.unique) {
      // The new record is its key's entry when nobody held the key: a ticket can prove it later.
      if (t.index->InsertUnique(key.data(), r) == 0 && selected)
        m.appendTicket = (m.uniqueEpoch << 32) | r;
    } else {
      t.index->Insert(key.data(), r);
    }
    t.merged = r;
  }
  if (!m.tags.empty()) m.indexDirty = true;
  m.recno = r;
  m.eof = false;
  m.curKeyValid = selectedKeyKnown;
  m.posVersion = ~uint64_t(0);
  m.loaded = true;
  return kOk;
}

int Table::ReplaceRecord() {
  Impl& m = *impl_;
  if (int s = m.CheckWritable(); s != kOk) return s;
  if (m.recno == 0) return kNoRecord;
  m.EnsureLoaded();
  m.oldRec.resize(m.buf.size());
  int s = m.dbf.Read(m.recno, m.oldRec.data());
  if (s != kOk) return s;
  const uint32_t r = m.recno;
  for (Tag& t : m.tags) {
    const size_t k = size_t(t.expr.KeyLength());
    m.scratch.resize(k);
    m.scratch2.resize(k);
    t.expr.Evaluate(m.oldRec.data(), m.scratch.data());
    t.expr.Evaluate(m.buf.data(), m.scratch2.data());
    // A tag whose key the change leaves as it was needs nothing, not even the records appended
    // since its last merge: they enter it later from the file, as written now.
    if (std::memcmp(m.scratch.data(), m.scratch2.data(), k) == 0) continue;
    m.indexDirty = true;
    // The key moves. In a non-unique tag other than the selected one, the move waits for the
    // tag's next use: once the record is in the tree (with its old key), it is only noted.
    const bool selectedTag = m.selected >= 0 && &t == &m.tags[size_t(m.selected)];
    if (!t.unique && !selectedTag) {
      if (r > t.merged)
        if (int ms = m.MergeAppended(t); ms != kOk) return ms;
      if (r <= t.merged) {
        m.NoteMoved(t, r, m.scratch.data());
        continue;
      }
    }
    // The tag first takes every record up to this one (with its old key).
    if (int ms = m.Merge(t); ms != kOk) return ms;
    // A unique tag's entry may pass to another record: every ticket so far is void.
    if (t.unique) {
      ++m.uniqueEpoch;
      m.appendTicket = 0;
    }
    if (!t.unique) {
      t.index->Erase(m.scratch.data(), r);
      t.index->Insert(m.scratch2.data(), r);
      continue;
    }
    // Unique tag: if this record held its old key, the next record with that key takes over.
    // The fingerprints follow every change of holder.
    KeyFingerprints* fp = t.fingerprints.get();
    const int kl = int(k);
    bool fpKept = true;
    if (t.index->Erase(m.scratch.data(), r)) {
      uint32_t other = m.FirstOtherHolder(t, m.scratch.data(), r);
      if (other) t.index->Insert(m.scratch.data(), other);
      if (fp) fpKept = fp->Replace(KeyFingerprints::Hash(m.scratch.data(), kl), r, other);
    }
    // The new key belongs to the first record that has it.
    uint32_t holder = t.index->InsertUnique(m.scratch2.data(), r);
    if (holder > r) {
      t.index->Erase(m.scratch2.data(), holder);
      t.index->Insert(m.scratch2.data(), r);
      if (fp) fpKept = fp->Replace(KeyFingerprints::Hash(m.scratch2.data(), kl), holder, r) && fpKept;
    } else if (holder == 0 && fp) {
      fp->Insert(KeyFingerprints::Hash(m.scratch2.data(), kl), r);
    }
    // Cannot happen while they hold every entry; if it did, they could no longer be trusted.
    if (!fpKept) m.DropFingerprints(t);
  }
  errno = 0;
  s = m.dbf.Write(r, m.buf.data());
  m.WriteFailed(s, errno, m.DbfName());
  m.curKeyValid = false;
  m.posVersion = ~uint64_t(0);
  return s;
}

std::string_view Table::GetText(int field) const {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return {};
  impl_->EnsureLoaded();
  return std::string_view(impl_->buf.data() + f->offset, size_t(f->width));
}

void Table::SetText(int field, std::string_view v) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  impl_->EnsureLoaded();
  vb::PadField(impl_->buf.data() + f->offset, size_t(f->width), v);
}

double Table::GetNumber(int field) const {
  std::string_view t = TrimBlanks(GetText(field));
  if (t.empty()) return 0;
  if (t.front() == '+') t.remove_prefix(1);
  // Whole numbers, nearly every counter, are read digit by digit: up to 15 digits the value is
  // exact, as the general reading below would give it.
  const size_t sign = t.front() == '-' ? 1 : 0;
  if (t.size() > sign && t.size() - sign <= 15) {
    uint64_t u = 0;
    size_t i = sign;
    for (; i < t.size() && unsigned(t[i] - '0') < 10; ++i) u = u * 10 + unsigned(t[i] - '0');
    if (i == t.size()) return sign ? -double(u) : double(u);
  }
  double v = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  return r.ec == std::errc() ? v : 0;
}

// A value too wide for its field is stored as the nearest value that fits: dBASE itself
// would show asterisks, which no reader takes for a number, and a counter that stops at its
// largest value is the lesser harm.
void Table::SetNumber(int field, double v) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  if (!std::isfinite(v)) v = 0;
  const int d = f->decimals;
  const int intDigits = f->width - (d > 0 ? d + 1 : 0);
  char text[64];
  if (d == 0 && f->width <= 18) {
    // Whole numbers, the usual case: rounded half away from zero, digits written by hand
    // straight into the field. A value that is whole already (nearly every counter) needs no
    // rounding.
    static constexpr std::array<int64_t, 19> kPowersOf10 = [] {
      std::array<int64_t, 19> p{};
      for (size_t i = 0; i < p.size(); ++i) p[i] = i == 0 ? 1 : p[i - 1] * 10;
      return p;
    }();
    const int64_t maxV = kPowersOf10[size_t(intDigits)] - 1;
    const int64_t minV = -(maxV / 10);
    int64_t iv;
    if (v >= double(maxV)) {
      iv = maxV;
    } else if (v <= double(minV)) {
      iv = minV;
    } else {
      iv = int64_t(v);
      if (double(iv) != v) {
        const double r = std::round(v);
        iv = r >= double(maxV) ? maxV : r <= double(minV) ? minV : int64_t(r);
      }
    }
    const bool neg = iv < 0;
    uint64_t u = neg ? uint64_t(-iv) : uint64_t(iv);
    impl_->EnsureLoaded();
    char* const out = impl_->buf.data() + f->offset;
    int at = f->width;
    do {
      out[--at] = char('0' + u % 10);
      u /= 10;
    } while (u);
    if (neg) out[--at] = '-';
    while (at > 0) out[--at] = ' ';
    return;
  }
  const double step = std::pow(10.0, -d);
  const double maxV = std::pow(10.0, intDigits) - step;
  const double minV = intDigits > 1 ? -(std::pow(10.0, intDigits - 1) - step) : 0.0;
  double scale = std::pow(10.0, d);
  v = std::round(v * scale) / scale;
  v = std::clamp(v, minV, maxV);
  if (v == 0) v = 0;  // no "-0"
  int n = std::snprintf(text, sizeof text, "%*.*f", f->width, d, v);
  if (n != f->width) return;  // cannot happen after clamping; leave the field as it was
  impl_->EnsureLoaded();
  std::memcpy(impl_->buf.data() + f->offset, text, size_t(n));
}

static bool ParseYmd(std::string_view t, int& y, int& m, int& d) {
  if (t.size() != 8) return false;
  for (char c : t)
    if (c < '0' || c > '9') return false;
  y = (t[0] - '0') * 1000 + (t[1] - '0') * 100 + (t[2] - '0') * 10 + (t[3] - '0');
  m = (t[4] - '0') * 10 + (t[5] - '0');
  d = (t[6] - '0') * 10 + (t[7] - '0');
  if (m < 1 || m > 12 || d < 1) return false;
  // The days of the month in the Gregorian calendar, carried back before its start.
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return d <= kDays[m - 1] + (m == 2 && leap ? 1 : 0);
}

vb::Date Table::GetDate(int field) const {
  const std::string_view text = GetText(field);
  const Impl& m = *impl_;
  if (text.size() == 8)
    for (int i = 0; i < 2; ++i)
      if (m.getKnown[i] && std::memcmp(text.data(), m.getText[i], 8) == 0) return m.getDate[i];
  int y, mo, d;
  const vb::Date date = ParseYmd(text, y, mo, d) ? vb::Date(DayCount(y, mo, d)) : 0;
  if (text.size() == 8) {
    const int i = m.getNext;
    m.getNext = 1 - i;
    std::memcpy(m.getText[i], text.data(), 8);
    m.getDate[i] = date;
    m.getKnown[i] = true;
  }
  return date;
}

bool Table::DateIsBlank(int field) const {
  int y, m, d;
  return !ParseYmd(GetText(field), y, m, d);
}

// Date 0 is the run-time's empty date, so it is stored as a blank date.
void Table::SetDate(int field, vb::Date date) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  if (!std::isfinite(date) || date == 0 || std::fabs(date) > 3e6) {
    SetDateBlank(field);
    return;
  }
  const int64_t day = int64_t(std::trunc(date));
  Impl& im = *impl_;
  if (day != im.setDay) {
    int y, m, d;
    CivilDate(day, y, m, d);
    if (y < 1 || y > 9999) {
      SetDateBlank(field);
      return;
    }
    const char text[8] = {char('0' + y / 1000), char('0' + y / 100 % 10), char('0' + y / 10 % 10),
                          char('0' + y % 10),     char('0' + m / 10),       char('0' + m % 10),
                          char('0' + d / 10),     char('0' + d % 10)};
    std::memcpy(im.setText, text, 8);
    im.setDay = day;
  }
  SetText(field, std::string_view(im.setText, 8));
}

void Table::SetDateBlank(int field) { SetText(field, ""); }

std::string_view Table::GetText(std::string_view name) const { return GetText(impl_->IndexOf(name)); }
double Table::GetNumber(std::string_view name) const { return GetNumber(impl_->IndexOf(name)); }
vb::Date Table::GetDate(std::string_view name) const { return GetDate(impl_->IndexOf(name)); }
bool Table::DateIsBlank(std::string_view name) const { return DateIsBlank(impl_->IndexOf(name)); }

int Table::SetText(std::string_view name, std::string_view v) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetText(i, v);
  return kOk;
}
int Table::SetNumber(std::string_view name, double v) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetNumber(i, v);
  return kOk;
}
int Table::SetDate(std::string_view name, vb::Date d) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetDate(i, d);
  return kOk;
}

// ---- seeks and movement --------------------------------------------------------------------

int Table::SeekKey(std::string_view key) {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.selected < 0) return kNoTags;
  if (int s = m.MergeSelected(); s != kOk) return s;
  const TagIndex& ix = *m.tags[size_t(m.selected)].index;
  const size_t k = size_t(ix.KeyLength());
  // The key as the tag holds it: cut or blank-padded to the key length.
  m.scratch.assign(key.substr(0, k));
  m.scratch.resize(k, ' ');
  // Standing on the first entry at or after that key already (a near seek on part of it just
  // before, which found it or the place where it would be): no search. That is the entry the
  // search would find when it does not come before the key and the entry before it does.
  if (m.posVersion == ix.Version() && m.pos.Valid() && m.recno != 0) {
    const int here = ix.Compare(ix.KeyAt(m.pos), m.scratch.data(), int(k));
    if (here >= 0) {
      TagIndex::Pos before = m.pos;
      if (!ix.Prev(before) || ix.Compare(ix.KeyAt(before), m.scratch.data(), int(k)) < 0) {
        m.SetAt(m.pos);
        return here == 0 ? kOk : kAfter;
      }
    }
  }
  TagIndex::Pos p = ix.LowerBound(m.scratch.data(), int(k), 0);
  if (!p.Valid()) {
    m.SetPastEnd();
    return kEof;
  }
  m.SetAt(p);
  return std::memcmp(ix.KeyAt(p), m.scratch.data(), k) == 0 ? kOk : kAfter;
}

uint64_t Table::AppendTicket() const { return impl_->open ? impl_->appendTicket : 0; }

// Why the shortcut gives SeekKey's answer: the ticket says that at the append, record recno
// became the selected unique tag's entry for its key. Entries of a unique tag pass from one
// record to another only when a replace changes a key in it, or the index is loaded afresh
// (an open), and a selection of another tag makes a ticket meaningless: each of these raises
// the epoch. With the epoch unchanged, recno is still the entry of its key, and its key has not
// changed (a change would have raised the epoch too). So if that key is the one sought,
// recno is the entry SeekKey would find: a unique tag holds one entry per key. A deferred key
// (see DeferKey) is no different: its record was found the first with that key, and the merge
// that puts it into the tree makes the first record of a key its entry.
void Table::PrefetchTicket(uint64_t ticket) const {
  const Impl& m = *impl_;
  if (m.open && ticket != 0) m.dbf.Prefetch(uint32_t(ticket & 0xffffffffu));
}

int Table::SeekKeyAt(std::string_view key, uint64_t ticket) {
  Impl& m = *impl_;
  // 1. A ticket that cannot prove anything: the ordinary seek.
  const uint32_t recno = uint32_t(ticket & 0xffffffffu);
  if (!m.open || m.selected < 0 || ticket == 0 || (ticket >> 32) != m.uniqueEpoch ||
      recno < 1 || recno > m.dbf.RecordCount())
    return SeekKey(key);
  // 2. The tag's pending records go in as SeekKey would add them (it counts as a use too),
  //    unless the tag defers its keys: then the ticket's record is its key's holder whether its
  //    key is in the tree yet or not, and the tree is not needed.
  Tag& t = m.tags[size_t(m.selected)];
  if (!t.fingerprints)
    if (int s = m.Merge(t); s != kOk) return s;
  // 3. The key as the tag holds it, and the ticket's record's key.
  const size_t k = size_t(t.expr.KeyLength());
  m.scratch.assign(key.substr(0, k));
  m.scratch.resize(k, ' ');
  m.SetRecno(recno);
  m.EnsureLoaded();
  if (m.loadStatus != kOk) return SeekKey(key);
  m.EnsureCurKey();
  // 4. The same key: standing on its entry. Otherwise the ordinary seek.
  if (std::memcmp(m.curKey.data(), m.scratch.data(), k) != 0) return SeekKey(key);
  // 5. The tag's order is used through tickets: its later appends may defer their keys. After
  //    fingerprints were dropped they come back only when the ticket seeks since then
  //    outnumber an eighth of the tag's entries, which pays for building them.
  if (!t.fingerprints && t.unique && t.merged == m.dbf.RecordCount() &&
      ++t.ticketHits > t.index->Size() / 8)
    m.StartFingerprints(t);
  return kOk;
}

int Table::SeekNear(std::string_view key) {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.selected < 0) return kNoTags;
  if (int s = m.MergeSelected(); s != kOk) return s;
  const TagIndex& ix = *m.tags[size_t(m.selected)].index;
  const int len = int(std::min(key.size(), size_t(ix.KeyLength())));
  TagIndex::Pos p = ix.LowerBound(key.data(), len, 0);
  if (!p.Valid()) {
    m.SetPastEnd();
    return kEof;
  }
  m.SetAt(p);
  return std::memcmp(ix.KeyAt(p), key.data(), size_t(len)) == 0 ? kOk : kAfter;
}

int Table::Skip(long n) {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  const long count = long(m.dbf.RecordCount());
  if (m.selected < 0) {
    long cur = m.eof ? count + 1 : long(m.recno);
    long target = cur + n;
    if (target > count) {
      m.SetPastEnd();
      return kEof;
    }
    if (target < 1) {
      m.SetRecno(count > 0 ? 1 : 0);
      return count > 0 ? kBof : kEof;
    }
    m.SetRecno(uint32_t(target));
    return kOk;
  }
  if (int s = m.MergeSelected(); s != kOk) return s;
  const TagIndex& ix = *m.tags[size_t(m.selected)].index;
  TagIndex::Pos p;
  long steps;
  if (m.eof) {
    if (n >= 0) return kEof;
    p = ix.Last();
    if (!p.Valid()) return kEof;
    steps = n + 1;  // the last entry is one step back already
  } else {
    bool present = false;
    p = m.Place(&present);
    steps = n;
    if (!present && n > 0) --steps;  // p already is the next entry
    if (!p.Valid()) {
      if (n >= 0) {
        if (n == 0) return kOk;
        m.SetPastEnd();
        return kEof;
      }
      p = ix.Last();
      if (!p.Valid()) return kEof;
      ++steps;
    }
    if (n == 0) {
      m.loaded = false;  // re-read the current record
      return kOk;
    }
  }
  for (; steps > 0; --steps) {
    if (!ix.Next(p)) {
      m.SetPastEnd();
      return kEof;
    }
  }
  for (; steps < 0; ++steps) {
    if (!ix.Prev(p)) {
      m.SetAt(ix.First());
      return kBof;
    }
  }
  m.SetAt(p);
  return kOk;
}

int Table::GoTop() {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.selected < 0) {
    m.SetRecno(m.dbf.RecordCount() > 0 ? 1 : 0);
    return m.recno ? kOk : kEof;
  }
  if (int s = m.MergeSelected(); s != kOk) return s;
  TagIndex::Pos p = m.tags[size_t(m.selected)].index->First();
  if (!p.Valid()) {
    m.SetPastEnd();
    return kEof;
  }
  m.SetAt(p);
  return kOk;
}

int Table::GoBottom() {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.selected < 0) {
    m.SetRecno(m.dbf.RecordCount());
    return m.recno ? kOk : kEof;
  }
  if (int s = m.MergeSelected(); s != kOk) return s;
  TagIndex::Pos p = m.tags[size_t(m.selected)].index->Last();
  if (!p.Valid()) {
    m.SetPastEnd();
    return kEof;
  }
  m.SetAt(p);
  return kOk;
}

int Table::GoTo(long recno) {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (recno < 1 || recno > long(m.dbf.RecordCount())) {
    m.SetPastEnd();
    return kEof;
  }
  m.SetRecno(uint32_t(recno));
  return kOk;
}

bool Table::Eof() const { return !impl_->open || impl_->eof; }
long Table::RecordCount() const { return impl_->open ? long(impl_->dbf.RecordCount()) : 0; }
long Table::RecNo() const { return impl_->open ? long(impl_->recno) : 0; }

std::string_view Table::EntryKey() const {
  const Impl& m = *impl_;
  if (!m.open || m.selected < 0 || m.recno == 0 || m.eof) return {};
  const TagIndex& ix = *m.tags[size_t(m.selected)].index;
  if (m.posVersion != ix.Version() || !m.pos.Valid()) return {};
  return {ix.KeyAt(m.pos), size_t(ix.KeyLength())};
}

std::string Table::CurrentKey() const {
  const Impl& m = *impl_;
  if (!m.open || m.selected < 0) return {};
  m.EnsureLoaded();
  return m.tags[size_t(m.selected)].expr.Evaluate(m.buf.data());
}

// ---- statuses ------------------------------------------------------------------------------

const char* StatusText(int status) {
  switch (status) {
    case kOk: return "ok";
    case kAfter: return "not found; positioned on the next key";
    case kEof: return "end of table";
    case kBof: return "start of table";
    case kNotOpen: return "table not open";
    case kNoSuchTag: return "no such index tag";
    case kNoSuchField: return "no such field";
    case kBadFieldSpec: return "bad field definition";
    case kBadTagSpec: return "bad index tag definition";
    case kBadExpression: return "key expression not understood";
    case kNoRecord: return "no current record";
    case kReadOnly: return "table opened read-only";
    case kNoTags: return "table has no index tag";
    case kFileMissing: return "table file missing";
    case kCannotCreate: return "cannot create table file";
    case kIoError: return "file read/write error";
    case kCorruptDbf: return "table file damaged";
    case kCorruptMdx: return "index file damaged";
    case kExists: return "table already exists";
    case kBadName: return "no location or bad table name";
    case kAlreadyOpen: return "table already open";
    case kTooLarge: return "table too large";
    default: return "unknown status";
  }
}

}  // namespace dbase
