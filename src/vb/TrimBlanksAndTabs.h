// Trimming for text that people write by hand: settings files and the table and tag definitions.
#pragma once

#include <string_view>

namespace vb {

// `s` without leading and trailing blanks and tabs. Deliberately not the run-time's Trim, which
// removes blanks only: in a file written with an editor a tab is as good as a blank and must not
// become part of a name or value, while in log fields and table fields (vb::Trim's text) a tab
// is data and stays.
inline std::string_view TrimBlanksAndTabs(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

}  // namespace vb
