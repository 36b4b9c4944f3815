// Parsing of field and tag definition strings.
#include "dbase/FieldSpec.h"
#include "vb/Strings.h"
#include "vb/TrimBlanksAndTabs.h"

#include <charconv>
#include <vector>


namespace dbase {

static std::vector<std::string_view> SplitBar(std::string_view s) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (;;) {
    size_t bar = s.find('|', start);
    if (bar == std::string_view::npos) {
      parts.push_back(vb::TrimBlanksAndTabs(s.substr(start)));
      return parts;
    }
    parts.push_back(vb::TrimBlanksAndTabs(s.substr(start, bar - start)));
    start = bar + 1;
  }
}

static bool ReadInt(std::string_view s, int& v) {
  if (s.empty()) return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), v);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool IsValidName(std::string_view name) {
  if (name.empty() || name.size() > 10) return false;
  auto alpha = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  if (!alpha(name[0])) return false;
  for (char c : name)
    if (!alpha(c) && !(c >= '0' && c <= '9') && c != '_') return false;
  return true;
}

int ParseFieldSpec(std::string_view text, FieldInfo& out) {
  std::vector<std::string_view> p = SplitBar(text);
  if (p.size() < 2 || p.size() > 4 || !IsValidName(p[0]) || p[1].size() != 1) return kBadFieldSpec;
  FieldInfo f;
  f.name = vb::UCase(p[0]);
  f.type = vb::UCase(p[1])[0];
  bool hasWidth = p.size() >= 3 && !p[2].empty();
  if (hasWidth && !ReadInt(p[2], f.width)) return kBadFieldSpec;
  if (p.size() == 4 && !p[3].empty() && !ReadInt(p[3], f.decimals)) return kBadFieldSpec;
  switch (f.type) {
    case 'C':
      if (!hasWidth || f.width < 1 || f.width > 254 || f.decimals != 0) return kBadFieldSpec;
      break;
    case 'N':
      if (!hasWidth || f.width < 1 || f.width > 20) return kBadFieldSpec;
      if (f.decimals < 0 || (f.decimals > 0 && f.decimals > f.width - 2)) return kBadFieldSpec;
      break;
    case 'D':
      if (!hasWidth) f.width = 8;
      if (f.width != 8 || f.decimals != 0) return kBadFieldSpec;
      break;
    default:
      return kBadFieldSpec;
  }
  out = f;
  return kOk;
}

int ParseTagSpec(std::string_view text, TagSpec& out) {
  std::vector<std::string_view> p = SplitBar(text);
  if (p.size() < 2 || p.size() > 5 || !IsValidName(p[0]) || p[1].empty()) return kBadTagSpec;
  TagSpec t;
  t.name = vb::UCase(p[0]);
  t.expression = std::string(p[1]);
  if (p.size() > 2 && !p[2].empty()) return kBadTagSpec;  // FOR filters are not supported
  if (p.size() > 3) {
    std::string u = vb::UCase(p[3]);
    if (u == "U") t.unique = true;
    else if (!u.empty() && u != "N") return kBadTagSpec;
  }
  if (p.size() > 4) {
    std::string d = vb::UCase(p[4]);
    if (d == "D") t.descending = true;
    else if (!d.empty() && d != "A") return kBadTagSpec;
  }
  out = t;
  return kOk;
}

}  // namespace dbase
