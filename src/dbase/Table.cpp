// The table control: a .DBF with its production .MDX, its record buffer and its tag order.
// Here: where the table lives, creating, opening, flushing and closing its files, the choice of
// order, and the record operations (append, replace).
#include "dbase/Table.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "dbase/AtomicWrite.h"
#include "dbase/FieldSpec.h"
#include "dbase/MdxFormat.h"
#include "dbase/MdxWriter.h"
#include "dbase/TableState.h"
#include "platform/Files.h"
#include "vb/Strings.h"

namespace dbase {

// ---- properties ----------------------------------------------------------------------------

Table::Table() : impl_(std::make_unique<Impl>()) {}
Table::~Table() { CloseTable(); }

void Table::SetHeaderDate(const HeaderDate& date) {
  impl_->headerDate = date;
  impl_->dbf.SetHeaderDate(date);
}

void Table::SetKeyMemory(std::shared_ptr<KeyMemory> budget, std::string spillFolder) {
  if (!spillFolder.empty() && spillFolder.back() != '/') spillFolder += '/';
  impl_->keyMemory = std::move(budget);
  impl_->spillFolder = std::move(spillFolder);
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
void Table::SetSizeLimit(uint64_t bytes) {
  impl_->sizeLimit = std::min(bytes, kMaxFileBytes);
  if (impl_->open) impl_->RecordsWithinLimit();
}
uint64_t Table::SizeLimit() const { return impl_->sizeLimit; }

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
  if (m.open && vb::EqualsNoCase(stem, m.stem)) CloseTable();
  int status = kOk;
  for (const char* ext : {".DBF", ".MDX"}) {
    std::string path = platform::FindFileCI(m.location, vb::UCase(stem) + ext).value_or("").string();
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
    std::string old = platform::FindFileCI(m.location, vb::UCase(m.stem) + ext).value_or("").string();
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
  std::string path = platform::FindFileCI(location, DbfName()).value_or("").string();
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
  fullReported = false;
  readOnly = ro;
  indexDirty = false;
  indexRebuilt = false;
  flushStatus = kOk;
  buf.assign(size_t(dbf.RecordLength()), ' ');
  loaded = true;
  tags.clear();

  // The index: read from the .MDX; rebuilt from the records when it is missing, damaged or
  // does not match the records.
  mdxPath = platform::FindFileCI(location, MdxName()).value_or("").string();
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
  RecordsWithinLimit();
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
bool Table::Full() const { return impl_->fullReported; }

// ---- the size limit ------------------------------------------------------------------------
//
// A dBASE reader addresses a file with signed 32-bit offsets, so neither file of a table may
// pass 2,147,483,647 bytes (or the lower limit set). The .DBF's size after n records is exact:
// header + n x record length + the end-of-file byte. The .MDX's is projected as if every
// record had an entry in every tag, laid out as WriteMdx lays them out: a unique tag holds at
// most one entry per record, so the real file is never larger, whatever the records hold and
// however they are replaced later. (A unique tag with few distinct keys makes the projection
// larger than the file will be; only a table whose tags take more room than its records is
// stopped by it, and then a little early.) Both sizes grow with n, so the records a table may
// hold are worked out once per open, and an append costs one comparison.

void Table::Impl::RecordsWithinLimit() {
  limitIsIndex = false;
  const uint64_t fixed = uint64_t(dbf.Header().headerLength) + 1;
  const uint64_t length = uint64_t(std::max(1, dbf.RecordLength()));
  uint64_t most = sizeLimit < fixed ? 0 : (sizeLimit - fixed) / length;
  most = std::min<uint64_t>(most, 0xFFFFFFFEu);  // the header's count is 32 bits
  if (!tags.empty()) {
    std::vector<int> keyLengths;
    for (const Tag& t : tags) keyLengths.push_back(t.expr.KeyLength());
    const auto fits = [&](uint64_t n) {
      return MdxFileBytes(keyLengths, std::vector<uint64_t>(keyLengths.size(), n)) <= sizeLimit;
    };
    if (most > 0 && !fits(most)) {
      // The largest n that fits, by halving: fits(lo) holds (or lo is 0), fits(hi) does not.
      limitIsIndex = true;
      uint64_t lo = 0, hi = most;
      while (hi - lo > 1) {
        const uint64_t mid = lo + (hi - lo) / 2;
        (fits(mid) ? lo : hi) = mid;
      }
      most = lo;
    }
  }
  recordLimit = uint32_t(most);
}

namespace {

// 18512 -> "18,512".
std::string Grouped(uint64_t n) {
  std::string digits = std::to_string(n), out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

}  // namespace

int Table::Impl::RefuseAppend() {
  appendTicket = 0;
  if (!fullReported) {
    fullReported = true;
    const std::string what = limitIsIndex ? "could take its index " + MdxName() : "would take it";
    const std::string limit =
        sizeLimit == kMaxFileBytes ? ", the largest file a dBASE reader opens"
                                   : ", the size limit set for the table's files";
    Notice(DbfName() + " is full: it holds " + Grouped(dbf.RecordCount()) +
           " records, and one more " + what + " past " + Grouped(sizeLimit) + " bytes" + limit +
           ".");
  }
  return kTooLarge;
}

void Table::SetIndexProgress(std::function<void(uint64_t entries)> progress) {
  impl_->indexProgress = std::move(progress);
}

int Table::TagCount() const { return impl_->open ? int(impl_->tags.size()) : 0; }

int Table::SortKeys() {
  Impl& m = *impl_;
  if (!m.open) return kNotOpen;
  if (m.readOnly) return kOk;
  return m.SortKeys();
}

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
    if (vb::EqualsNoCase(m.tags[i].name, tag)) found = int(i);
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
  // The records the size limit allows were worked out at the open (or when the limit was set).
  if (m.dbf.RecordCount() >= m.recordLimit) [[unlikely]]
    return m.RefuseAppend();
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
      // The tree is not needed while the fingerprints prove the tickets: deferred keys are
      // gathered like those of a tag not in use, and may go to the tag's temporary file too.
      m.GatherKey(t, r, m.deferKey.data());
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
      // The new record is its key's entry when nobody held the key, else the holder stays it:
      // a ticket names that entry, and can prove it later.
      const uint32_t holder = t.index->InsertUnique(key.data(), r);
      if (selected) m.appendTicket = (m.uniqueEpoch << 32) | (holder == 0 ? r : holder);
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


}  // namespace dbase
