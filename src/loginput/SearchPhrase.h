// The cleaner that turns the text of a search phrase into plain words for the search-phrase
// handling of the hit processing.
#pragma once

#include <string>
#include <string_view>

namespace loginput {

// 1. Every "%20", then every "%22", becomes a blank. 2. Every character whose code is below 48,
// above 122, from 58 to 64 or from 92 to 96 becomes a blank, in place. Code 91 ("[") is not in
// those ranges and survives, as do digits and letters: "x[y]" gives "x[y ". Never throws.
std::string CleanSearchPhrase(std::string_view text);

}  // namespace loginput
