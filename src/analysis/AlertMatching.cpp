// Alert matching (see AlertMatching.h).
#include "analysis/AlertMatching.h"

#include <algorithm>
#include <string>

#include "analysis/Text.h"
#include "loginput/SearchPhrase.h"
#include "vb/Like.h"
#include "vb/Strings.h"

namespace analysis {

int16_t MatchAlert(const startup::World& world, int16_t siteIndex, const database::Visit& visit) {
  try {
    // 1. The referrer, lower-cased (made when a definition of the site first needs it: a site
    //    without alert definitions costs nothing per visit).
    std::string r;
    bool referrerMade = false;
    auto referrer = [&]() -> const std::string& {
      if (!referrerMade) {
        LowerAsciiInto(visit.referrer, r);
        referrerMade = true;
      }
      return r;
    };
    std::string phrase;
    bool phraseMade = false;
    // 2. Every definition in list order.
    for (int a = 1; a <= world.alertCount; ++a) {
      const startup::Alert& al = world.alert(a);
      // 2.1 Only the site's enabled definitions.
      if (al.site != siteIndex || !al.enabled) continue;
      auto count = [](int16_t n) { return std::clamp<int>(n, 0, startup::kAlertListSlots); };
      // 2.2-2.3 Engine: all engines, or an engine entry in the referrer.
      bool engine = al.allEngines;
      if (!engine && !referrer().empty()) {
        for (int k = 1; k <= count(al.engineCount) && !engine; ++k)
          engine = vb::InStr(referrer(), al.engineList[static_cast<size_t>(k)]) > 0;
      }
      // 2.4 Page.
      bool page = al.pageCount == 0;
      for (int k = 1; k <= count(al.pageCount) && !page; ++k)
        page = vb::Like(visit.currentPage, al.pageList[static_cast<size_t>(k)]);
      // 2.5 DNS: the host name, or else the address.
      bool dns = al.dnsCount == 0;
      for (int k = 1; k <= count(al.dnsCount) && !dns; ++k) {
        const std::string& pattern = al.dnsList[static_cast<size_t>(k)];
        dns = vb::Like(visit.hostName, pattern) || vb::Like(visit.clientAddress, pattern);
      }
      // 2.6 Word: the k-th word followed by a blank, searched from position k of the phrase.
      bool word = al.wordCount == 0;
      if (!word && referrer().find('?') != std::string::npos) {
        if (!phraseMade) {
          phrase = loginput::CleanSearchPhrase(referrer());
          phraseMade = true;
        }
        for (int k = 1; k <= count(al.wordCount) && !word; ++k)
          word = vb::InStr(k, phrase, al.wordList[static_cast<size_t>(k)] + " ") > 0;
      }
      // 2.7 All four.
      if (engine && page && dns && word) return static_cast<int16_t>(a);
    }
  } catch (const std::exception&) {
    // A failure ends the matching with no alert for the visit.
  }
  // 3. None.
  return 0;
}

}  // namespace analysis
