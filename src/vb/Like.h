// The one wildcard rule used for site exclusions, DNS host masks and alert criteria.
#pragma once

#include <string>
#include <string_view>

namespace vb {

// True when the whole of `text` matches `pattern`: "*" any run of characters (also none), "?" any
// one character, "#" any one digit 0-9, "[abc]" one of the listed characters, "[a-z]" a range,
// "[!a-z]" any character not in the class; "[" "*" "?" "#" inside a class are literal, so "[*]"
// matches a star. Matching is case-sensitive and byte-wise. A malformed pattern (a "[" that is
// never closed, a range whose ends are reversed) matches nothing: returns false, never throws.
bool Like(std::string_view text, std::string_view pattern);

// True when `pattern` is well-formed (every "[" closed, ranges in order).
bool IsValidLikePattern(std::string_view pattern);

// A pattern prepared once for many texts (the host masks, tried on every new visit): Matches
// answers as Like does. Most texts fail on the pattern's fixed end (an address against
// "*.example.com"); that end is found once here instead of at every call.
class LikePattern {
 public:
  explicit LikePattern(std::string pattern);
  bool Matches(std::string_view text) const;
  const std::string& Text() const { return pattern_; }

 private:
  std::string pattern_;
  std::string tail_;        // the part after the last "*" (all of it without one)
  bool checkTail_ = false;  // false for a pattern with a class, whose tail is left to Like
};

}  // namespace vb
