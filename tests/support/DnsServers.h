// DNS servers that the tests start themselves, all on 127.0.0.1: a real DNS server (dnsmasq)
// answering reverse look-ups from a hosts file and "no such name" for every other address, with
// its query log for counting what reached it; a UDP socket that takes packets and never answers;
// and a loopback port where nothing listens. No test sends a DNS packet anywhere else.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"

namespace tytest {

// A socket of `type` bound to 127.0.0.1:`port` (0: any free port), or -1.
inline int BindLoopback(int type, int port) {
  const int fd = socket(AF_INET, type, 0);
  if (fd < 0) return -1;
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

inline int PortOf(int fd) {
  sockaddr_in a{};
  socklen_t n = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n);
  return ntohs(a.sin_port);
}

// A loopback port that is free for UDP and TCP at the moment of asking.
inline int FreeLoopbackPort() {
  for (int attempt = 0; attempt < 50; ++attempt) {
    const int udp = BindLoopback(SOCK_DGRAM, 0);
    if (udp < 0) continue;
    const int port = PortOf(udp);
    const int tcp = BindLoopback(SOCK_STREAM, port);
    close(udp);
    if (tcp < 0) continue;
    close(tcp);
    return port;
  }
  return 0;
}

// A loopback UDP port where nothing listens: a query sent there is refused at once.
inline int ClosedLoopbackPort() { return FreeLoopbackPort(); }

// A UDP socket on 127.0.0.1 that receives and never answers.
class SilentDnsServer {
 public:
  SilentDnsServer() : fd_(BindLoopback(SOCK_DGRAM, 0)) {
    if (fd_ >= 0) fcntl(fd_, F_SETFL, O_NONBLOCK);
  }
  ~SilentDnsServer() {
    if (fd_ >= 0) close(fd_);
  }
  SilentDnsServer(const SilentDnsServer&) = delete;
  SilentDnsServer& operator=(const SilentDnsServer&) = delete;

  bool Started() const { return fd_ >= 0; }
  std::string Server() const { return "127.0.0.1:" + std::to_string(PortOf(fd_)); }
  // Packets received so far.
  int Received() {
    char buf[4096];
    while (recv(fd_, buf, sizeof buf, 0) >= 0) ++received_;
    return received_;
  }

 private:
  int fd_;
  int received_ = 0;
};

// A UDP server on 127.0.0.1 that answers every query with "server failure" (SERVFAIL), from a
// thread of its own until it goes.
class FailingDnsServer {
 public:
  FailingDnsServer() : fd_(BindLoopback(SOCK_DGRAM, 0)) {
    if (fd_ < 0) return;
    timeval wait{0, 50000};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    thread_ = std::thread([this] {
      unsigned char buf[1500];
      while (!stop_) {
        sockaddr_in from{};
        socklen_t n = sizeof from;
        const ssize_t got =
            recvfrom(fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &n);
        if (got < 12) continue;
        buf[2] |= 0x80;                         // a response
        buf[3] = static_cast<unsigned char>((buf[3] & 0xF0) | 2);  // RCODE 2: server failure
        sendto(fd_, buf, static_cast<size_t>(got), 0, reinterpret_cast<sockaddr*>(&from), n);
        ++answered_;
      }
    });
  }
  ~FailingDnsServer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) close(fd_);
  }
  FailingDnsServer(const FailingDnsServer&) = delete;
  FailingDnsServer& operator=(const FailingDnsServer&) = delete;

  bool Started() const { return fd_ >= 0; }
  std::string Server() const { return "127.0.0.1:" + std::to_string(PortOf(fd_)); }
  int Answered() const { return answered_; }

 private:
  int fd_;
  std::atomic<bool> stop_{false};
  std::atomic<int> answered_{0};
  std::thread thread_;
};

