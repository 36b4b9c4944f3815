// Wildcard matching: "*", "?", "#", and bracketed character classes.
#include "vb/Like.h"

#include <cstddef>
#include <utility>

namespace vb {
namespace {

// Length of the class starting at p[i] == '[' (up to and including "]"), 0 when it is never
// closed or holds a reversed range. Inside a class every character but "]" is literal; a leading
// "!" negates; a "-" between two characters makes a range, at either end it is literal.
size_t ClassLength(std::string_view p, size_t i) {
  size_t j = i + 1;
  if (j < p.size() && p[j] == '!') ++j;
  while (j < p.size() && p[j] != ']') {
    if (j + 2 < p.size() && p[j + 1] == '-' && p[j + 2] != ']') {
      if (static_cast<unsigned char>(p[j]) > static_cast<unsigned char>(p[j + 2])) return 0;
      j += 3;
    } else {
      ++j;
    }
  }
  if (j >= p.size()) return 0;
  return j - i + 1;
}

// True when c belongs to the class p[i .. i+len) (len from ClassLength).
bool ClassMatches(std::string_view p, size_t i, size_t len, char c) {
  size_t j = i + 1;
  const size_t end = i + len - 1;  // the "]"
  bool negate = false;
  if (j < end && p[j] == '!') {
    negate = true;
    ++j;
  }
  const unsigned char u = static_cast<unsigned char>(c);
  bool found = false;
  while (j < end) {
    if (j + 2 < end && p[j + 1] == '-') {
      if (u >= static_cast<unsigned char>(p[j]) && u <= static_cast<unsigned char>(p[j + 2])) found = true;
      j += 3;
    } else {
      if (p[j] == c) found = true;
      ++j;
    }
  }
  return found != negate;
}

// The part of a pattern after its last "*" (all of it without one).
std::string_view TailOf(std::string_view pattern) {
  const size_t star = pattern.rfind('*');
  return star == std::string_view::npos ? pattern : pattern.substr(star + 1);
}

// Whether the end of `text` fits `tail`, a tail without a class.
bool EndFits(std::string_view text, std::string_view tail) {
  if (tail.size() > text.size()) return false;
  const std::string_view end = text.substr(text.size() - tail.size());
  for (size_t i = 0; i < tail.size(); ++i) {
    const char pc = tail[i], c = end[i];
    if (pc == '?') continue;
    if (pc == '#' ? !(c >= '0' && c <= '9') : pc != c) return false;
  }
  return true;
}

// A quick necessary condition: the part of the pattern after its last "*" stands for exactly as
// many characters at the end of the text, one each, so those characters are checked first (most
// texts a mask is tried on fail here, e.g. an address against "*.example.com"). A tail with a
// pattern with a class anywhere ("[]" stands for no character, "[*]" for a star) is not checked
// here.
bool TailFits(std::string_view text, std::string_view pattern) {
  if (pattern.find('[') != std::string_view::npos) return true;
  return EndFits(text, TailOf(pattern));
}

}  // namespace

bool IsValidLikePattern(std::string_view pattern) {
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '[') {
      const size_t len = ClassLength(pattern, i);
      if (len == 0) return false;
      i += len - 1;
    }
  }
  return true;
}

bool Like(std::string_view text, std::string_view pattern) {
  // A malformed pattern is an error for the run-time; here it simply matches nothing, so that a
  // bad exclusion or mask in a configuration file never stops a scan.
  // (A pattern without "[" is always well-formed, and only such patterns are checked by
  // TailFits, so testing the tail first answers the same.)
  if (!TailFits(text, pattern)) return false;
  if (!IsValidLikePattern(pattern)) return false;

  const size_t n = text.size(), m = pattern.size();
  size_t t = 0, p = 0;
  size_t starP = std::string_view::npos, starT = 0;
  while (t < n) {
    if (p < m) {
      const char pc = pattern[p];
      if (pc == '*') {
        while (p < m && pattern[p] == '*') ++p;
        starP = p;
        starT = t;
        continue;
      }
      if (pc == '[' && p + 1 < m && pattern[p + 1] == ']') {  // "[]" matches the empty string
        p += 2;
        continue;
      }
      bool ok;
      size_t step = 1;
      if (pc == '?') {
        ok = true;
      } else if (pc == '#') {
        ok = text[t] >= '0' && text[t] <= '9';
      } else if (pc == '[') {
        step = ClassLength(pattern, p);
        ok = ClassMatches(pattern, p, step, text[t]);
      } else {
        ok = pc == text[t];
      }
      if (ok) {
        p += step;
        ++t;
        continue;
      }
    }
    if (starP == std::string_view::npos) return false;
    p = starP;
    t = ++starT;
  }
  while (p < m) {
    if (pattern[p] == '*') {
      ++p;
    } else if (pattern[p] == '[' && p + 1 < m && pattern[p + 1] == ']') {
      p += 2;
    } else {
      break;
    }
  }
  return p == m;
}

LikePattern::LikePattern(std::string pattern)
    : pattern_(std::move(pattern)),
      tail_(TailOf(pattern_)),
      checkTail_(pattern_.find('[') == std::string::npos) {}

bool LikePattern::Matches(std::string_view text) const {
  if (checkTail_ && !EndFits(text, tail_)) return false;
  return Like(text, pattern_);
}

}  // namespace vb
