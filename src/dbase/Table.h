// The table control: one dBASE IV table (a .DBF data file and its production .MDX index),
// addressed by folder + table name. Creating, opening, the record buffer, appends, replaces,
// seeks and movement in the order of an index tag.
//
// How it works, in short: records are appended to the .DBF through a write buffer and read back
// on demand, so a large table costs no memory for its records. Every index tag lives in memory
// as a B+tree of fixed-size keys; records appended since a tag was last used enter it when its
// order is next needed (one by one after a few appends, sorted in one batch after many). A
// unique tag whose order is used through tickets (SeekKeyAt) keeps fingerprints of its keys, so
// an append learns whether its key is new without a tree search and its key waits for a batch
// too. The .MDX is written whole (B-trees built bottom up, pages full) when the table is flushed or
// closed, and read whole when it is opened.
//
// No operation throws; those that can fail or miss return a dbase::Status (0 = success/found).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dbase/KeyMemory.h"
#include "dbase/Status.h"
#include "dbase/TableInfo.h"
#include "dbase/Today.h"

#include "vb/Dates.h"

namespace dbase {

// The largest file a dBASE reader opens: it addresses its files with signed 32-bit offsets.
// Neither file of a table may pass it (see Table::SetSizeLimit).
inline constexpr uint64_t kMaxFileBytes = 2147483647;

class Table {
 public:
  Table();
  ~Table();  // closes (writes everything) if open
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  // ---- where the table lives -------------------------------------------------------------
  // The folder of the table's files; ends with "/" (one is added when missing).
  void SetLocation(std::string folder);
  // The table name, e.g. "Visits". The files are the name upper-cased + ".DBF"/".MDX"; when
  // opening or dropping, existing files are found case-insensitively.
  void SetTableName(std::string stem);
  const std::string& Location() const;
  const std::string& TableName() const;
  // Accepted and kept; the engine works on files of its own process and does no locking.
  void SetShareMode(int mode);
  int ShareMode() const;
  void SetRebuild(bool rebuild);
  bool Rebuild() const;
  // Receives one line per notice (e.g. "index of VISOLD.DBF rebuilt: <why>"). May be empty.
  void SetNoticeSink(std::function<void(const std::string& message)> sink);
  // Tag definitions ("key0|IP + Site||U") to use when a table's .MDX is missing or cannot
  // be read and the index has to be rebuilt from the records. Without them such a table opens
  // with the tags that can still be read, or none.
  void SetIndexSpecs(std::vector<std::string> tagSpecs);
  // The date written into the headers of the table's files when they are created or written
  // (the .DBF's last-update date, the .MDX's dates). Not set: today's date (UTC). A caller
  // with a clock of its own sets it, so that the same input gives the same files.
  void SetHeaderDate(const HeaderDate& date);
  // The largest size either of the table's files may reach, in bytes: an append that would take
  // the .DBF (header, records and end-of-file byte) or the .MDX written for it past this size is
  // refused with kTooLarge (see Full). Default, and the most it can be: kMaxFileBytes. A lower
  // value lets a caller fill a table with a few records. Takes effect at once, also when open.
  void SetSizeLimit(uint64_t bytes);
  uint64_t SizeLimit() const;
  // The memory that the keys gathered for the tags may keep (KeyMemory.h), shared with the
  // other tables given the same budget; beyond it full runs of keys go to a temporary file of
  // their tag, in `spillFolder` ("": the table's location), and come back when merged. The
  // files written are the same either way. Not set: every run stays in memory. Takes effect
  // for the runs filled from then on. A temporary file that cannot be made or written is
  // reported as a failed write (WriteFailed), and its keys stay in memory.
  void SetKeyMemory(std::shared_ptr<KeyMemory> budget, std::string spillFolder = "");

