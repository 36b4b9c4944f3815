// The error log: the one diagnostic output of the system. Procedures that must not bring the run
// down catch their own failures and report them here; each report appends one line to
// "errors.log" in the data folder:
//
//   <dd/mm/yyyy hh:mm:ss> <description> FROM <procedure>\r\n
//
// e.g. "16/11/2026 02:23:14 Subscript out of range FROM F.UpdateHackCount". Procedure names are
// module "." procedure ("Engine.RefreshexceptionConstants", "F.UpdateHackCount") or the bare name
// of the entry procedure ("Main"). The file is opened, appended to and closed for every line.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

namespace platform {
class Clock;
}

namespace startup {

class ErrorLog {
 public:
  // `dataFolder` is read at each report (it may change after construction, e.g. by DDFPATH); both
  // referenced objects must outlive the log.
  ErrorLog(const platform::Clock& clock, const std::string& dataFolder)
      : clock_(clock), dataFolder_(dataFolder) {}

  // Beeps (a BEL to stderr when stderr is a terminal; nothing otherwise, or when beeping is
  // switched off) and appends the line "<now> <description> FROM <procedure>\r\n" to
  // dataFolder + "errors.log" (found case-insensitively; created when missing). Never throws: a
  // line that cannot be written (folder missing, not writable) is dropped.
  void LogError(std::string_view procedure, std::string_view description) noexcept;
  // The same, with the description of a caught failure (vb::Failure's description, else what()).
  void LogError(std::string_view procedure, const std::exception& failure) noexcept;

  void SetBeep(bool on) { beep_ = on; }

  // How many reports were made so far, written or dropped (a front-end tells its user that a run
  // left reports). Reports may come from more than one thread.
  size_t Reports() const { return reports_.load(std::memory_order_relaxed); }

 private:
  const platform::Clock& clock_;
  const std::string& dataFolder_;
  bool beep_ = true;
  std::atomic<size_t> reports_{0};
};

}  // namespace startup
