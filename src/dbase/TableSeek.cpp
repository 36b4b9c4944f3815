// Seeks and movement of an open table in the order of its selected tag (or in record-number
// order), and finding an appended record again by its ticket.
#include <algorithm>
#include <cstring>

#include "dbase/TableState.h"

namespace dbase {

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
// was the selected unique tag's entry for the appended record's key (the appended record
// itself, or the earlier record holding that key). Entries of a unique tag pass from one
// record to another only when a replace changes a key in it, or the index is loaded afresh
// (an open), and a selection of another tag makes a ticket meaningless: each of these raises
// the epoch. With the epoch unchanged, recno is still the entry of its key, and its key has not
// changed (a change would have raised the epoch too). So if that key is the one sought,
// recno is the entry SeekKey would find: a unique tag holds one entry per key. A deferred key
// (see DeferKey) is no different: the fingerprints name the first record with that key, and
// the merge that puts it into the tree makes the first record of a key its entry. (A repeated
// key thus finds its holder without the tree too, which keeps a tag whose keys went to
// temporary files from being read back whole for it.)
void Table::PrefetchTicket(uint64_t ticket) const {
  const Impl& m = *impl_;
  if (m.open && ticket != 0) m.dbf.Prefetch(uint32_t(ticket & 0xffffffffu));
}

// The holder of a whole key of the selected unique tag t, named by its fingerprints while the
// tag defers its keys; 0 when they name none (or cannot tell, or the key is not whole). A ticket
// that cannot prove its record (its slot was taken by a later visit, an end without a ticket)
// is answered this way rather than by the ordinary seek, which would bring every deferred key
// into the tree and, for a tag whose keys went to temporary files, read them all back.
uint32_t Table::Impl::HolderByFingerprints(Tag& t, std::string_view key) {
  Impl& m = *this;
  const size_t k = size_t(t.expr.KeyLength());
  if (!t.fingerprints || !t.unique || key.size() < k) return 0;
  std::string& whole = m.deferKey;
  whole.assign(key.substr(0, k));
  const uint32_t holder =
      t.fingerprints->Find(KeyFingerprints::Hash(whole.data(), int(k)), [&](uint32_t rec) {
        return m.SameKeyAs(t, rec, whole.data());
      });
  return holder == UINT32_MAX ? 0 : holder;
}

int Table::SeekKeyAt(std::string_view key, uint64_t ticket) {
  Impl& m = *impl_;
  if (!m.open || m.selected < 0) return SeekKey(key);
  // 1. A ticket that cannot prove anything: the key's holder by the fingerprints, otherwise the
  //    ordinary seek.
  uint32_t recno = uint32_t(ticket & 0xffffffffu);
  if (ticket == 0 || (ticket >> 32) != m.uniqueEpoch || recno < 1 ||
      recno > m.dbf.RecordCount()) {
    recno = m.HolderByFingerprints(m.tags[size_t(m.selected)], key);
    if (recno == 0) return SeekKey(key);
  }
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
  // 4. The same key: standing on its entry. Otherwise the holder by the fingerprints, or the
  //    ordinary seek.
  if (std::memcmp(m.curKey.data(), m.scratch.data(), k) != 0) {
    const uint32_t holder = m.HolderByFingerprints(t, m.scratch);
    if (holder == 0 || holder == recno) return SeekKey(key);
    m.SetRecno(holder);
    m.EnsureLoaded();
    if (m.loadStatus != kOk) return SeekKey(key);
    m.EnsureCurKey();
  }
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


}  // namespace dbase
