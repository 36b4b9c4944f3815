// Parsing and evaluation of index key expressions.
#include "dbase/KeyExpression.h"
#include "vb/Strings.h"
#include "vb/TrimBlanksAndTabs.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>


namespace dbase {

namespace {

// A tiny scanner over the expression text.
struct Scanner {
  std::string_view s;
  size_t i = 0;
  void SkipBlanks() {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
  }
  bool Eat(char c) {
    SkipBlanks();
    if (i < s.size() && s[i] == c) {
      ++i;
      return true;
    }
    return false;
  }
  std::string_view Ident() {
    SkipBlanks();
    size_t start = i;
    while (i < s.size() && ((s[i] >= 'A' && s[i] <= 'Z') || (s[i] >= 'a' && s[i] <= 'z') ||
                            (s[i] >= '0' && s[i] <= '9') || s[i] == '_'))
      ++i;
    return s.substr(start, i - start);
  }
  bool Int(int& v) {
    SkipBlanks();
    size_t start = i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
    if (i == start || i - start > 4) return false;
    std::from_chars(s.data() + start, s.data() + i, v);
    return true;
  }
  bool AtEnd() {
    SkipBlanks();
    return i == s.size();
  }
};

const FieldInfo* FindField(const std::vector<FieldInfo>& fields, std::string_view name) {
  for (const FieldInfo& f : fields)
    if (vb::EqualsNoCase(f.name, name)) return &f;
  return nullptr;
}

}  // namespace

int KeyExpression::Parse(std::string_view text, const std::vector<FieldInfo>& fields) {
  Scanner sc{text};
  std::vector<Term> terms;
  std::string canon;
  int length = 0;
  do {
    std::string_view word = sc.Ident();
    if (word.empty()) return kBadExpression;
    Term t{};
    std::string part;
    if (sc.Eat('(')) {
      std::string fn = vb::UCase(word);
      std::string_view arg = sc.Ident();
      const FieldInfo* f = FindField(fields, arg);
      if (!f) return kBadExpression;
      t.offset = f->offset;
      t.width = f->width;
      if (fn == "DTOS") {
        if (f->type != 'D') return kBadExpression;
        t.kind = kDtos;
        t.outWidth = 8;
        part = "DTOS(" + f->name + ")";
      } else if (fn == "UPPER") {
        if (f->type != 'C') return kBadExpression;
        t.kind = kUpper;
        t.outWidth = f->width;
        part = "UPPER(" + f->name + ")";
      } else if (fn == "STR") {
        if (f->type != 'N') return kBadExpression;
        t.kind = kStr;
        t.outWidth = 10;
        t.decimals = 0;
        part = "STR(" + f->name;
        if (sc.Eat(',')) {
          if (!sc.Int(t.outWidth) || t.outWidth < 1) return kBadExpression;
          part += "," + std::to_string(t.outWidth);
          if (sc.Eat(',')) {
            if (!sc.Int(t.decimals) || t.decimals >= t.outWidth) return kBadExpression;
            part += "," + std::to_string(t.decimals);
          }
        }
        part += ")";
      } else {
        return kBadExpression;
      }
      if (!sc.Eat(')')) return kBadExpression;
    } else {
      const FieldInfo* f = FindField(fields, word);
      // A number or a date cannot be joined to text without STR()/DTOS().
      if (!f || f->type != 'C') return kBadExpression;
      t.kind = kField;
      t.offset = f->offset;
      t.width = f->width;
      t.outWidth = f->width;
      part = f->name;
    }
    length += t.outWidth;
    if (length > kMaxKeyLength) return kBadExpression;
    if (!canon.empty()) canon += " + ";
    canon += part;
    terms.push_back(t);
  } while (sc.Eat('+'));
  if (!sc.AtEnd() || canon.size() > size_t(kMaxTextLength)) return kBadExpression;
  terms_ = std::move(terms);
  text_ = std::move(canon);
  keyLength_ = length;
  return kOk;
}

void FormatStr(std::string_view fieldText, int width, int decimals, char* out) {
  std::string_view t = vb::TrimBlanksAndTabs(fieldText);
  char buf[64];
  int n = 0;
  // Fast path: a whole number without decimals wanted, the usual case.
  bool simple = decimals == 0 && t.size() < 19;
  int64_t iv = 0;
  if (simple) {
    size_t i = 0;
    bool neg = false;
    if (i < t.size() && (t[i] == '-' || t[i] == '+')) neg = t[i++] == '-';
    if (i == t.size() && !t.empty()) simple = false;
    for (; simple && i < t.size(); ++i) {
      if (t[i] < '0' || t[i] > '9') simple = false;
      else iv = iv * 10 + (t[i] - '0');
    }
    if (neg) iv = -iv;
  }
  if (simple) {
    n = static_cast<int>(std::to_chars(buf, buf + sizeof buf, iv).ptr - buf);
  } else {
    double v = 0;
    if (!t.empty()) {
      auto r = std::from_chars(t.data(), t.data() + t.size(), v);
      if (r.ec != std::errc()) v = 0;
    }
    double scale = std::pow(10.0, decimals);
    double rounded = std::round(v * scale) / scale;  // std::round: halves away from zero
    if (rounded == 0) rounded = 0;                   // no "-0"
    n = std::snprintf(buf, sizeof buf, "%.*f", decimals, rounded);
    if (n < 0 || n >= int(sizeof buf)) n = width + 1;
  }
  if (n > width) {
    std::memset(out, '*', size_t(width));
    return;
  }
  std::memset(out, ' ', size_t(width - n));
  std::memcpy(out + (width - n), buf, size_t(n));
}

void KeyExpression::Evaluate(const char* record, char* out) const {
  for (const Term& t : terms_) {
    const char* src = record + t.offset;
    switch (t.kind) {
      case kField:
      case kDtos:  // the date field's text is already yyyymmdd, or eight blanks
        std::memcpy(out, src, size_t(t.width));
        break;
      case kUpper:
        for (int i = 0; i < t.width; ++i) {
          char c = src[i];
          out[i] = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
        }
        break;
      case kStr:
        FormatStr(std::string_view(src, size_t(t.width)), t.outWidth, t.decimals, out);
        break;
    }
    out += t.outWidth;
  }
}

std::string KeyExpression::Evaluate(const char* record) const {
  std::string k(size_t(keyLength_), ' ');
  Evaluate(record, k.data());
  return k;
}

}  // namespace dbase
