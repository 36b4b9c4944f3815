// tydbcreate-cli run as a separate process on a copy of the bundled demo: the JSON it prints, the
// summary, and one exit status for each way a run can end.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "JsonValue.h"
#include "ProgramRun.h"
#include "TableReadBack.h"
#include "TestSupport.h"
#include "platform/FolderLock.h"
#include "platform/SingleInstance.h"

namespace {

namespace fs = std::filesystem;

using tytest::Outcome;
using tytest::ProgramRun;

// A run in a scratch folder of its own, with the registry file's text.
Outcome RunCli(const std::vector<std::string>& args, const std::string& registryText = "") {
  tytest::TempDir scratch;
  return tytest::RunProgram(args, scratch, {.registryText = registryText});
}

using Demo = tytest::DemoCopy;

// Replaces the demo's sites file.
void Sites(const Demo& demo, const std::string& text) {
  tytest::WriteFile(demo.dir.path() / "TALLYO.INI", text);
}

// A W3C log in which every line is a new visitor: slow enough to be interrupted while it is read.
std::string SlowLog(int lines) {
  std::string log = "#Fields: date time c-ip cs-method cs-uri-stem sc-status\r\n";
  for (int i = 0; i < lines; ++i)
    log += "2026-10-01 10:" + std::to_string(10 + (i / 30000) % 50) + ":00 172." +
           std::to_string(16 + (i >> 16) % 16) + "." + std::to_string((i >> 8) & 255) + "." +
           std::to_string(i & 255) + " GET /b" + std::to_string(i % 700) + ".htm 200\r\n";
  return log;
}

// An application folder named relative to the working folder, as the Quick start names the demo,
// with no DDFPath: the tables land in that folder's own Data/, not in a copy of the relative path
// taken inside it.
TEST(CliScan, RelativeApplicationFolderWritesIntoItsOwnDataFolder) {
  Demo demo;
  tytest::TempDir scratch;
  const Outcome o = tytest::RunProgram({"--yes", "--quiet", "--now", "2026-11-16 02:23:14",
                                        demo.dir.path().filename().string()},
                                       scratch, {.workingFolder = demo.dir.path().parent_path()});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_GT(tytest::RecordCount(demo.Data(), "Visits"), 0);
  EXPECT_FALSE(fs::exists(demo.dir.path() / demo.dir.path().filename()));
}

TEST(CliScan, DemoJsonParsesAndMatchesTheMessagesAndTheTables) {
  Demo demo;
  const Outcome o = RunCli({"--yes", "--json", "--now", "2026-11-16 02:23:14", demo.App()});
  ASSERT_EQ(o.status, 0) << o.err;
  tytest::JsonValue j;
  ASSERT_NO_THROW(j = tytest::ParseJson(o.out)) << o.out.substr(0, 400);
  const double lines = j["lines"].number;
  EXPECT_GT(lines, 1000);
  EXPECT_EQ(j["seconds"].kind, tytest::JsonValue::Number);
  EXPECT_GE(j["linesPerSecond"].number, 0);
  // The message boxes in order: the start question, then (no log file is missing) the summary.
  const auto& messages = j["messages"].items;
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].text, "Are you sure?");
  EXPECT_EQ(messages[1].text, j["summary"].text);
  const std::string& summary = j["summary"].text;
  EXPECT_EQ(summary.rfind("Scan Complete. \r\n\r\nScanned " +
                              std::to_string(static_cast<long>(lines)) + " lines in",
                          0),
            0u);
  // The records-added figures: the visits opened (one record each), the page hits counted (the
  // demo stays below a full page batch, so "Pages" holds each visit's first page and one record
  // per page hit), and the exception records appended.
  const std::string data = demo.Data();
  EXPECT_EQ(j["visitRecordsAdded"].number, tytest::RecordCount(data, "Visits"));
  EXPECT_EQ(j["pageViewRecordsAdded"].number + j["visitRecordsAdded"].number,
            tytest::RecordCount(data, "Pages"));
  EXPECT_EQ(j["exceptionRecordsAdded"].number, tytest::RecordCount(data, "Exceptions"));
  EXPECT_NE(
      summary.find("\r\n" + std::to_string(tytest::RecordCount(data, "Visits")) + " visit records added.\r\n"),
      std::string::npos);

  // Without --json the summary itself is printed, with plain line ends; a second run rebuilds
  // the same tables from scratch.
  const Outcome plain = RunCli({"--yes", "--now", "2026-11-16 02:23:14", demo.App()});
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_EQ(plain.out.rfind("Scan Complete. \n\nScanned ", 0), 0u);
  EXPECT_NE(plain.out.find(" visit records added.\n"), std::string::npos);
  EXPECT_EQ(j["visitRecordsAdded"].number, tytest::RecordCount(data, "Visits"));
}

