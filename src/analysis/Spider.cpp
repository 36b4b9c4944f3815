// Spider detection (see Spider.h).
#include "analysis/Spider.h"

#include <array>

#include "analysis/Text.h"

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

bool AnyWord(std::string_view u, const Rule& r) {
  for (std::string_view w : r.words)
    if (!w.empty() && u.find(w) != std::string_view::npos) return true;
  return false;
}

}  // namespace

std::string DetectSpider(std::string_view agent, std::string_view address,
                         const startup::RobotList& robots) {
  const std::string u = UpperAscii(agent);
  for (const Rule& r : kRules)
    if (AnyWord(u, r)) return std::string(r.result);
  if (u == kInktomiAgent) return "Inktomi";
  for (const Rule& r : kLateRules)
    if (AnyWord(u, r)) return r.result.empty() ? std::string(agent) : std::string(r.result);
  // The robot list: by address, or by a stored agent found in the upper-cased agent (a stored
  // agent with lower-case letters can therefore only match through its address). An entry with
  // an empty agent matches by address only: an empty text would be found in every agent.
  if (agent.size() < 2) return {};
  for (int32_t i = 1; i <= robots.count && static_cast<size_t>(i) < robots.entries.size(); ++i) {
    const startup::RobotEntry& e = robots.entries[static_cast<size_t>(i)];
    if (e.address == address || (!e.agent.empty() && u.find(e.agent) != std::string::npos))
      return "Auto Detected";
  }
  return {};
}

}  // namespace analysis