  // ---- files -----------------------------------------------------------------------------
  // Deletes STEM.DBF and STEM.MDX (any case) in the location, if present. Returns kOk also when
  // nothing was there; kBadName without a location or for an empty stem; kIoError when a file
  // exists but cannot be deleted. When this control has that very table open, it is closed
  // (written) first.
  int DropTable(std::string_view stem);
  // Creates the empty table files from field definitions ("IP|C|15", "name|type|width[|decimals]",
  // types C, N, D) and tag definitions ("key0|IP + Site||U|": name|expression|filter|U/N|D, trailing
  // parts may be missing). Does not open the table. Existing files of the same name are
  // replaced. Returns kOk, or kBadFieldSpec / kBadTagSpec / kBadExpression (nothing written),
  // kBadName, kAlreadyOpen, kCannotCreate / kIoError (nothing left half-written).
  int CreateTable(const std::vector<std::string>& fieldSpecs,
                  const std::vector<std::string>& tagSpecs);
  // Opens the table read-write. Reads the production .MDX; when it is missing, stale or damaged
  // the index is rebuilt from the records (a notice goes to the sink) and written back at the
  // next flush/close. Returns kOk, kFileMissing, kCorruptDbf (also when the record count in
  // the header disagrees with the file size), kIoError, kBadName, kAlreadyOpen.
  // The current record is the top of the first tag's order.
  int OpenTable();
  // The same without any writing: every change returns kReadOnly, and a rebuilt index stays in
  // memory only. Every key of the .MDX is compared with its record (opened for writing, the
  // tree's structure, its counts and a spread of records are). A .DBF shorter than its header's record count is read up to its last whole
  // record, with a notice.
  int OpenTableReadOnly();
  bool IsOpen() const;
  bool IsReadOnly() const;
  // Writes everything (records, .DBF header with record count, end-of-file mark, .MDX) and
  // closes. Harmless when not open.
  void CloseTable();
  // Writes everything and stays open. Returns kOk, kNotOpen or kIoError (also kept for the
  // next FlushTable: nothing is dropped).
  int FlushTable();
  // The work of the next flush or close that needs the processor, done now (a caller closing
  // several tables sorts them on several threads, and writes them one at a time): the keys
  // gathered since each tag's last use are sorted into runs, and pending records of tags
  // without gathered keys go into their trees. The tags' orders are not built: runs spilled to
  // temporary files stay there, and the writing merges them straight into the .MDX. Returns
  // kOk, kNotOpen or kIoError; does nothing for a read-only table.
  int SortKeys();
  // True when a write to the table's files failed since it was last opened (a full disk, an I/O
  // error): its files then do not hold every record. Kept after closing, until the next open.
  bool WriteFailed() const;
  // True when an append was refused since the table was last opened because the table would
  // have passed its size limit (SetSizeLimit): the table holds the records it held then, and
  // every further append is refused too. The first refusal tells the notice sink, once per open:
  // "PAGES.DBF is full: it holds 18,512 records, and one more would take it past 2,147,483,647
  // bytes, ...". Kept after closing, until the next open.
  bool Full() const;
  // Follows the writing of the .MDX (at a flush or the close): told, on the thread that writes,
  // how many index entries were written since it was last told, every 65,536 entries of a tag
  // and at each tag's end (see MdxWriter.h). It should only count. May be empty (the default).
  void SetIndexProgress(std::function<void(uint64_t entries)> progress);
  // The index tags of the open table (0 when closed). Unlike Tags(), sorts nothing in.
  int TagCount() const;

  // ---- order -----------------------------------------------------------------------------
  // Positions at the top of the current order (same as GoTop).
  void ResetTable();
  // Makes the tag of that name (case-insensitive) the order for seeks and movement; "" selects
  // record-number order. The default after opening is the first tag. Returns kOk or kNoSuchTag
  // (the order is then unchanged).
  int SelectTag(std::string_view tag);
  // The selected tag's name ("" for record-number order).
  std::string SelectedTag() const;

  // ---- fields ----------------------------------------------------------------------------
  int FieldIndex(std::string_view name) const;  // case-insensitive; -1 when unknown
  int FieldCount() const;
  std::vector<FieldInfo> Fields() const;
  std::vector<TagInfo> Tags() const;
  TableInfo Info() const;

  // ---- the record buffer -----------------------------------------------------------------
  // The buffer holds the current record after every positioning; BlankRecord empties it.
  void BlankRecord();  // all blanks, not deleted; the position is unchanged
  // Appends the buffer as a new record and updates every tag; the new record becomes the
  // current one. A duplicate key in a unique tag: the record is stored, only the first record
  // with that key is indexed (kOk). Returns kOk, kNotOpen, kReadOnly, kIoError, or kTooLarge
  // when the record would take a file past the size limit (nothing changes then: the buffer and
  // the position stay as they were). Costs one comparison for the limit.
  int AppendRecord();
  // Writes the buffer over the current record and updates every tag. Returns kOk, kNotOpen,
  // kReadOnly, kNoRecord (no current record), kIoError.
  int ReplaceRecord();
  // Sets the deleted flag of the buffer (written by AppendRecord/ReplaceRecord). Deleted
  // records stay in every tag.
  void SetDeleted(bool deleted);
  bool Deleted() const;  // the buffer's deleted flag

