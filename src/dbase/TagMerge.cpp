// The keys of each index tag between its uses: gathered at the appends into runs sorted aside,
// merged into the tag's tree when its order is next needed, moved when a record's key changed,
// and, for a unique tag used through tickets, deferred behind fingerprints of its keys.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <future>

#include "dbase/KeyMerge.h"
#include "dbase/TableState.h"
#include "vb/Strings.h"

namespace dbase {

// The key of record r (just appended, still in the buffer) joins the tag's gathered keys when
// it follows on from them; a full run is handed over (HandOver). A gap (keys that went another
// way since the last merge) ends the gathering until the next merge: the records after it are
// read back then, as without runs.
// `key`: the record's key when it is known already.
void Table::Impl::GatherKey(Tag& t, uint32_t r, const char* key) {
  if (std::max(t.merged, t.gatheredTo) != r - 1) return;
  const size_t k = size_t(t.expr.KeyLength()), es = k + 4;
  // A run that was handed over, or sealed, takes no more keys.
  if (t.runs.empty() || t.runs.back().work.valid() || t.runs.back().isSorted ||
      t.runs.back().sealed || t.runs.back().count == kRunRecords) {
    // The memory of the last run written to the file serves again; without memory for a run
    // the key is simply not gathered, and the merge reads it back.
    KeyRun run;
    if (!t.spare.empty()) {
      run.TakeMemory(t.spare.back());
      t.spare.pop_back();
    } else if (!run.Reserve(kRunRecords * es)) {
      return;
    }
    try {
      t.runs.push_back(std::move(run));
    } catch (const std::exception&) {
      return;
    }
  }
  KeyRun& run = t.runs.back();
  char* const e = run.entries + run.count * es;
  if (key) std::memcpy(e, key, k);
  else t.expr.Evaluate(buf.data(), e);
  std::memcpy(e + k, &r, 4);
  ++run.count;
  t.gatheredTo = r;
  if (run.count == kRunRecords) HandOver(t, run);
}

// A full run goes to a helper thread to be sorted while the scan goes on. It stays in memory
// while the key memory's budget has room for it; otherwise the helper writes it, sorted, to
// the tag's temporary file, and its memory serves the tag's next run. One run per tag is being
// written at a time: the appends wait for the one before, so the memory of runs on their way
// to the file stays bounded whatever the disk's speed.
void Table::Impl::HandOver(Tag& t, KeyRun& run) {
  // 1. The run written before this one is done (its memory becomes the spare).
  SettleSpills(t, true);
  // 2. Kept, or written out: a table without a budget keeps every run; a tag whose file
  //    failed keeps them too (the failure was reported).
  bool spill = false;
  if (keyMemory) {
    if (t.spillFailed) keyMemory->Take(run.bytes);
    else spill = !keyMemory->TryTake(run.bytes);
    if (!spill) run.Count(keyMemory.get());
  }
  if (spill && !t.spill) {
    auto file = std::make_unique<SpillFile>();
    const std::string folder = spillFolder.empty() ? location : spillFolder;
    if (const int error = file->Open(folder, vb::UCase(stem) + "-" + t.name + ".SPILL"); error != 0) {
      t.spillFailed = true;
      WriteFailed(kIoError, error, "The temporary file of the keys of " + MdxName() + " in " + folder);
      spill = false;
      keyMemory->Take(run.bytes);
      run.Count(keyMemory.get());
    } else {
      t.spill = std::move(file);
    }
  }
  // 3. The sort reads only the index's order rules, which never change, and entries that this
  //    thread no longer touches until the run is settled; the file's offsets are claimed here,
  //    so writes of runs never overlap. Without a thread (or memory for one) the run stays
  //    unsorted and in memory, and the merge sorts it.
  const TagIndex* const order = t.index.get();
  const SpillFile* const file = spill ? t.spill.get() : nullptr;
  char* const entries = run.entries;
  const size_t n = run.count, bytes = n * (size_t(t.expr.KeyLength()) + 4);
  const uint64_t offset = spill ? t.spill->Claim(bytes) : 0;
  try {
    run.work = std::async(std::launch::async, [order, file, entries, n, bytes, offset] {
      order->SortEntries(entries, n);
      return file ? file->Write(entries, bytes, offset) : 0;
    });
    run.spilling = spill;
    run.fileOffset = offset;
  } catch (const std::exception&) {
    if (spill) {
      keyMemory->Take(run.bytes);
      run.Count(keyMemory.get());
    }
  }
}

// Takes the outcome of the helper's work on a handed-over run (waiting for it): sorted, and for
// a spilled run written, so its memory goes to the spare (or back to the system). A run the
// helper could not sort is sorted at the merge; a run it could not write stays in memory, and
// the failure is reported as any failed write of the table is (the run then cannot complete).
void Table::Impl::SettleRun(Tag& t, KeyRun& run) {
  if (!run.work.valid()) return;
  int error = 0;
  const bool spilled = std::exchange(run.spilling, false);
  try {
    error = run.work.get();
    run.isSorted = true;
  } catch (const std::exception&) {
    // No memory for the helper's sort: the run stays here, and the merge sorts it.
    if (spilled && keyMemory) {
      keyMemory->Take(run.bytes);
      run.Count(keyMemory.get());
    }
    return;
  }
  if (!spilled) return;
  if (error != 0) {
    if (!t.spillFailed)
      WriteFailed(kIoError, error,
                  "The temporary file of the keys of " + MdxName() + " in " +
                      (spillFolder.empty() ? location : spillFolder));
    t.spillFailed = true;
    if (keyMemory) {
      keyMemory->Take(run.bytes);
      run.Count(keyMemory.get());
    }
    return;
  }
  run.inFile = true;
  if (keyMemory) keyMemory->NoteSpilled(run.count * (size_t(t.expr.KeyLength()) + 4));
  if (t.spare.empty()) {
    KeyRun spare;
    spare.TakeMemory(run);
    t.spare.push_back(std::move(spare));
  } else {
    run.ReleaseMemory();
  }
}

// Settles the spilled runs whose writing is done (all of them when `all`).
void Table::Impl::SettleSpills(Tag& t, bool all) {
  for (KeyRun& run : t.runs)
    if (run.spilling && run.work.valid() &&
        (all || run.work.wait_for(std::chrono::seconds(0)) == std::future_status::ready))
      SettleRun(t, run);
}

// Every run of tag t settled and sorted: ready to be merged or written. The run still filling
// is sorted in place and takes no more keys.
void Table::Impl::SettleRuns(Tag& t) {
  for (KeyRun& run : t.runs) {
    SettleRun(t, run);
    if (!run.isSorted && !run.inFile) {
      t.index->SortEntries(run.entries, run.count, sortScratch);
      run.isSorted = true;
      run.sealed = true;
    }
  }
}

// The runs of `runs` that are in the tag's file come back into memory, and the file is
// emptied. kIoError when one cannot be read (the records are then read back from the table).
int Table::Impl::ReadBack(Tag& t, std::vector<KeyRun>& runs) {
  const size_t es = size_t(t.expr.KeyLength()) + 4;
  int status = kOk;
  for (KeyRun& run : runs) {
    if (!run.inFile || status != kOk) continue;
    if (!run.Reserve(std::max<size_t>(run.count, 1) * es)) return kIoError;
    if (const int error = t.spill->Read(run.entries, run.count * es, run.fileOffset); error != 0) {
      WriteFailed(kIoError, error, "The temporary file of the keys of " + MdxName());
      status = kIoError;
    }
    run.inFile = false;
  }
  if (t.spill) t.spill->Clear();
  return status;
}

// The keys of records from..to (from <= to) of tag t, each followed by its record number, into
// `out`, in record order.
int Table::Impl::ReadKeys(const Tag& t, uint32_t from, uint32_t to, char* out) {
  const size_t k = size_t(t.expr.KeyLength()), es = k + 4, rl = size_t(dbf.RecordLength());
  char* const chunk = mergeChunk.Reserve(size_t(std::min(kScanChunk, to - from + 1)) * rl);
  for (uint32_t at = from; at <= to; at += kScanChunk) {
    const uint32_t cnt = std::min(kScanChunk, to - at + 1);
    if (int s = dbf.ReadRange(at, cnt, chunk); s != kOk) return s;
    for (uint32_t i = 0; i < cnt; ++i) {
      char* e = out + size_t(at - from + i) * es;
      t.expr.Evaluate(chunk + size_t(i) * rl, e);
      const uint32_t r = at + i;
      std::memcpy(e + k, &r, 4);
    }
  }
  return kOk;
}

namespace {

// Merges sorted runs of entries (key, then record number), handing each entry to `out` in the
// tag's order, ties by record number (EntryMerger).
template <class Out>
void MergeRuns(const TagIndex& order, const std::vector<std::pair<const char*, size_t>>& runs,
               Out&& out) {
  const size_t es = size_t(order.KeyLength()) + 4;
  std::vector<MergeSource> sources;
  for (const auto& [entries, n] : runs)
    if (n > 0) sources.push_back(MergeSource{entries, entries + n * es, {}});
  if (sources.size() == 1) {
    for (const char* e = sources[0].at; e != sources[0].end; e += es) out(e);
    return;
  }
  EntryMerger merger(order, std::move(sources));
  for (const char* e; (e = merger.Next()) != nullptr;) out(e);
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

// Adds the records appended since the last merge to tag t. The appends themselves only store
// the records: the keys are computed, sorted and added here, when the tag's order is first
// needed (a seek, a move, a replace, a flush). A few records go in one by one; a large batch
// is sorted in one go and, when the tag holds fewer entries than the batch, merged with them
// and built bottom up. Ties are ordered by record number, and a unique tag keeps only the
// first record of a key.
int Table::Impl::MergeAppended(Tag& t) {
  const uint32_t n = dbf.RecordCount();
  t.appendsSinceUse = 0;
  // The gathered keys are taken over by this merge (a run still being sorted is waited for when
  // `runs` goes out of scope, whichever way this returns).
  std::vector<KeyRun> runs;
  runs.swap(t.runs);
  for (KeyRun& run : runs) SettleRun(t, run);
  const uint32_t gathered = runs.empty() ? t.merged : std::max(t.merged, t.gatheredTo);
  t.gatheredTo = 0;
  if (t.merged >= n) {
    if (t.spill) t.spill->Clear();
    return kOk;
  }
  const uint32_t first = t.merged + 1, count = n - t.merged;
  const size_t k = size_t(t.expr.KeyLength()), es = k + 4, rl = size_t(dbf.RecordLength());
  // Deferred keys are wanted by the tree again soon after each merge, time after time: the
  // deferring costs more than it saves, so each key goes in at its append again.
  if (t.fingerprints) {
    t.shortMerges = count < kShortMerge ? t.shortMerges + 1 : 0;
    if (t.shortMerges >= kShortMergesToStop) DropFingerprints(t);
  }
  if (count <= kSmallBatch) {
    if (t.spill) t.spill->Clear();  // a run this small was never written out
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
  // Runs written out to the tag's file come back (a use of the order of a tag whose keys
  // were spilled: rare, and read back whole).
  if (int s = ReadBack(t, runs); s != kOk) return s;
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
  if (readFrom <= n)
    if (int s = ReadKeys(t, readFrom, n, readInto); s != kOk) return s;
  if (mergeChunk.Capacity() > kKeptMergeBytes) mergeChunk.Release();
  if (runs.empty()) {
    t.index->SortEntries(batch, count, sortScratch);
  } else {
    std::vector<std::pair<const char*, size_t>> sorted;
    for (KeyRun& run : runs) {
      // The run still filling, and one the helper thread could not sort (no memory).
      if (!run.isSorted) t.index->SortEntries(run.entries, run.count, sortScratch);
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
// hash h) is looked up there; a new key makes r its holder, and the ticket names the holder
// either way. The key enters
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
  appendTicket = (uniqueEpoch << 32) | (holder == 0 ? r : holder);
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

}  // namespace dbase
