// Clearing, splitting and filling of the hit fields.
#include "loginput/HitFields.h"

#include <cstring>

namespace loginput {

void ClearHitFields(HitFields& hits) {
  for (std::string* s : {&hits.clientAddress, &hits.userName, &hits.siteName,
                         &hits.serverAddress, &hits.method, &hits.page, &hits.query,
                         &hits.protocolVersion, &hits.userAgent, &hits.cookie, &hits.referrer}) {
    s->clear();
  }
  hits.computerName.assign("2");
  hits.status = hits.systemStatus = hits.bytesSent = hits.bytesReceived = 0;
  hits.timeTaken = hits.serverPort = 0;
}

void SplitFields::Split(std::string_view line, char separator, int lastPlace) {
  parts_.clear();
  if (line.empty() || lastPlace < 0) return;
  const char* p = line.data();
  const char* end = p + line.size();
  for (;;) {
    const void* hit = std::memchr(p, separator, static_cast<size_t>(end - p));
    const char* q = hit ? static_cast<const char*>(hit) : end;
    parts_.emplace_back(p, static_cast<size_t>(q - p));
    if (!hit || static_cast<int>(parts_.size()) > lastPlace) return;
    p = q + 1;
  }
}

int32_t ParseHitNumber(std::string_view text) {
  size_t i = 0;
  bool negative = false;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
  int64_t v = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    v = v * 10 + (text[i] - '0');
    if (v > INT64_C(0x80000000)) v = INT64_C(0x80000000);
  }
  if (negative) v = -v;
  if (v > INT32_MAX) v = INT32_MAX;
  if (v < INT32_MIN) v = INT32_MIN;
  return static_cast<int32_t>(v);
}

void FillHitFields(const SplitFields& fields, const FieldMap& map, HitFields& hits) {
  auto text = [&](int slot, std::string& out) {
    if (map.Has(slot)) {
      std::string_view v = fields[map[slot]];
      out.assign(v.data(), v.size());
    }
  };
  auto number = [&](int slot, int32_t& out) {
    if (map.Has(slot)) out = ParseHitNumber(fields[map[slot]]);
  };
  text(kClientAddress, hits.clientAddress);
  text(kUserName, hits.userName);
  text(kSiteName, hits.siteName);
  text(kComputerName, hits.computerName);
  text(kServerAddress, hits.serverAddress);
  text(kMethod, hits.method);
  text(kPage, hits.page);
  text(kQuery, hits.query);
  number(kStatus, hits.status);
  number(kSystemStatus, hits.systemStatus);
  number(kBytesSent, hits.bytesSent);
  number(kBytesReceived, hits.bytesReceived);
  number(kTimeTaken, hits.timeTaken);
  number(kServerPort, hits.serverPort);
  text(kProtocolVersion, hits.protocolVersion);
  text(kUserAgent, hits.userAgent);
  text(kCookie, hits.cookie);
  text(kReferrer, hits.referrer);
}

}  // namespace loginput
