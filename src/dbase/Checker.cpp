// Integrity check of a .DBF and its production .MDX.
#include "dbase/LittleEndian.h"
#include "dbase/Checker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "dbase/DbfFile.h"
#include "dbase/KeyExpression.h"
#include "dbase/MdxFormat.h"
#include "dbase/MdxReader.h"
#include "dbase/Status.h"
#include "platform/Files.h"
#include "vb/Dates.h"
#include "vb/Strings.h"

namespace dbase {

namespace {

constexpr size_t kMaxPerKind = 10;  // defects of one kind listed before summing up

bool ReadWholeFile(const std::string& path, std::string& out) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st{};
  bool ok = ::fstat(fd, &st) == 0;
  if (ok) {
    out.resize(size_t(st.st_size));
    size_t done = 0;
    while (ok && done < out.size()) {
      ssize_t n = ::read(fd, out.data() + done, out.size() - done);
      if (n <= 0) ok = false;
      else done += size_t(n);
    }
  }
  ::close(fd);
  return ok;
}

bool ValidNumber(std::string_view t, int decimals) {
  size_t i = 0;
  while (i < t.size() && t[i] == ' ') ++i;
  if (i == t.size()) return true;  // blank
  if (t[i] == '-') ++i;
  size_t digits = 0;
  while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i, ++digits;
  if (decimals > 0 && i < t.size() && t[i] == '.') {
    ++i;
    size_t frac = 0;
    while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i, ++frac;
    if (frac != size_t(decimals)) return false;
  }
  return digits > 0 && i == t.size();
}

bool ValidDate(std::string_view t) {
  if (t == "        ") return true;
  if (t.size() != 8) return false;
  for (char c : t)
    if (c < '0' || c > '9') return false;
  int y = std::stoi(std::string(t.substr(0, 4))), m = std::stoi(std::string(t.substr(4, 2))),
      d = std::stoi(std::string(t.substr(6, 2)));
  if (m < 1 || m > 12 || d < 1 || d > 31) return false;
  int yy, mm, dd;
  vb::CivilFromDays(vb::DaysFromCivil(y, m, d), yy, mm, dd);
  return yy == y && mm == m && dd == d;
}

// Counts defects of one kind and lists only the first few.
struct Tally {
  std::vector<std::string>& out;
  std::string kind;
  size_t count = 0;
  void Add(const std::string& d) {
    if (++count <= kMaxPerKind) out.push_back(d);
  }
  ~Tally() {
    if (count > kMaxPerKind)
      out.push_back("... " + std::to_string(count - kMaxPerKind) + " more: " + kind);
  }
};

}  // namespace