// Without a terminal the close is named in a line of its own after the last file, with a line
// at each quarter of its work at most (a log of the run shows where it stands, and is not
// flooded); --quiet says nothing of it.
TEST(CliScan, WithoutATerminalTheCloseIsSaidInAFewLines) {
  Demo demo;
  const Outcome o = RunCli({"--yes", "--now", "2026-11-16 02:23:14", demo.App()});
  ASSERT_EQ(o.status, 0) << o.err;
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = o.err.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(o.err.substr(at, end - at));
  size_t first = lines.size(), last = 0, said = 0, lastFile = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].rfind("  /", 0) == 0) lastFile = i;
    if (lines[i].find("Writing indexes") == std::string::npos) continue;
    first = std::min(first, i);
    last = i;
    ++said;
  }
  ASSERT_LT(first, lines.size()) << o.err;
  EXPECT_EQ(lines[first], "Writing indexes");
  EXPECT_GT(first, lastFile);
  EXPECT_LE(said, 5u);
  EXPECT_EQ(lines[last], "Writing indexes: 100%") << o.err;
  EXPECT_EQ(o.err.find('\r'), std::string::npos);  // no status line redrawn in place

  const Outcome quiet = RunCli({"--yes", "--quiet", "--now", "2026-11-16 02:23:14", demo.App()});
  ASSERT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.err.find("Writing indexes"), std::string::npos) << quiet.err;
}

TEST(CliScan, TwoRunsWithTheSameClockWriteTheSameFilesByteForByte) {
  // Two copies of the demo, scanned on different days of the system clock's choosing but with
  // the same --now: every file of the data folder is the same, and the tables' header dates are
  // the run's date, not the system's.
  Demo first, second;
  for (const Demo* demo : {&first, &second}) {
    const Outcome o = RunCli({"--yes", "--quiet", "--now", "2002-05-17 08:00:00", demo->App()});
    ASSERT_EQ(o.status, 0) << o.err;
  }
  const fs::path a = first.dir.path() / "Data", b = second.dir.path() / "Data";
  int compared = 0;
  for (const auto& e : fs::recursive_directory_iterator(a)) {
    if (!e.is_regular_file()) continue;
    const fs::path rel = fs::relative(e.path(), a);
    ASSERT_TRUE(fs::exists(b / rel)) << rel;
    EXPECT_EQ(tytest::ReadFile(e.path()), tytest::ReadFile(b / rel)) << rel;
    ++compared;
  }
  EXPECT_GE(compared, 14);
  for (const char* table : {"VISITS", "PAGES", "DAYSUM"}) {
    const std::string dbf = tytest::ReadFile(a / (std::string(table) + ".DBF"));
    ASSERT_GE(dbf.size(), 4u);
    // The last-update date: year - 1900, month, day.
    EXPECT_EQ(static_cast<int>(static_cast<unsigned char>(dbf[1])), 102) << table;
    EXPECT_EQ(static_cast<int>(dbf[2]), 5) << table;
    EXPECT_EQ(static_cast<int>(dbf[3]), 17) << table;
  }
}

