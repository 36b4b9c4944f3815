// Search-phrase cleaning.
#include "loginput/SearchPhrase.h"

namespace loginput {
namespace {

void ReplaceAll(std::string& s, std::string_view find, char with) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    if (s.compare(i, find.size(), find) == 0) {
      out.push_back(with);
      i += find.size();
    } else {
      out.push_back(s[i++]);
    }
  }
  s.swap(out);
}

}  // namespace

std::string CleanSearchPhrase(std::string_view text) {
  std::string s(text);
  // 1. Encoded blanks and double quotes, in this order.
  ReplaceAll(s, "%20", ' ');
  ReplaceAll(s, "%22", ' ');
  // 2. Everything but digits, letters and the opening bracket (91) becomes a blank.
  for (char& ch : s) {
    const int c = static_cast<unsigned char>(ch);
    if (c < 48 || c > 122 || (c >= 58 && c <= 64) || (c >= 92 && c <= 96)) ch = ' ';
  }
  return s;
}

}  // namespace loginput
