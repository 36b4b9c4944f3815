// A program of this build run as a separate process by the end-to-end tests, with its output
// captured. The program sees a clean environment: TMPDIR (where the single-instance lock lives)
// and TALLYO_REGISTRY (a registry file) point into the test's scratch folder, PATH is
// /usr/bin:/bin, and nothing else is set unless the test adds it. ProgramRun gives it /dev/null
// for stdin and files in the scratch folder for stdout and stderr; a test that needs a terminal
// starts the Command on one itself. Only the tests built with TY_BIN_DIR (the build's bin folder)
// use it.
#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace tytest {

// How a run ended and what it printed.
struct Outcome {
  int status = -1;  // exit status; -1 when the program did not exit normally (killed)
  std::string out, err;
};

struct RunOptions {
  // The program, by its name in the build's bin folder.
  std::string program = "tydbcreate-cli";
  // The registry file's text. When not given, a registry file already in the scratch folder is
  // kept (so that runs sharing a scratch folder share it), or an empty one is made.
  std::optional<std::string> registryText{};
  // Added to the environment, each "NAME=value".
  std::vector<std::string> extraEnv{};
  // When not 0, no file of the program may grow past this many bytes: its writes then fail as on
  // a full disk (the limit's signal is ignored).
  rlim_t fileSizeLimit = 0;
  // When not empty, the program starts in this folder.
  std::filesystem::path workingFolder{};
};

// The program's path, arguments and environment as exec takes them, made before the fork so
// that the child only execs. Also writes the registry file (see RunOptions::registryText).
class Command {
 public:
  Command(const std::vector<std::string>& args, const TempDir& scratch, const RunOptions& options)
      : program_(std::string(TY_BIN_DIR) + "/" + options.program) {
    namespace fs = std::filesystem;
    const fs::path registry = scratch.path() / "registry.ini";
    if (options.registryText) {
      WriteFile(registry, *options.registryText);
    } else if (!fs::exists(registry)) {
      WriteFile(registry, "");
    }
    env_ = {"TMPDIR=" + scratch.path().string(), "TALLYO_REGISTRY=" + registry.string(),
            "PATH=/usr/bin:/bin"};
    env_.insert(env_.end(), options.extraEnv.begin(), options.extraEnv.end());
    args_ = args;
    argv_.push_back(program_.data());
    for (auto& a : args_) argv_.push_back(a.data());
    argv_.push_back(nullptr);
    for (auto& e : env_) envp_.push_back(e.data());
    envp_.push_back(nullptr);
  }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // In the child: becomes the program; ends the child with status 127 when it cannot.
  [[noreturn]] void Exec() {
    execve(program_.c_str(), argv_.data(), envp_.data());
    _exit(127);
  }

 private:
  std::string program_;
  std::vector<std::string> args_, env_;
  std::vector<char*> argv_, envp_;
};

// Starts the program at construction; Wait() reaps it and gives its outcome. A run that is still
// going when the object goes is killed and reaped, so a failed assertion leaves no process behind.
class ProgramRun {
 public:
  ProgramRun(const std::vector<std::string>& args, const TempDir& scratch,
             const RunOptions& options = {})
      : outFile_(scratch.path() / "stdout.txt"), errFile_(scratch.path() / "stderr.txt") {
    Command command(args, scratch, options);
    pid_ = fork();
    if (pid_ == 0) {
      freopen("/dev/null", "r", stdin);
      freopen(outFile_.c_str(), "w", stdout);
      freopen(errFile_.c_str(), "w", stderr);
      if (!options.workingFolder.empty() && chdir(options.workingFolder.c_str()) != 0) _exit(126);
      if (options.fileSizeLimit != 0) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = options.fileSizeLimit;
        setrlimit(RLIMIT_FSIZE, &limit);
      }
      command.Exec();
    }
  }
  ~ProgramRun() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;

  // Ctrl-C, as a terminal would send it.
  void Interrupt() { kill(pid_, SIGINT); }
  // kill -9.
  void Kill() { kill(pid_, SIGKILL); }
  // What the program has written to stderr so far.
  std::string ErrSoFar() const { return ReadFile(errFile_); }
  // Waits for the program to end. Call once.
  Outcome Wait() {
    int raw = 0;
    waitpid(pid_, &raw, 0);
    reaped_ = true;
    Outcome o;
    o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    o.out = ReadFile(outFile_);
    o.err = ReadFile(errFile_);
    return o;
  }

 private:
  std::filesystem::path outFile_, errFile_;
  pid_t pid_ = -1;
  bool reaped_ = false;
};

// Runs the program to its end.
inline Outcome RunProgram(const std::vector<std::string>& args, const TempDir& scratch,
                          const RunOptions& options = {}) {
  return ProgramRun(args, scratch, options).Wait();
}

}  // namespace tytest