TEST(CliScan, AFullDiskEndsTheRunAndKeepsThePreviousDatabase) {
  // A full disk, as a limit on the size of every file the program writes: the run is not
  // completed, says what failed and that the previous database is kept (even with --quiet),
  // shows no figures, and the previous tables are as they were.
  Demo demo;
  ASSERT_EQ(RunCli({"--yes", "--quiet", "--now", "2026-11-16 02:23:14", demo.App()}).status, 0);
  const std::string data = demo.Data();
  const auto previous = tytest::TableFiles(data);
  tytest::TempDir scratch;
  const Outcome o =
      tytest::RunProgram({"--yes", "--quiet", "--json", "--now", "2026-11-16 02:23:14", demo.App()},
                         scratch, {.fileSizeLimit = 150 << 10});
  EXPECT_EQ(o.status, 10) << o.err;
  EXPECT_NE(o.err.find("The scan could not be completed: "), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("could not be written (File too large)"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("The database in " + data +
                       " was not replaced: the previous one is kept as it was."),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.err.find("were free when the scan started"), std::string::npos) << o.err;
  const tytest::JsonValue j = tytest::ParseJson(o.out);
  EXPECT_EQ(j["summary"].text, "");
  EXPECT_EQ(j["visitRecordsAdded"].number, 0);
  EXPECT_EQ(j["pageViewRecordsAdded"].number, 0);
  EXPECT_EQ(tytest::TableFiles(data), previous);
  EXPECT_TRUE(fs::is_empty(demo.dir.path() / "Data" / "Temp"));
  // With room again the next run builds every table whole, and has nothing to report.
  const Outcome again = RunCli({"--yes", "--quiet", "--now", "2026-11-16 02:23:14", demo.App()});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.err, "");
  EXPECT_GT(tytest::RecordCount(demo.Data(), "Pages"), 1000);
}