  // By field index (fast). REQUIRES: 0 <= field < FieldCount(); otherwise the getters return
  // blank/0 and the setters do nothing.
  // The raw field bytes, blank-padded to the width; the view is valid until the buffer next
  // changes (a positioning, a Set..., BlankRecord).
  std::string_view GetText(int field) const;
  void SetText(int field, std::string_view v);  // any type: cut or blank-padded, stored as is
  double GetNumber(int field) const;           // 'N': its value; blank or not a number -> 0
  // 'N': rounded to the field's decimals, right-aligned. A value too wide for the field is
  // stored as the nearest value that fits (e.g. 999 for width 3), never as asterisks.
  void SetNumber(int field, double v);
  vb::Date GetDate(int field) const;           // 'D': the day; blank or invalid -> 0
  bool DateIsBlank(int field) const;           // 'D': eight blanks (or unreadable)
  void SetDate(int field, vb::Date d);         // 'D': yyyymmdd of the date part; 0 -> blank
  void SetDateBlank(int field);

  // By field name (case-insensitive, slower). An unknown name: getters give blank/0, setters
  // return kNoSuchField and change nothing.
  std::string_view GetText(std::string_view name) const;
  int SetText(std::string_view name, std::string_view v);
  double GetNumber(std::string_view name) const;
  int SetNumber(std::string_view name, double v);
  vb::Date GetDate(std::string_view name) const;
  bool DateIsBlank(std::string_view name) const;
  int SetDate(std::string_view name, vb::Date d);

  // ---- seeks and movement in the selected tag --------------------------------------------
  // Exact seek. A key shorter than the tag's key length is blank-padded, a longer one cut.
  // kOk: positioned on the first record with that key; kAfter: positioned on the next key in
  // order; kEof: past the end. kNotOpen, kNoTags.
  int SeekKey(std::string_view key);
  // First key at or after the key in index order, comparing only the key's length (a prefix):
  // kOk when the record it stands on starts with the key, kAfter when it stands on a later
  // key, kEof past the end.
  int SeekNear(std::string_view key);
  // Moves n records in the current order (n < 0 backwards). kOk; kEof: ran off the end (past
  // the end, no current record); kBof: ran off the start (on the first record). From past the
  // end, Skip(-1) reaches the last record. kNotOpen.
  int Skip(long n = 1);
  int GoTop();     // first record in the current order; kEof for an empty table
  int GoBottom();  // last record in the current order; kEof for an empty table
  // Positions on physical record recno (1-based). kOk, kEof when out of range, kNotOpen.
  int GoTo(long recno);
  bool Eof() const;        // past the end (or nothing to stand on)
  long RecordCount() const;  // records in the table, deleted ones included
  long RecNo() const;      // 1-based physical number of the current record, 0 when none
  // The key of the buffer in the selected tag ("" in record-number order).
  std::string CurrentKey() const;
  // The key of the tag entry that a seek, near seek or move in the selected tag left the table
  // standing on, as the tag holds it, read from the index without reading the record. Empty when
  // the table does not stand on an entry, or the tag has changed since. Valid until the next
  // operation on the table.
  std::string_view EntryKey() const;

  // ---- finding an appended record again without a search ---------------------------------
  // Right after a successful AppendRecord: a ticket (> 0) naming the record that holds the new
  // record's key in the selected tag, when that tag is unique: the new record itself when no
  // other record held the key, else the record that does (the one SeekKey finds), known at the
  // append from the tag's tree or its key fingerprints; 0 otherwise (no tag, a tag that is not
  // unique, or the key not yet added).
  uint64_t AppendTicket() const;
  // Exact seek with the same outcome as SeekKey(key). When `ticket` (from AppendTicket) is
  // still good, i.e. no change since could have moved a unique tag's entry to another record,
  // the tag is still selected and the ticket's record still has `key`, it positions on that
  // record without a search; otherwise (ticket 0 included) it does SeekKey(key).
  int SeekKeyAt(std::string_view key, uint64_t ticket);
  // A hint, changing nothing: SeekKeyAt with this ticket comes soon, so the ticket's record is
  // fetched into the processor's cache now (when it is in memory) while other work goes on.
  void PrefetchTicket(uint64_t ticket) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dbase
