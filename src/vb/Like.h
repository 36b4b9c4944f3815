// The one wildcard rule used for site exclusions, DNS host masks and alert criteria.
#pragma once

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

}  // namespace vb