TEST(CliScan, AFullTableCompletesTheRunWithOneLineForItAndItsOwnStatus) {
  // Two tables reach a lowered size limit of their files: "Pages" by its records, "Exceptions"
  // by its index. The run completes and replaces the database, says so in status 11, in one
  // line per table in errors.log and on screen, and leaves every other table exactly as a run
  // without a limit writes it.
  Demo plain, limited;
  ASSERT_EQ(RunCli({"--yes", "--quiet", "--now", "2026-11-16 02:23:14", plain.App()}).status, 0);
  const Outcome o = RunCli({"--yes", "--json", "--now", "2026-11-16 02:23:14",
                            "--table-size-limit", "Pages=100000", "--table-size-limit",
                            "exceptions=60000", limited.App()});
  ASSERT_EQ(o.status, 11) << o.err;
  const std::string data = limited.Data();

  // errors.log: one line for each full table, with the records it holds.
  std::vector<std::string> full;
  const std::string log = tytest::ReadFile(data + "errors.log");
  for (size_t at = 0; (at = log.find(" is full: ", at)) != std::string::npos; ++at) {
    const size_t newline = log.rfind('\n', at);
    const size_t start = newline == std::string::npos ? 0 : newline + 1;
    full.push_back(log.substr(start, log.find('\r', at) - start));
  }
  ASSERT_EQ(full.size(), 2u) << log;
  const auto held = [](const std::string& line) {
    const size_t at = line.find("it holds ") + 9;
    return std::stol(line.substr(at, line.find(' ', at) - at));
  };
  const std::string& pages = full[0].find("PAGES.DBF") != std::string::npos ? full[0] : full[1];
  const std::string& exceptions = &pages == &full[0] ? full[1] : full[0];
  EXPECT_NE(pages.find("PAGES.DBF is full: it holds 882 records, and one more would take it past "
                       "100,000 bytes"),
            std::string::npos)
      << pages;
  EXPECT_NE(pages.find("Scan fewer logs at once"), std::string::npos) << pages;
  EXPECT_NE(exceptions.find("EXCEPTIONS.DBF is full: it holds "), std::string::npos) << exceptions;
  EXPECT_NE(exceptions.find(" could take its index EXCEPTIONS.MDX past 60,000 bytes"),
            std::string::npos)
      << exceptions;
  EXPECT_EQ(tytest::RecordCount(data, "Pages"), 882);
  EXPECT_EQ(tytest::RecordCount(data, "Exceptions"), held(exceptions));
  EXPECT_LT(tytest::RecordCount(data, "Exceptions"), tytest::RecordCount(plain.Data(), "Exceptions"));
  EXPECT_LE(fs::file_size(data + "PAGES.DBF"), 100000u);
  EXPECT_LE(fs::file_size(data + "EXCEPTIONS.MDX"), 60000u);

  // On screen: both lines as warnings, then the summary; and the note that problems were
  // reported.
  const tytest::JsonValue j = tytest::ParseJson(o.out);
  const auto& messages = j["messages"].items;
  ASSERT_EQ(messages.size(), 4u);
  EXPECT_NE(messages[1].text.find(" is full: it holds "), std::string::npos);
  EXPECT_NE(messages[2].text.find(" is full: it holds "), std::string::npos);
  EXPECT_EQ(messages[3].text, j["summary"].text);
  EXPECT_NE(o.err.find("Tallyo (warning): PAGES.DBF is full: it holds 882 records"),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.err.find("2 problems were reported"), std::string::npos) << o.err;

  // The other tables are the ones a run without the limits writes, byte for byte, and every
  // table passes the checker.
  const auto expected = tytest::TableFiles(plain.Data());
  const auto written = tytest::TableFiles(data);
  ASSERT_EQ(written.size(), expected.size());
  for (const auto& [name, bytes] : written) {
    if (name.rfind("PAGES.", 0) == 0 || name.rfind("EXCEPTIONS.", 0) == 0) continue;
    EXPECT_TRUE(bytes == expected.at(name)) << name;
  }
  EXPECT_EQ(tytest::TableDefects(data), std::vector<std::string>{});

  // A limit for a table the scan does not write, or a size that is not a number: bad usage.
  EXPECT_EQ(RunCli({"--yes", "--table-size-limit", "IPCC=100", limited.App()}).status, 2);
  EXPECT_EQ(RunCli({"--yes", "--table-size-limit", "Pages=lots", limited.App()}).status, 2);
}

