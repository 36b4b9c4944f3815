// Clearing, splitting and filling of the hit fields.
#include "loginput/HitFields.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "vb/ShortCopy.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace loginput {

void ClearHitFields(HitFields& hits) {
  for (std::string* s : {&hits.clientAddress, &hits.userName, &hits.siteName,
                         &hits.serverAddress, &hits.method, &hits.page, &hits.query,
                         &hits.protocolVersion, &hits.userAgent, &hits.cookie, &hits.referrer}) {
    s->clear();
  }
  hits.computerName.clear();
  hits.computerName.push_back('2');
  hits.status = hits.systemStatus = hits.bytesSent = hits.bytesReceived = 0;
  hits.timeTaken = hits.serverPort = 0;
  hits.deferred.pending = false;
}

void SplitFields::Split(std::string_view line, char separator, int lastPlace) {
  count_ = 0;
  line_ = line.data();
  if (line.empty() || lastPlace < 0) return;
  // Lines beyond 4 GB do not occur (the reader cuts lines far shorter); offsets are 32-bit.
  const size_t wanted = static_cast<size_t>(lastPlace) + 1;
  // Room for one block of separators beyond the wanted field (see `take`).
  if (ends_.size() < wanted + 64) ends_.resize(wanted + 64);
  uint32_t* ends = ends_.data();
  size_t found = 0;
  const char* base = line.data();
  const size_t n = line.size();
  size_t i = 0;
  // Each separator ends one field; the field at `lastPlace` is complete once its own separator is
  // found, and the rest of the line is not looked at.
#if defined(__SSE2__)
  // Sixty-four bytes at a time: one bit per separator, visited lowest first.
  const __m128i sep = _mm_set1_epi8(separator);
  auto bits = [&](size_t at) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + at));
    return static_cast<uint64_t>(
        static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, sep))));
  };
  // Every separator of a block is noted, even beyond the wanted field (the ends have room for a
  // block more), so that the loop over them tests nothing else; whether the wanted field is
  // complete is asked once per block. Entries past `wanted` are never read.
  auto take = [&](uint64_t mask, size_t at) {
    while (mask != 0) {
      ends[found++] = static_cast<uint32_t>(at + static_cast<size_t>(__builtin_ctzll(mask)));
      mask &= mask - 1;
    }
    return found >= wanted;
  };
  for (; i + 64 <= n; i += 64) {
    if (take(bits(i) | bits(i + 16) << 16 | bits(i + 32) << 32 | bits(i + 48) << 48, i)) {
      count_ = static_cast<int>(wanted);
      return;
    }
  }
  for (; i + 16 <= n; i += 16) {
    if (take(bits(i), i)) {
      count_ = static_cast<int>(wanted);
      return;
    }
  }
#endif
  for (; i < n; ++i) {
    if (base[i] != separator) continue;
    ends[found++] = static_cast<uint32_t>(i);
    if (found == wanted) {
      count_ = static_cast<int>(found);
      return;
    }
  }
  ends[found++] = static_cast<uint32_t>(n);
  count_ = static_cast<int>(found);
}

