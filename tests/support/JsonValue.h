// A small strict JSON reader for tests that read a program's JSON output: it proves the text is
// one valid JSON value (strings must be well-formed, escapes valid) and lets a test look values up.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tytest {

struct JsonValue {
  enum Kind { Null, Bool, Number, String, Array, Object } kind = Null;
  bool boolean = false;
  double number = 0;
  std::string text;  // UTF-8
  std::vector<JsonValue> items;
  std::map<std::string, JsonValue> members;

  // Member `key` of an object; throws std::runtime_error when absent.
  const JsonValue& operator[](const std::string& key) const {
    auto it = members.find(key);
    if (kind != Object || it == members.end()) throw std::runtime_error("no member " + key);
    return it->second;
  }
  // Item `i` of an array; throws std::out_of_range when there is none.
  const JsonValue& operator[](size_t i) const { return items.at(i); }
  bool Has(const std::string& key) const { return kind == Object && members.count(key) > 0; }
};

// Parses `text` as exactly one JSON value (blanks around it allowed). Throws std::runtime_error
// naming the offset of the first fault.
inline JsonValue ParseJson(const std::string& text) {
  struct Parser {
    const std::string& s;
    size_t p = 0;
    [[noreturn]] void Fail(const std::string& why) {
      throw std::runtime_error("JSON: " + why + " at offset " + std::to_string(p));
    }
    void Blanks() {
      while (p < s.size() && (s[p] == ' ' || s[p] == '\n' || s[p] == '\r' || s[p] == '\t')) ++p;
    }
    void Expect(char c) {
      Blanks();
      if (p >= s.size() || s[p] != c) Fail(std::string("expected ") + c);
      ++p;
    }
    void Utf8(uint32_t cp, std::string& out) {
      if (cp < 0x80) {
        out += static_cast<char>(cp);
      } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      }
    }
    uint32_t Hex4() {
      if (p + 4 > s.size()) Fail("short \\u escape");
      uint32_t v = 0;
      for (int i = 0; i < 4; ++i) {
        char c = s[p++];
        v <<= 4;
        if (c >= '0' && c <= '9')
          v |= static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
          v |= static_cast<uint32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
          v |= static_cast<uint32_t>(c - 'A' + 10);
        else
          Fail("bad \\u escape");
      }
      return v;
    }
    std::string Str() {
      Expect('"');
      std::string out;
      for (;;) {
        if (p >= s.size()) Fail("unterminated string");
        unsigned char c = static_cast<unsigned char>(s[p++]);
        if (c == '"') return out;
        if (c < 0x20) Fail("control character in string");
        if (c == '\\') {
          if (p >= s.size()) Fail("unterminated escape");
          char e = s[p++];
          switch (e) {
            case '"':
              out += '"';
              break;
            case '\\':
              out += '\\';
              break;
            case '/':
              out += '/';
              break;
            case 'b':
              out += '\b';
              break;
            case 'f':
              out += '\f';
              break;
            case 'n':
              out += '\n';
              break;
            case 'r':
              out += '\r';
              break;
            case 't':
              out += '\t';
              break;
            case 'u': {
              uint32_t cp = Hex4();
              if (cp >= 0xD800 && cp < 0xDC00) {
                if (p + 2 > s.size() || s[p] != '\\' || s[p + 1] != 'u') Fail("lone surrogate");
                p += 2;
                uint32_t lo = Hex4();
                if (lo < 0xDC00 || lo > 0xDFFF) Fail("bad surrogate pair");
                cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
              } else if (cp >= 0xDC00 && cp < 0xE000) {
                Fail("lone surrogate");
              }
              Utf8(cp, out);
              break;
            }
            default:
              Fail("bad escape");
          }
        } else if (c < 0x80) {
          out += static_cast<char>(c);
        } else {
          // A UTF-8 sequence: its lead byte and continuation bytes must agree.
          int extra = (c >= 0xF0 && c <= 0xF4)  ? 3
                      : (c >= 0xE0)             ? 2
                      : (c >= 0xC2 && c < 0xE0) ? 1
                                                : -1;
          if (extra < 0 || c > 0xF4) Fail("bad UTF-8");
          out += static_cast<char>(c);
          for (int i = 0; i < extra; ++i) {
            if (p >= s.size() || (static_cast<unsigned char>(s[p]) & 0xC0) != 0x80)
              Fail("bad UTF-8");
            out += s[p++];
          }
        }
      }
    }
    JsonValue Value() {
      Blanks();
      if (p >= s.size()) Fail("unexpected end");
      JsonValue v;
      char c = s[p];
      if (c == '{') {
        ++p;
        v.kind = JsonValue::Object;
        Blanks();
        if (p < s.size() && s[p] == '}') {
          ++p;
          return v;
        }
        for (;;) {
          Blanks();
          std::string key = Str();
          Expect(':');
          v.members[key] = Value();
          Blanks();
          if (p < s.size() && s[p] == ',') {
            ++p;
            continue;
          }
          Expect('}');
          return v;
        }
      }
      if (c == '[') {
        ++p;
        v.kind = JsonValue::Array;
        Blanks();
        if (p < s.size() && s[p] == ']') {
          ++p;
          return v;
        }
        for (;;) {
          v.items.push_back(Value());
          Blanks();
          if (p < s.size() && s[p] == ',') {
            ++p;
            continue;
          }
          Expect(']');
          return v;
        }
      }
      if (c == '"') {
        v.kind = JsonValue::String;
        v.text = Str();
        return v;
      }
      if (s.compare(p, 4, "true") == 0) {
        p += 4;
        v.kind = JsonValue::Bool;
        v.boolean = true;
        return v;
      }
      if (s.compare(p, 5, "false") == 0) {
        p += 5;
        v.kind = JsonValue::Bool;
        return v;
      }
      if (s.compare(p, 4, "null") == 0) {
        p += 4;
        return v;
      }
      // A number: -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
      size_t start = p;
      if (s[p] == '-') ++p;
      auto digits = [&] {
        size_t d = p;
        while (p < s.size() && s[p] >= '0' && s[p] <= '9') ++p;
        if (p == d) Fail("bad number");
      };
      if (p < s.size() && s[p] == '0')
        ++p;
      else
        digits();
      if (p < s.size() && s[p] == '.') {
        ++p;
        digits();
      }
      if (p < s.size() && (s[p] == 'e' || s[p] == 'E')) {
        ++p;
        if (p < s.size() && (s[p] == '+' || s[p] == '-')) ++p;
        digits();
      }
      v.kind = JsonValue::Number;
      v.number = std::stod(s.substr(start, p - start));
      return v;
    }
  };
  Parser parser{text};
  JsonValue v = parser.Value();
  parser.Blanks();
  if (parser.p != text.size()) parser.Fail("trailing text");
  return v;
}

}  // namespace tytest