TEST(CliScan, EachWayARunEndsHasItsOwnExitStatus) {
  {
    Demo demo;
    Sites(demo, "");
    const Outcome o = RunCli({"--yes", "--json", demo.App()});
    EXPECT_EQ(o.status, 4);
    EXPECT_NE(o.err.find("No Sites have been setup. Use Tallyo first"), std::string::npos);
    EXPECT_EQ(tytest::ParseJson(o.out)["messages"].items.at(0).text.rfind("No Sites", 0), 0u);
  }
  {
    Demo demo;
    Sites(demo, "[A]\r\nFTP=True\r\n[B]\r\nFTP=True\r\nFOLDER=logs/w3c/\r\n\r\n");
    const Outcome o = RunCli({"--yes", demo.App()});
    EXPECT_EQ(o.status, 5);
    EXPECT_NE(o.err.find("All sites are accessed via FTP."), std::string::npos);
  }
  {
    Demo demo;
    const Outcome o = RunCli({"--yes", demo.App()},
                             "[Software\\Fenwright\\Tallyo \\Settings]\nServiceRunning=True\n");
    EXPECT_EQ(o.status, 6);
    EXPECT_NE(o.err.find("Tallyo is currently running as a service."), std::string::npos);
    EXPECT_FALSE(fs::exists(demo.dir.path() / "Data" / "VISITS.DBF"));
  }
  {
    // Without --yes and without a terminal the question is refused; nothing is touched.
    Demo demo;
    const Outcome o = RunCli({demo.App()});
    EXPECT_EQ(o.status, 7);
    EXPECT_NE(o.err.find("--yes"), std::string::npos);
    EXPECT_FALSE(fs::exists(demo.dir.path() / "Data" / "VISITS.DBF"));
  }
  {
    // The data folder's name is taken by a file: the database cannot be created.
    Demo demo;
    tytest::WriteFile(demo.dir.path() / "blocked", "x");
    const Outcome o =
        RunCli({"--yes", "--json", demo.App()},
               "[Software\\Fenwright\\Tallyo \\Settings]\nDDFPath=" + demo.App() + "blocked/\n");
    EXPECT_EQ(o.status, 8);
    EXPECT_NE(o.err.find("Failed to create database: " + demo.App() + "blocked/ is not a folder. "),
              std::string::npos)
        << o.err;
    EXPECT_EQ(tytest::ParseJson(o.out)["lines"].number, 0);
  }
  {
    tytest::TempDir scratch;
    auto lock = platform::SingleInstance::Acquire("tydbcreate", scratch.path());
    ASSERT_TRUE(lock && lock->Holds());
    Demo demo;
    const Outcome o = tytest::RunProgram({"--yes", demo.App()}, scratch);
    EXPECT_EQ(o.status, 3);
    EXPECT_NE(o.err.find("another copy"), std::string::npos);
  }
  {
    // Another run holds the data folder (its temp folder, and so its machine-wide lock, is
    // another one): this run is told which folder is busy and touches nothing.
    Demo demo;
    fs::create_directories(demo.dir.path() / "Data");
    auto busy = platform::FolderLock::Acquire(demo.Data());
    ASSERT_TRUE(busy && busy->Holds());
    const Outcome o = RunCli({"--yes", demo.App()});
    EXPECT_EQ(o.status, 3);
    EXPECT_NE(o.err.find("another run is using the data folder " + demo.Data()),
              std::string::npos)
        << o.err;
    EXPECT_FALSE(fs::exists(demo.dir.path() / "Data" / "Temp"));
  }
  {
    // No application folder: the usage, and nothing made beside the program.
    const Outcome o = RunCli({"--yes"});
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find("no application folder given; nothing was done."), std::string::npos);
    EXPECT_NE(o.err.find("APPFOLDER"), std::string::npos);
    EXPECT_FALSE(fs::exists(fs::path(TY_BIN_DIR) / "Data"));
  }
  EXPECT_EQ(RunCli({"--dns", "--no-dns"}).status, 2);
  EXPECT_EQ(RunCli({"--no-such-option"}).status, 2);
  const Outcome help = RunCli({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("  9   The scan was cancelled"), std::string::npos);
  EXPECT_NE(help.out.find("  10  Not completed: a write failed; the previous database is kept."),
            std::string::npos);
  EXPECT_NE(help.out.find("  11  Completed, but a table became full"), std::string::npos);
  EXPECT_EQ(help.out.find("--table-size-limit"), std::string::npos);
  EXPECT_NE(help.out.find("--json"), std::string::npos);
}

TEST(CliScan, CtrlCWithoutATerminalCancelsAtOnceAndClosesTheTables) {
  Demo demo;
  const std::string log = SlowLog(1000000);
  tytest::WriteFile(demo.dir.path() / "logs/w3c/ex999999.log", log);
  tytest::TempDir scratch;
  ProgramRun cli({"--yes", "--json", demo.App()}, scratch);
  // Without a status line the program names each file on stderr as it starts reading it.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (tytest::ReadFile(scratch.path() / "stderr.txt").find("ex999999.log") ==
             std::string::npos &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  cli.Interrupt();
  const Outcome o = cli.Wait();
  ASSERT_EQ(o.status, 9) << o.err;
  const tytest::JsonValue j = tytest::ParseJson(o.out);
  EXPECT_EQ(j["summary"].text, "");
  EXPECT_LT(j["lines"].number, 1000000);
  EXPECT_EQ(j["messages"].items.back().text,
            "Scanning still in progress. Are you sure you want to cancel?");
  // Nothing was replaced: there was no database before, and there is none now.
  EXPECT_EQ(j["visitRecordsAdded"].number, 0);
  EXPECT_EQ(tytest::RecordCount(demo.Data(), "Visits"), -1);
  EXPECT_NE(o.err.find("scan cancelled; the database in " + demo.App() +
                       "Data/ was not replaced: the previous one is kept as it was."),
            std::string::npos)
      << o.err;
}

