// The state of an open table, shared by the files that implement dbase::Table: the .DBF, the
// index tags with their pending keys, the position, the record buffer and the tickets. Each
// file implements one part: Table.cpp the table's files and records, TableIndex.cpp the index
// as a whole (read, checked, rebuilt, written), TagMerge.cpp the gathering and merging of each
// tag's keys, FieldCodecs.cpp the field values, TableSeek.cpp seeks and movement.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dbase/DbfFile.h"
#include "dbase/KeyExpression.h"
#include "dbase/KeyFingerprints.h"
#include "dbase/KeyMemory.h"
#include "dbase/KeyRun.h"
#include "dbase/PageMemory.h"
#include "dbase/SpillFile.h"
#include "dbase/Table.h"
#include "dbase/TagIndex.h"
#include "vb/Strings.h"

namespace dbase {

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
  // The temporary file of the runs written out to keep within the key memory (made at the
  // first; declared before the runs, so that a run still being written is waited for before
  // the file goes), the memory of the last run written, kept for the next one, and whether a
  // write to the file failed (the tag then keeps its runs in memory).
  std::unique_ptr<SpillFile> spill;
  std::vector<KeyRun> spare;
  bool spillFailed = false;
  // Runs of gathered keys (declared after the index: a run still being sorted is waited for
  // before the index it sorts for goes away). They hold the keys of records merged+1..gatheredTo;
  // any later pending record is read back at the merge. A run's keys are those of its records
  // at their appends: a change of a record's key in this tag merges the tag's runs first
  // (ReplaceRecord), so no run, in memory or in the file, ever holds a key that is no longer
  // its record's.
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
// Short merges in a row after which deferring gives way to adding each key at once.
constexpr uint32_t kShortMergesToStop = 8;
// Gathered keys per run sorted on a helper thread.
constexpr size_t kRunRecords = 65536;
// Each spilled run is read back through a buffer of about this size when it is merged.
constexpr size_t kSpillReadBytes = 128 << 10;

struct Table::Impl {
  std::string location, stem;
  int shareMode = 0;
  bool rebuild = false;
  std::function<void(const std::string&)> sink;
  std::function<void(uint64_t)> indexProgress;  // told the .MDX entries as they are written
  std::vector<std::string> indexSpecs;
  HeaderDate headerDate;  // the date of the files' headers (default: today)
  // The budget of the gathered keys kept in memory (none: every run stays in memory), and the
  // folder of the tags' temporary files ("": the table's own).
  std::shared_ptr<KeyMemory> keyMemory;
  std::string spillFolder;

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
  // The size limit (SetSizeLimit); the records the table may hold under it, worked out at each
  // open (RecordsWithinLimit); whether the .MDX rather than the .DBF sets that number; and
  // whether an append was refused for it since the open (reported once, see Full).
  uint64_t sizeLimit = kMaxFileBytes;
  uint32_t recordLimit = 0;
  bool limitIsIndex = false;
  bool fullReported = false;
  void RecordsWithinLimit();
  int RefuseAppend();
  std::string DbfName() const { return vb::UCase(stem) + ".DBF"; }
  std::string MdxName() const { return vb::UCase(stem) + ".MDX"; }

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
      if (vb::EqualsNoCase(f[i].name, name)) return int(i);
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
  void GatherKey(Tag& t, uint32_t r, const char* key = nullptr);
  void HandOver(Tag& t, KeyRun& run);
  void SettleRun(Tag& t, KeyRun& run);
  void SettleSpills(Tag& t, bool all);
  void SettleRuns(Tag& t);
  int ReadBack(Tag& t, std::vector<KeyRun>& runs);
  int ReadKeys(const Tag& t, uint32_t from, uint32_t to, char* out);
  int PrepareToWrite(Tag& t);
  int MergeAll();
  int MergeSelected() { return selected >= 0 ? Merge(tags[size_t(selected)]) : int(kOk); }
  void StartFingerprints(Tag& t);
  void DropFingerprints(Tag& t);
  int SameKeyAs(const Tag& t, uint32_t holder, const char* key);
  uint32_t HolderByFingerprints(Tag& t, std::string_view key);
  bool DeferKey(Tag& t, uint32_t r, uint64_t h);
  bool SpotCheck(const Tag& t, std::string* why);
  bool FullCheck(const Tag& t, std::string* why);
  uint32_t FirstOtherHolder(const Tag& t, const char* key, uint32_t except);
  int WriteIndex();
  int SortKeys();
  std::vector<bool> FieldMdxFlags() const;
};

}  // namespace dbase
