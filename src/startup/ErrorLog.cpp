// The error log: one line per reported failure, appended to "errors.log" in the data folder.
#include "startup/ErrorLog.h"

#include <unistd.h>

#include <cstdio>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "vb/Failure.h"
#include "vb/Format.h"

namespace startup {

void ErrorLog::LogError(std::string_view procedure, std::string_view description) noexcept {
  reports_.fetch_add(1, std::memory_order_relaxed);
  try {
    if (beep_ && ::isatty(STDERR_FILENO)) {
      [[maybe_unused]] const auto n = ::write(STDERR_FILENO, "\a", 1);
    }
    std::string line = vb::FormatDate(clock_.Now(), "dd/mm/yyyy hh:mm:ss");
    line += ' ';
    line += description;
    line += " FROM ";
    line += procedure;
    line += "\r\n";
    // Opened, appended to and closed for this one line, so no handle stays open between
    // failures. A line that cannot be written is dropped: reporting must never end the run.
    const auto path = platform::ResolveCI(dataFolder_, "errors.log");
    std::FILE* f = std::fopen(path.c_str(), "ab");
    if (f == nullptr) return;
    std::fwrite(line.data(), 1, line.size(), f);
    std::fclose(f);
  } catch (...) {
  }
}

void ErrorLog::LogError(std::string_view procedure, const std::exception& failure) noexcept {
  if (const auto* f = dynamic_cast<const vb::Failure*>(&failure)) {
    LogError(procedure, f->Description());
  } else {
    LogError(procedure, failure.what());
  }
}

}  // namespace startup
