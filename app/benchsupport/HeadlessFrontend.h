// The window of the benchmark programs: nobody watches it. Captions and progress go nowhere,
// every question is answered Yes, messages go to stderr, and every yield goes on.
#pragma once

#include <cstdio>
#include <string_view>

#include "platform/Frontend.h"

namespace bench {

class HeadlessFrontend final : public platform::Frontend {
 public:
  void SetCaption(platform::Label, std::string_view) override {}
  void ShowLabel(platform::Label, bool) override {}
  platform::Grid& FileGrid() override { return grid_; }
  platform::ProgressBar& Progress() override { return bar_; }
  platform::MsgResult MessageBox(std::string_view text, platform::MsgIcon, platform::MsgButtons,
                                 std::string_view) override {
    std::fprintf(stderr, "message: %.*s\n", static_cast<int>(text.size()), text.data());
    return platform::MsgResult::Yes;
  }
  bool Yield() override { return true; }

 private:
  platform::Grid grid_;
  platform::ProgressBar bar_;
};

}  // namespace bench
