// Browser classification: turns the user-agent text of a hit into the short browser code that a
// visit carries.
#pragma once

#include <string>
#include <string_view>

namespace analysis {

// The browser code of `agent` (the agent text with its double quotes already removed). All tests
// are substring searches on an upper-cased, blank-trimmed copy, in this order: "MSIE" gives the
// character five places after the "M" followed by "IE"; "OPERA" gives "OP"; "MSPROXY" gives
// "MSProxy"; "MOZILLA/" gives the character at position 9 of the copy followed by "NS" when a "+"
// follows it, else the agent unchanged; "COMPATIBLE;" gives "OMPATIBLE;"; "TALLYO" gives "TY".
// With no match the agent is returned exactly as given. Never fails.
std::string SelectBrowser(std::string_view agent);
// The same into `out` (its buffer reused), with `upper` the agent already upper-cased
// (UpperAsciiInto): the hit processing shares that copy with the spider detection.
void SelectBrowserInto(std::string_view agent, std::string_view upper, std::string& out);

}  // namespace analysis
