// Spider detection (see Spider.h).
#include "analysis/Spider.h"

#include <array>
#include <cstdint>

#include "analysis/Text.h"
#include "vb/Strings.h"

namespace analysis {
namespace {

struct Rule {
  std::array<std::string_view, 8> words;  // any of these in the upper-cased agent
  std::string_view result;                // "" = the agent itself
};

// In order: the first rule with a word in the agent gives the result.
constexpr Rule kRules[] = {
    {{"MERCATOR", "SCOOTER"}, "AltaVista"},
    {{"SLURP", "INKTOMI"}, "Inktomi"},
    {{"GOOGLE"}, "Google"},
    {{"GULLIVER"}, "NorthernLight"},
    {{"INTERNETSEER"}, "InternetSeer"},
    {{"JEEVES"}, "Ask Jeeves"},
    {{"LYCOS"}, "Lycos"},
    {{"INFOSEEK"}, "InfoSeek"},
    {{"ARCHITEXTSPIDER"}, "Excite"},
    {{"REALNAMES"}, "Realnames"},
    {{"PICSEARCH"}, "PicSearch"},
    {{"DIRECTHIT"}, "DirectHit"},
    {{"ROBOZILLA"}, "Open Directory"},
    {{"SITECHECK"}, "SiteCheck"},
    {{"PINGALINK"}, "PingALink"},
};
constexpr Rule kLateRules[] = {
    {{"MIRAGOROBOT"}, "Mirago"},
    {{"ROBOT", "SPIDER", "CRAWLER"}, ""},
    {{"ESISMART", "MAXBOT", ".IP3000.COM", "ESISMARTSPIDER", "FAST-", "IA_ARCHIVER", "WEBTOP",
      "MUSCATFERRET"},
     "All Others"},
};
// One whole agent, with real blanks, that a crawler of the Inktomi network sent.
constexpr std::string_view kInktomiAgent = "MOZILLA/4.72 [EN] (X11; U; NETBSD 1.4.2 I386; NAV)";

// The pairs of neighbouring characters of an upper-cased agent, as a 512-bit set: a rule word
// can only occur in the agent when all its pairs are in the set, so most words are ruled out
// without a search.
class PairSet {
 public:
  explicit PairSet(std::string_view u) {
    for (size_t i = 1; i < u.size(); ++i) Add(u[i - 1], u[i]);
  }
  bool MayHold(std::string_view w) const {
    for (size_t i = 1; i < w.size(); ++i)
      if (!Has(w[i - 1], w[i])) return false;
    return true;
  }

 private:
  static unsigned Bit(char a, char b) {
    return (static_cast<unsigned char>(a) * 31u + static_cast<unsigned char>(b)) & 511u;
  }
  void Add(char a, char b) {
    const unsigned k = Bit(a, b);
    bits_[k >> 6] |= uint64_t{1} << (k & 63);
  }
  bool Has(char a, char b) const {
    const unsigned k = Bit(a, b);
    return (bits_[k >> 6] >> (k & 63) & 1) != 0;
  }
  uint64_t bits_[8] = {};
};

bool AnyWord(std::string_view u, const PairSet& pairs, const Rule& r) {
  for (std::string_view w : r.words)
    if (!w.empty() && pairs.MayHold(w) && u.find(w) != std::string_view::npos) return true;
  return false;
}

}  // namespace

std::string DetectSpider(std::string_view agent, std::string_view address,
                         const startup::RobotList& robots) {
  std::string name;
  DetectSpiderInto(agent, vb::UCase(agent), address, robots, name);
  return name;
}

void DetectSpiderInto(std::string_view agent, std::string_view u, std::string_view address,
                      const startup::RobotList& robots, std::string& out) {
  if (SpiderByAgentRules(agent, u, out)) return;
  if (SpiderByRobotList(agent, u, address, robots)) out.assign("Auto Detected");
}

bool SpiderByAgentRules(std::string_view agent, std::string_view u, std::string& out) {
  const PairSet pairs(u);
  for (const Rule& r : kRules)
    if (AnyWord(u, pairs, r)) {
      out.assign(r.result);
      return true;
    }
  if (u == kInktomiAgent) {
    out.assign("Inktomi");
    return true;
  }
  for (const Rule& r : kLateRules)
    if (AnyWord(u, pairs, r)) {
      out.assign(r.result.empty() ? agent : r.result);
      return true;
    }
  out.clear();
  return false;
}

bool SpiderByRobotList(std::string_view agent, std::string_view u, std::string_view address,
                       const startup::RobotList& robots) {
  // The robot list: by address, or by a stored agent found in the upper-cased agent (a stored
  // agent with lower-case letters can therefore only match through its address). An entry with
  // an empty agent matches by address only: an empty text would be found in every agent.
  if (agent.size() < 2) return false;
  for (int32_t i = 1; i <= robots.count && static_cast<size_t>(i) < robots.entries.size(); ++i)
    if (robots.entries[static_cast<size_t>(i)].address == address) return true;
  return RobotAgentIn(u, robots);
}

bool RobotAgentIn(std::string_view u, const startup::RobotList& robots) {
  bool pairsMade = false;
  PairSet pairs({});
  for (int32_t i = 1; i <= robots.count && static_cast<size_t>(i) < robots.entries.size(); ++i) {
    const startup::RobotEntry& e = robots.entries[static_cast<size_t>(i)];
    if (e.agent.empty()) continue;
    if (!pairsMade) {
      pairs = PairSet(u);
      pairsMade = true;
    }
    if (pairs.MayHold(e.agent) && u.find(e.agent) != std::string::npos) return true;
  }
  return false;
}

}  // namespace analysis