// The program on a pseudo-terminal: what it writes there, and keys typed at it.
class Terminal {
 public:
  explicit Terminal(const std::vector<std::string>& args, const tytest::TempDir& scratch) {
    tytest::Command command(args, scratch, {.extraEnv = {"TERM=dumb"}});
    pid_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (pid_ == 0) command.Exec();
  }
  ~Terminal() {
    if (pid_ > 0 && !exited_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (fd_ >= 0) close(fd_);
  }
  // Reads until `text` has appeared since the last call (true) or 30 seconds pass (false).
  bool WaitFor(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (seen_.find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      pollfd p{fd_, POLLIN, 0};
      if (poll(&p, 1, 50) > 0) {
        char buf[4096];
        const ssize_t n = read(fd_, buf, sizeof buf);
        if (n <= 0) return false;
        seen_.append(buf, static_cast<size_t>(n));
      }
    }
    seen_.erase(0, seen_.find(text) + text.size());
    return true;
  }
  void Type(const std::string& keys) { (void)!write(fd_, keys.data(), keys.size()); }
  int Wait() {
    int raw = 0;
    // Keep draining the terminal so the program never blocks writing to it.
    for (;;) {
      if (waitpid(pid_, &raw, WNOHANG) == pid_) break;
      char buf[4096];
      pollfd p{fd_, POLLIN, 0};
      if (poll(&p, 1, 50) > 0 && read(fd_, buf, sizeof buf) < 0) {
        waitpid(pid_, &raw, 0);
        break;
      }
    }
    exited_ = true;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }

 private:
  int fd_ = -1;
  pid_t pid_ = -1;
  bool exited_ = false;
  std::string seen_;
};

TEST(CliScan, OnATerminalItAsksAndCtrlCAsksBeforeCancelling) {
  Demo demo;
  const std::string log = SlowLog(1500000);
  tytest::WriteFile(demo.dir.path() / "logs/w3c/ex999999.log", log);
  tytest::TempDir scratch;
  Terminal t({demo.App()}, scratch);
  // The question says what a Yes replaces.
  ASSERT_TRUE(t.WaitFor("The database in " + demo.App() + "Data/ will be replaced"));
  ASSERT_TRUE(t.WaitFor("Are you sure? [y/N] "));
  t.Type("y\n");
  ASSERT_TRUE(t.WaitFor("ex9999"));  // the status line shows the big file
  t.Type("\x03");
  ASSERT_TRUE(t.WaitFor("Scanning still in progress. Are you sure you want to cancel? [y/N] "));
  t.Type("n\n");
  ASSERT_TRUE(t.WaitFor("lines/s"));  // the scan goes on
  t.Type("\x03");
  ASSERT_TRUE(t.WaitFor("cancel? [y/N] "));
  t.Type("y\n");
  ASSERT_TRUE(t.WaitFor("scan cancelled"));
  EXPECT_EQ(t.Wait(), 9);
  // Nothing replaced: there was no database, and there is none.
  EXPECT_EQ(tytest::RecordCount(demo.Data(), "Visits"), -1);
  EXPECT_TRUE(fs::is_empty(demo.dir.path() / "Data" / "Temp"));
}

}  // namespace