// dnsmasq on 127.0.0.1 at a free port, answering reverse look-ups of the given (address, name)
// pairs and "no such name" for every other address; its query log counts the look-ups that
// reached it. Started() is false (and Why() says why) only when dnsmasq cannot start at all.
class Dnsmasq {
 public:
  explicit Dnsmasq(const std::vector<std::pair<std::string, std::string>>& hosts) {
    // dnsmasq reads the hosts file after dropping to an unprivileged user when started as root:
    // the folder and the files are readable by everyone.
    std::filesystem::permissions(dir_.path(), std::filesystem::perms(0755));
    std::string text;
    for (const auto& [address, name] : hosts) text += address + " " + name + "\n";
    WriteFile(dir_.path() / "hosts", text);
    WriteFile(dir_.path() / "queries.log", "");
    for (const char* f : {"hosts", "queries.log"})
      std::filesystem::permissions(dir_.path() / f, std::filesystem::perms(0666));
    const std::string program = FindProgram();
    if (program.empty()) {
      why_ = "dnsmasq is not installed (Debian package dnsmasq-base)";
      return;
    }
    for (int attempt = 0; attempt < 3 && pid_ <= 0; ++attempt) Launch(program);
  }
  ~Dnsmasq() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(pid_, &status, 0);
    }
  }
  Dnsmasq(const Dnsmasq&) = delete;
  Dnsmasq& operator=(const Dnsmasq&) = delete;

  bool Started() const { return pid_ > 0; }
  const std::string& Why() const { return why_; }
  int Port() const { return port_; }
  std::string Server() const { return "127.0.0.1:" + std::to_string(port_); }

  // Reverse look-ups that reached the server: all of them, or those of one IPv4 address.
  int Queries(const std::string& address = {}) const {
    std::string name;
    if (!address.empty()) {
      // 10.1.2.3 is asked as 3.2.1.10.in-addr.arpa.
      std::vector<std::string> parts;
      size_t at = 0;
      for (size_t dot; (dot = address.find('.', at)) != std::string::npos; at = dot + 1)
        parts.push_back(address.substr(at, dot - at));
      parts.push_back(address.substr(at));
      for (auto p = parts.rbegin(); p != parts.rend(); ++p) name += *p + ".";
      name = " " + name + "in-addr.arpa ";
    }
    const std::string log = ReadFile(dir_.path() / "queries.log");
    int n = 0;
    for (size_t at = 0; (at = log.find("query[PTR]", at)) != std::string::npos; ++at) {
      const size_t end = log.find('\n', at);
      if (name.empty() || log.substr(at, end - at).find(name) != std::string::npos) ++n;
    }
    return n;
  }

 private:
  static std::string FindProgram() {
    for (const char* p : {"/usr/sbin/dnsmasq", "/usr/bin/dnsmasq", "/sbin/dnsmasq"})
      if (access(p, X_OK) == 0) return p;
    return {};
  }

  void Launch(const std::string& program) {
    port_ = FreeLoopbackPort();
    const std::vector<std::string> args = {
        program,
        "--keep-in-foreground",
        "--port=" + std::to_string(port_),
        "--listen-address=127.0.0.1",
        "--bind-interfaces",
        "--no-resolv",
        "--no-hosts",
        "--local=/in-addr.arpa/",
        "--addn-hosts=" + (dir_.path() / "hosts").string(),
        "--log-queries",
        "--log-facility=" + (dir_.path() / "queries.log").string(),
        "--pid-file=",
        "--cache-size=0"};
    const pid_t pid = fork();
    if (pid == 0) {
      const int null = open("/dev/null", O_RDWR);
      dup2(null, 0);
      dup2(null, 1);
      dup2(null, 2);
      std::vector<char*> argv;
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    if (pid < 0) {
      why_ = "cannot start a process";
      return;
    }
    // Ready once it holds the port; gone means it could not start.
    for (int i = 0; i < 500; ++i) {
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) == pid) {
        why_ = "dnsmasq exited at start (status " + std::to_string(status) + "): " +
               ReadFile(dir_.path() / "queries.log");
        return;
      }
      const int probe = BindLoopback(SOCK_DGRAM, port_);
      if (probe < 0) {
        pid_ = pid;
        return;
      }
      close(probe);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    why_ = "dnsmasq did not open its port within five seconds";
  }

  TempDir dir_;
  pid_t pid_ = -1;
  int port_ = 0;
  std::string why_;
};

}  // namespace tytest
