// Start-up of the window program.
#include "WindowSession.h"

#include <cstdlib>
#include <filesystem>

#include "platform/Files.h"

namespace window {

std::string ExecutableFolder() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return platform::WithTrailingSlash(exe.parent_path().string());
}

std::unique_ptr<WindowSession> StartSession(const std::string& appFolderArgument,
                                            const std::string& lockFolder) {
  auto s = std::make_unique<WindowSession>();
  s->registry = platform::OpenSystemRegistry(std::getenv("TALLYO_REGISTRY"));
  s->clock = std::make_unique<platform::SystemClock>();
  startup::MainArgs args{appFolderArgument, ExecutableFolder(), *s->registry, *s->clock,
                         lockFolder};
  s->started = startup::Main(args);
  switch (s->started.status) {
    case startup::MainStatus::AnotherCopyRunning:
      s->status = SessionStatus::AnotherCopy;
      return s;
    case startup::MainStatus::DataFolderBusy:
      s->status = SessionStatus::DataFolderBusy;
      s->failure = s->started.failure;
      return s;
    case startup::MainStatus::Failed:
      s->status = SessionStatus::StartupFailed;
      s->failure = s->started.failure;
      return s;
    case startup::MainStatus::Ok:
      break;
  }
  s->window = std::make_unique<WizardWindow>(*s->started.world, *s->registry, s->timer);
  s->status = s->window->Load() ? SessionStatus::Ready : SessionStatus::Refused;
  return s;
}

}  // namespace window