namespace {

inline int32_t LeadingNumber(std::string_view text) {
  size_t i = 0;
  const size_t n = text.size();
  bool negative = false;
  if (i < n && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
  // Up to 18 digits cannot overflow 64 bits; more only matter as "beyond 32 bits".
  int64_t v = 0;
  size_t digits = 0;
  for (; i < n; ++i) {
    const unsigned d = static_cast<unsigned char>(text[i]) - unsigned{'0'};
    if (d > 9) break;
    if (++digits <= 18) v = v * 10 + d;
  }
  if (digits > 18) v = INT64_C(1) << 40;
  if (negative) v = -v;
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// out = v, reusing out's buffer: once the buffer has grown to the longest value seen, this
// allocates nothing.
// Inlined into its callers: it runs for every copied column of every hit, and the call itself
// (saving and restoring registers) cost a third of it.
[[gnu::always_inline]] inline void Put(std::string& out, std::string_view v) {
  const size_t n = v.size();
  if (n > out.capacity()) {
    out.assign(v.data(), n);
    return;
  }
  // Setting the length: a cut is inline; so is growing by a few characters one at a time, which
  // is how much a field usually differs from the same field on the line before.
  const size_t had = out.size();
  if (n <= had || n - had > 4) {
    out.resize(n);
  } else {
    for (size_t k = had; k < n; ++k) out.push_back('\0');
  }
  if (n <= 16) {
    vb::CopyShort(out.data(), v.data(), n);
  } else {
    std::memcpy(out.data(), v.data(), n);
  }
}

// The text fields that the hit processing reads, each with the slot that fills it (the page
// aside: it is copied first, see FillAnalysedHitFields).
constexpr std::pair<int, std::string HitFields::*> kAnalysedText[] = {
    {kClientAddress, &HitFields::clientAddress},
    {kUserName, &HitFields::userName},
    {kMethod, &HitFields::method},
    {kQuery, &HitFields::query},
    {kUserAgent, &HitFields::userAgent},
    {kReferrer, &HitFields::referrer},
};

}  // namespace

void FillAnalysedHitFields(const SplitFields& fields, const FieldMap& map, HitFields& hits) {
  FillHitPage(fields, map, hits);
  FillAnalysedHitFieldsButPage(fields, map, hits);
}

void FillHitPage(const SplitFields& fields, const FieldMap& map, HitFields& hits) {
  if (const int place = map[kPage]; place >= 0) Put(hits.page, fields[place]);
}

void FillAnalysedHitFieldsButPage(const SplitFields& fields, const FieldMap& map,
                                  HitFields& hits) {
  for (const auto& [slot, field] : kAnalysedText) {
    const int place = map[slot];
    if (place >= 0) Put(hits.*field, fields[place]);
  }
  if (const int place = map[kStatus]; place >= 0) hits.status = LeadingNumber(fields[place]);
}

void DeferAnalysedHitFields(std::string_view line, char separator, const FieldMap& map,
                            HitFields& hits) {
  HitFields::Deferred& d = hits.deferred;
  d.line.assign(line.data(), line.size());
  d.separator = separator;
  d.map = map;
  d.pending = true;
}

void SettleHitFields(const FieldMap& next, HitFields& hits) {
  HitFields::Deferred& d = hits.deferred;
  if (!d.pending) return;
  d.pending = false;
  // Nearly always the very same map (one compare of the whole map); else slot by slot.
  bool same = next.place == d.map.place;
  if (!same) {
    same = next[kStatus] == d.map[kStatus];
    for (const auto& entry : kAnalysedText) same = same && next[entry.first] == d.map[entry.first];
  }
  if (same) return;
  // Rare (a fields line after a dropped hit): the one split of a settle keeps no state.
  SplitFields fields;
  fields.Split(d.line, d.separator, AnalysedMaxPlace(d.map));
  FillAnalysedHitFieldsButPage(fields, d.map, hits);
}

int32_t ParseHitNumber(std::string_view text) { return LeadingNumber(text); }

int AnalysedMaxPlace(const FieldMap& map) {
  int last = std::max<int>(map[kTime], map[kStatus]);
  if (map.Has(kDate)) last = std::max(last, map[kDate] + 1);
  for (const auto& entry : kAnalysedText) last = std::max<int>(last, map[entry.first]);
  return std::max<int>(last, map[kPage]);
}

void FillHitFields(const SplitFields& fields, const FieldMap& map, HitFields& hits) {
  // The text fields and the numeric fields, each with the slot that fills it.
  static constexpr std::pair<int, std::string HitFields::*> kText[] = {
      {kClientAddress, &HitFields::clientAddress},
      {kUserName, &HitFields::userName},
      {kSiteName, &HitFields::siteName},
      {kComputerName, &HitFields::computerName},
      {kServerAddress, &HitFields::serverAddress},
      {kMethod, &HitFields::method},
      {kPage, &HitFields::page},
      {kQuery, &HitFields::query},
      {kProtocolVersion, &HitFields::protocolVersion},
      {kUserAgent, &HitFields::userAgent},
      {kCookie, &HitFields::cookie},
      {kReferrer, &HitFields::referrer},
  };
  static constexpr std::pair<int, int32_t HitFields::*> kNumbers[] = {
      {kStatus, &HitFields::status},
      {kSystemStatus, &HitFields::systemStatus},
      {kBytesSent, &HitFields::bytesSent},
      {kBytesReceived, &HitFields::bytesReceived},
      {kTimeTaken, &HitFields::timeTaken},
      {kServerPort, &HitFields::serverPort},
  };
  for (const auto& [slot, field] : kText) {
    const int place = map[slot];
    if (place >= 0) Put(hits.*field, fields[place]);
  }
  for (const auto& [slot, field] : kNumbers) {
    const int place = map[slot];
    if (place >= 0) hits.*field = LeadingNumber(fields[place]);
  }
}

}  // namespace loginput
