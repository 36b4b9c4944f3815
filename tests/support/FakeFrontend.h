// A window stand-in for tests: records every caption, label visibility, progress value and
// message box, answers message boxes with a set answer, and lets a test decide what each yield
// does (e.g. confirm a Cancel at the n-th yield).
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Frontend.h"

namespace tytest {

class FakeFrontend : public platform::Frontend {
 public:
  struct Message {
    std::string text;
    platform::MsgIcon icon;
    platform::MsgButtons buttons;
    std::string title;
  };

  void SetCaption(platform::Label label, std::string_view text) override {
    captions[label] = std::string(text);
    captionLog.emplace_back(label, std::string(text));
  }
  void ShowLabel(platform::Label label, bool visible) override { shown[label] = visible; }
  platform::Grid& FileGrid() override { return grid; }
  platform::ProgressBar& Progress() override { return progress; }
  void GridChanged() override { ++gridChanges; }
  void ProgressChanged() override { progressValues.push_back(progress.Value()); }
  platform::MsgResult MessageBox(std::string_view text, platform::MsgIcon icon,
                                 platform::MsgButtons buttons, std::string_view title) override {
    messages.push_back({std::string(text), icon, buttons, std::string(title)});
    return answer;
  }
  bool Yield() override {
    ++yields;
    return onYield ? onYield(yields) : true;
  }

  // The captions written to one label, in order.
  std::vector<std::string> CaptionsOf(platform::Label label) const {
    std::vector<std::string> out;
    for (const auto& [l, text] : captionLog) {
      if (l == label) out.push_back(text);
    }
    return out;
  }

  std::map<platform::Label, std::string> captions;
  std::vector<std::pair<platform::Label, std::string>> captionLog;
  std::map<platform::Label, bool> shown;
  platform::Grid grid;
  platform::ProgressBar progress;
  int gridChanges = 0;
  std::vector<double> progressValues;
  std::vector<Message> messages;
  platform::MsgResult answer = platform::MsgResult::Ok;
  int yields = 0;
  // Called with the yield's number (1, 2, ...); returning false is a confirmed Cancel.
  std::function<bool(int)> onYield;
};

}  // namespace tytest
