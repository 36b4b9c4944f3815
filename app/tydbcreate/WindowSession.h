// One run of the window program: this machine's registry and clock, start-up for the application
// folder, and the wizard window loaded. main() runs one; tests run several in one process, each
// with its own lock folder.
#pragma once

#include <memory>
#include <string>

#include "WizardWindow.h"
#include "platform/Clock.h"
#include "platform/Registry.h"
#include "startup/StartupSequence.h"
#include "wizard/RunTimer.h"

namespace window {

enum class SessionStatus {
  Ready,           // the window is loaded; show it
  Refused,         // the window's load refused (no sites, all by FTP); its message was shown
  AnotherCopy,     // another copy runs; nothing was done
  DataFolderBusy,  // another run uses the same data folder (named in `failure`); nothing was done
  StartupFailed,   // start-up failed; `failure` says why (errors.log has the line)
};

struct WindowSession {
  SessionStatus status = SessionStatus::StartupFailed;
  std::string failure;
  std::unique_ptr<platform::Registry> registry;
  std::unique_ptr<platform::Clock> clock;
  wizard::SystemRunTimer timer;
  startup::MainResult started;
  std::unique_ptr<WizardWindow> window;  // set for Ready and Refused
};

// Runs start-up with `appFolderArgument` as the command line ("" = the executable's folder), the
// registry named by TALLYO_REGISTRY and the system clock, then creates and loads the window. The
// single-instance lock is taken in `lockFolder` ("" = the system temp folder) and held as long as
// the session lives.
std::unique_ptr<WindowSession> StartSession(const std::string& appFolderArgument,
                                            const std::string& lockFolder = "");

// The folder of the running executable, ending with "/" ("" when it cannot be found).
std::string ExecutableFolder();

}  // namespace window