CheckReport CheckTable(const std::string& dbfPath) {
  CheckReport rep;
  auto& D = rep.defects;
  std::string data;
  if (!ReadWholeFile(dbfPath, data)) {
    D.push_back(dbfPath + ": cannot read the file (" + std::strerror(errno) + ")");
    return rep;
  }
  std::string stemFile = dbfPath.substr(dbfPath.find_last_of('/') + 1);
  std::string folder = dbfPath.substr(0, dbfPath.size() - stemFile.size());
  if (folder.empty()) folder = "./";
  std::string stem = stemFile.substr(0, stemFile.find_last_of('.'));
  if (stem.empty() || stem == stemFile) stem = stemFile;

  // ---- the .DBF ----
  DbfHeader h;
  std::string why;
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
  if (ParseDbfHeader(bytes, data.size(), h, &why) != kOk) {
    D.push_back(stemFile + ": " + why);
    return rep;
  }
  if (h.version != dbf::kVersion)
    D.push_back(stemFile + ": version byte " + std::to_string(h.version) + ", a table without memo has 3");
  size_t expectHeader = size_t(dbf::kHeaderSize + dbf::kDescriptorSize * h.fields.size() + 1);
  if (size_t(h.headerLength) != expectHeader)
    D.push_back(stemFile + ": header length " + std::to_string(h.headerLength) + ", " +
                std::to_string(h.fields.size()) + " fields need " + std::to_string(expectHeader));
  const uint64_t rl = uint64_t(h.recordLength);
  const uint64_t expectSize = uint64_t(h.headerLength) + uint64_t(h.recordCount) * rl + 1;
  const uint64_t whole = (data.size() - uint64_t(h.headerLength)) / rl;
  uint32_t n = h.recordCount;
  if (data.size() < expectSize - 1) {
    D.push_back(stemFile + ": the header counts " + std::to_string(h.recordCount) +
                " records but the file holds only " + std::to_string(whole));
    n = uint32_t(whole);
  } else if (data.size() == expectSize - 1) {
    D.push_back(stemFile + ": no end-of-file byte (0x1A) after the last record");
  } else {
    if (bytes[expectSize - 1] != dbf::kEofMark)
      D.push_back(stemFile + ": byte after the last record is not the end-of-file mark 0x1A");
    if (data.size() > expectSize)
      D.push_back(stemFile + ": " + std::to_string(data.size() - expectSize) +
                  " bytes after the end-of-file mark (the header counts " +
                  std::to_string(h.recordCount) + " records)");
  }
  rep.notes.push_back(stemFile + ": " + std::to_string(h.recordCount) + " records, " +
                      std::to_string(h.fields.size()) + " fields");
  {
    Tally flags{D, "records with a bad deleted flag"}, nums{D, "bad numeric fields"},
        dates{D, "bad date fields"};
    for (uint32_t r = 1; r <= n; ++r) {
      const char* rec = data.data() + h.headerLength + (r - 1) * rl;
      if (rec[0] != ' ' && rec[0] != '*')
        flags.Add(stemFile + ": record " + std::to_string(r) + " has deleted flag byte " +
                  std::to_string(int(static_cast<unsigned char>(rec[0]))));
      for (const FieldInfo& f : h.fields) {
        std::string_view t(rec + f.offset, size_t(f.width));
        if (f.type == 'N' && !ValidNumber(t, f.decimals))
          nums.Add(stemFile + ": record " + std::to_string(r) + " field " + f.name +
                   " is not a number: \"" + std::string(t) + "\"");
        if (f.type == 'D' && !ValidDate(t))
          dates.Add(stemFile + ": record " + std::to_string(r) + " field " + f.name +
                    " is not a date: \"" + std::string(t) + "\"");
      }
    }
  }

  // ---- the .MDX ----
  std::string mdxPath = platform::FindFileCI(folder, vb::UCase(stem) + ".MDX").value_or("").string();
  if (mdxPath.empty()) {
    if (h.productionMdx) D.push_back(stemFile + ": flags a production index but " +
                                     vb::UCase(stem) + ".MDX is missing");
    return rep;
  }
  std::string mdxName = mdxPath.substr(folder.size());
  if (!h.productionMdx) D.push_back(stemFile + ": " + mdxName + " exists but byte 28 is 0");
  MdxReader reader;
  if (reader.Open(mdxPath, &why) != kOk) {
    D.push_back(mdxName + ": " + why);
    return rep;
  }
  const MdxFileInfo& info = reader.Info();
  std::string head;
  ReadWholeFile(mdxPath, head);
  head.resize(std::max<size_t>(head.size(), size_t(mdx::kHeaderPages) * mdx::kPageSize), '\0');
  const auto* hb = reinterpret_cast<const unsigned char*>(head.data());
  if (info.version != mdx::kVersion) D.push_back(mdxName + ": version " + std::to_string(info.version));
  if (!vb::EqualsNoCase(info.dataName, stem))
    D.push_back(mdxName + ": names data file \"" + info.dataName + "\", not " + vb::UCase(stem));
  if (info.production != 1) D.push_back(mdxName + ": production flag is " + std::to_string(info.production));
  if (info.slots != mdx::kTagSlots) D.push_back(mdxName + ": " + std::to_string(info.slots) + " tag slots, 48 expected");
  if (uint64_t(info.pageCount) * mdx::kPageSize != info.fileSize)
    D.push_back(mdxName + ": header counts " + std::to_string(info.pageCount) + " pages, the file has " +
                std::to_string(info.fileSize / mdx::kPageSize) +
                (info.fileSize % mdx::kPageSize ? " and a part" : ""));
  if (hb[mdx::kTagTableOffset + mdx::kSlotRight] != 1)
    D.push_back(mdxName + ": tag table slot 0 does not point at slot 1");

  // Name tree as it should be: tags inserted in slot order under slot 1.
  std::vector<std::string> names;
  for (const MdxTagHeader& t : info.tags) {
    std::string nm = t.name;
    nm.resize(mdx::kSlotNameSize, '\0');
    names.push_back(nm);
  }
  std::vector<int> L(names.size() + 1, 0), R(names.size() + 1, 0), P(names.size() + 1, 0);
  for (size_t i = 1; i < names.size(); ++i) {
    size_t at = 1;
    for (;;) {
      bool left = std::memcmp(names[i].data(), names[at - 1].data(), mdx::kSlotNameSize) < 0;
      int& link = left ? L[at] : R[at];
      if (link == 0) {
        link = int(i + 1);
        P[i + 1] = int(at);
        break;
      }
      at = size_t(link);
    }
  }

  std::vector<uint8_t> used(size_t(info.fileSize / mdx::kPageSize) + 1, 0);
  for (int p = 0; p < mdx::kHeaderPages && size_t(p) < used.size(); ++p) used[size_t(p)] = 1;
  for (const MdxTagHeader& t : info.tags)
    for (int p = 0; p < info.pagesPerBlock; ++p)
      if (t.headerPage + uint32_t(p) < used.size()) {
        if (used[t.headerPage + uint32_t(p)] && p == 0)
          D.push_back(mdxName + ": tag " + t.name + "'s header block is used twice");
        used[t.headerPage + uint32_t(p)] = 1;
      }
  // Free list.
  for (uint32_t page = info.firstFree, guard = 0; page != 0 && guard < 1000000; ++guard) {
    std::vector<unsigned char> b;
    if (!reader.ReadBlock(page, b)) {
      D.push_back(mdxName + ": free list points at page " + std::to_string(page) + " outside the file");
      break;
    }
    if (used[page]) {
      D.push_back(mdxName + ": free block at page " + std::to_string(page) + " is also in use");
      break;
    }
    for (int p = 0; p < info.pagesPerBlock; ++p) used[page + uint32_t(p)] = 1;
    page = GetU32(&b[mdx::kNodeLink]);
  }

  bool allWalked = true;
  for (size_t ti = 0; ti < info.tags.size(); ++ti) {
    const MdxTagHeader& t = info.tags[ti];
    const std::string who = mdxName + " tag " + t.name + ": ";
    if (t.slotLeft != L[ti + 1] || t.slotRight != R[ti + 1] || t.slotParent != P[ti + 1])
      D.push_back(who + "name tree links " + std::to_string(t.slotLeft) + "/" +
                  std::to_string(t.slotRight) + "/" + std::to_string(t.slotParent) + ", expected " +
                  std::to_string(L[ti + 1]) + "/" + std::to_string(R[ti + 1]) + "/" +
                  std::to_string(P[ti + 1]));
    if (t.keyType != 'C' || t.slotKeyType != t.keyType)
      D.push_back(who + "key type '" + std::string(1, t.keyType) + "' (table entry '" +
                  std::string(1, t.slotKeyType) + "'); only character keys are used");
    if ((t.keyFormat & mdx::kFormatBase) == 0)
      D.push_back(who + "key format byte " + std::to_string(t.keyFormat) + " lacks 0x10");
    if (t.itemLength != mdx::ItemLength(t.keyLength))
      D.push_back(who + "item length " + std::to_string(t.itemLength) + ", key length " +
                  std::to_string(t.keyLength) + " needs " + std::to_string(mdx::ItemLength(t.keyLength)));
    int cap = (info.blockSize - mdx::kNodeOverhead) / t.itemLength;
    if (t.maxKeys != cap)
      D.push_back(who + "most keys per node " + std::to_string(t.maxKeys) + ", " + std::to_string(cap) + " fit");
    if (t.unique != (t.uniqueByte23 != 0))
      D.push_back(who + "unique flag in the key format and in byte 23 disagree");
    if (t.hasFilter) D.push_back(who + "has a FOR filter, which this table layout never uses");
    KeyExpression expr;
    bool exprOk = expr.Parse(t.expression, h.fields) == kOk;
    if (!exprOk) D.push_back(who + "key expression \"" + t.expression + "\" not understood");
    else if (expr.KeyLength() != t.keyLength)
      D.push_back(who + "key length " + std::to_string(t.keyLength) + " but \"" + t.expression +
                  "\" makes " + std::to_string(expr.KeyLength()));

    MdxTagWalk walk;
    bool walked = reader.Walk(ti, n, true, walk, D, &used);
    allWalked = allWalked && walked;
    if (walk.firstLeaf != 0 && t.firstLeaf != 0 && t.firstLeaf != walk.firstLeaf)
      D.push_back(who + "first-leaf page " + std::to_string(t.firstLeaf) + ", the tree's is " +
                  std::to_string(walk.firstLeaf));
    if (walk.lastLeaf != 0 && t.lastLeaf != 0 && t.lastLeaf != walk.lastLeaf)
      D.push_back(who + "last-leaf page " + std::to_string(t.lastLeaf) + ", the tree's is " +
                  std::to_string(walk.lastLeaf));
    rep.notes.push_back("tag " + t.name + " \"" + t.expression + "\": " + std::to_string(walk.count) +
                        " keys, " + std::to_string(walk.levels) + " level(s), " +
                        std::to_string(walk.nodes) + " node(s)");
    if (!walked || !exprOk || expr.KeyLength() != t.keyLength) continue;

    // Content: every entry's key is its record's key; every record (or, unique, the first
    // record of every key) has its entry.
    const size_t k = size_t(t.keyLength), es = k + 4;
    std::vector<char> keys(size_t(n) * k);
    for (uint32_t r = 1; r <= n; ++r)
      expr.Evaluate(data.data() + h.headerLength + (r - 1) * rl, &keys[size_t(r - 1) * k]);
    std::vector<uint8_t> seen(size_t(n) + 1, 0);
    Tally wrong{D, "entries whose key differs from their record"}, twice{D, "records indexed twice"},
        missing{D, "records missing from the tag"}, notFirst{D, "unique entries not at the first record"};
    for (size_t e = 0; e < walk.count; ++e) {
      const char* key = &walk.entries[e * es];
      uint32_t r;
      std::memcpy(&r, key + k, 4);
      if (r < 1 || r > n) continue;  // reported by the walk
      if (std::memcmp(key, &keys[size_t(r - 1) * k], k) != 0)
        wrong.Add(who + "entry of record " + std::to_string(r) + " holds key \"" + std::string(key, k) +
                  "\", the record's key is \"" + std::string(&keys[size_t(r - 1) * k], k) + "\"");
      if (seen[r]) twice.Add(who + "record " + std::to_string(r) + " is indexed twice");
      seen[r] = 1;
    }
    if (!t.unique) {
      for (uint32_t r = 1; r <= n; ++r)
        if (!seen[r]) missing.Add(who + "record " + std::to_string(r) + " is missing from the tag");
    } else {
      std::unordered_map<std::string_view, uint32_t> first;
      first.reserve(n);
      for (uint32_t r = 1; r <= n; ++r) first.emplace(std::string_view(&keys[size_t(r - 1) * k], k), r);
      for (uint32_t r = 1; r <= n; ++r) {
        uint32_t f = first[std::string_view(&keys[size_t(r - 1) * k], k)];
        if (f == r && !seen[r])
          missing.Add(who + "key \"" + std::string(&keys[size_t(r - 1) * k], k) + "\" of record " +
                      std::to_string(r) + " is missing from the unique tag");
        if (f != r && seen[r])
          notFirst.Add(who + "record " + std::to_string(r) + " is indexed, but record " +
                       std::to_string(f) + " has the same key first");
      }
    }
  }
  // Every block after the header belongs to a tag header, a node or the free list (only
  // known when every tree could be walked to its end).
  if (allWalked) {
    Tally orphans{D, "unused blocks"};
    size_t pages = std::min<size_t>(used.size(), info.pageCount);
    for (size_t p = size_t(mdx::kHeaderPages); p < pages; p += size_t(info.pagesPerBlock))
      if (!used[p]) orphans.Add(mdxName + ": block at page " + std::to_string(p) + " belongs to nothing");
  }
  return rep;
}

}  // namespace dbase
