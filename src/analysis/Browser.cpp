// Browser classification (see Browser.h). Positions in the comments are 1-based, counted in the
// upper-cased copy `u`.
#include "analysis/Browser.h"

#include "analysis/Text.h"
#include "vb/Strings.h"

namespace analysis {

std::string SelectBrowser(std::string_view agent) {
  std::string code;
  SelectBrowserInto(agent, vb::UCase(agent), code);
  return code;
}

void SelectBrowserInto(std::string_view agent, std::string_view upper, std::string& out) {
  // 1. The result starts as the agent exactly as it came.
  // 2. U = the agent upper-cased, then trimmed of blanks.
  const std::string_view u = vb::Trim(upper);

  // 3. "MSIE" at p: the character at p + 5 (the major version after "MSIE" and its separator).
  if (size_t p = u.find("MSIE"); p != std::string_view::npos) {
    out.assign(MidChar(u, p + 5));
    out += "IE";
    return;
  }
  // 4. Opera.
  if (u.find("OPERA") != std::string_view::npos) {
    out.assign("OP");
    return;
  }
  // 5. The proxy's own agent word, in its mixed-case spelling.
  if (u.find("MSPROXY") != std::string_view::npos) {
    out.assign("MSProxy");
    return;
  }
  // 6. "MOZILLA/" followed somewhere by a "+" (logs write an agent's blanks as "+"): the character
  //    at the fixed position 9 of U, not 9 after the match. Agents that put text before
  //    "Mozilla/" therefore get another character; that is how the codes have always been built.
  if (size_t p = u.find("MOZILLA/"); p != std::string_view::npos) {
    if (u.find('+', p) != std::string_view::npos) {
      out.assign(MidChar(u, 8));
      out += "NS";
      return;
    }
    out.assign(agent);
    return;
  }
  // 7. "COMPATIBLE;" at p: the text from p + 1 up to the first ";" found after p. That ";" is the
  //    one that closes "COMPATIBLE;" itself, so the code is always "OMPATIBLE;". The code is kept
  //    so because earlier databases hold it.
  if (size_t p = u.find("COMPATIBLE;"); p != std::string_view::npos) {
    size_t q = u.find(';', p + 1);
    if (q != std::string_view::npos) {
      out.assign(u.substr(p + 1, q - p));
      return;
    }
  }
  // 8. The monitoring product's own probe.
  else if (u.find("TALLYO") != std::string_view::npos) {
    out.assign("TY");
    return;
  }
  // 9. No rule: the agent unchanged.
  out.assign(agent);
}

}  // namespace analysis
