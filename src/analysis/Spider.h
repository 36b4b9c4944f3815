// Spider detection: names the search engine or robot behind a hit from its user agent and client
// address, using the robot list learnt from "robots.txt" requests.
#pragma once

#include <string>
#include <string_view>

#include "startup/RobotList.h"

namespace analysis {

// The engine name of the first rule whose word occurs in the upper-cased agent (e.g. "GOOGLE"
// gives "Google"); the agent itself for the generic words "ROBOT", "SPIDER", "CRAWLER"; "All
// Others" for a few known crawler words; else, for an agent of 2 or more characters, "Auto
// Detected" when a robot-list entry has the same address or its stored agent occurs in the
// upper-cased agent; else "". Named engines come before the generic words. Never fails.
std::string DetectSpider(std::string_view agent, std::string_view address,
                         const startup::RobotList& robots);
// The same into `out` (its buffer reused), with `upper` the agent already upper-cased
// (UpperAsciiInto): the hit processing shares that copy with the browser classification.
void DetectSpiderInto(std::string_view agent, std::string_view upper, std::string_view address,
                      const startup::RobotList& robots, std::string& out);

// DetectSpiderInto in its two halves. The rules on the agent alone (engine names, the generic
// and the known crawler words): true with the name in `out`, else false and `out` empty. A
// function of the agent only, so its answer may be remembered per agent.
bool SpiderByAgentRules(std::string_view agent, std::string_view upper, std::string& out);
// The robot list, when the rules gave nothing: true ("Auto Detected") for an agent of 2 or more
// characters whose address or stored agent an entry has.
bool SpiderByRobotList(std::string_view agent, std::string_view upper, std::string_view address,
                       const startup::RobotList& robots);
// The agent half of SpiderByRobotList: whether a list entry's stored agent (not empty) occurs in
// the upper-cased agent.
bool RobotAgentIn(std::string_view upper, const startup::RobotList& robots);

}  // namespace analysis
