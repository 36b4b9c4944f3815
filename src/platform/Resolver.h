// The reverse-DNS resolver as the scan sees it: start a look-up for an address and get its
// request number, ask how many look-ups are outstanding, and collect the finished ones, each with
// its number, the address asked, the host name and an error indicator.
//
// There is no thread: the look-ups advance only inside Deliver, which the scan calls from its own
// thread at its yields and while it waits for answers, so the answers reach the analysis on the
// analysis thread and nothing needs a lock.
//
// Every look-up ends exactly once, with a name or with an error, and never later than the
// time-out after it started: a server that never answers costs at most the time-out per
// outstanding request.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// One finished look-up.
struct DnsAnswer {
  int16_t request = 0;   // the number Start gave it
  std::string address;   // the address asked for
  // The name the server gave. On an error the address itself: a failed answer still carries a
  // name, which the visit's handler needs before it marks the visit's name as failed (" ?").
  std::string hostName;
  bool error = false;    // no name: no such name, a server failure, no answer in time, no server
};

// Where the look-ups go and how long each may take.
struct DnsSettings {
  // Servers as "address" or "address:port" (IPv6 in brackets when a port is given); empty = the
  // system's resolver configuration.
  std::vector<std::string> servers;
  // The longest one look-up may take, all its tries included, in milliseconds.
  int timeoutMs = 3000;
  // Further tries of a server after the first one went unanswered.
  int retries = 1;
};

inline constexpr int kDefaultDnsTimeoutMs = 3000;
inline constexpr int kDefaultDnsRetries = 1;

class Resolver {
 public:
  virtual ~Resolver() = default;

  // Starts a reverse look-up of `address` (dotted IPv4 or IPv6 text) and returns its request
  // number, 1..32767, never one still outstanding. Numbers are used again after 32,767 requests.
  // An address that is not an IP address still gets a number; its look-up ends with an error at
  // the next Deliver.
  virtual int16_t Start(std::string_view address) = 0;

  // Look-ups started and not yet handed over by Deliver.
  virtual int Outstanding() const = 0;

  // Lets the look-ups advance and calls `done` for every one that has ended, in the order they
  // ended, on the caller's thread. Waits up to `waitMs` milliseconds for the first one to end
  // (0: only what has ended by now). `done` may call Start and Outstanding.
  virtual void Deliver(int waitMs, const std::function<void(const DnsAnswer&)>& done) = 0;
};

// Checks one server text ("HOST[:PORT]": an IPv4 address, an IPv6 address, "[IPv6]:PORT"; port
// 1..65535). Returns "" when it is good, else what is wrong with it.
std::string CheckDnsServer(std::string_view server);

// A resolver on the system's asynchronous DNS library. Returns nullptr and says why in `error`
// when it cannot be set up (a bad server text, the library's own failure).
std::unique_ptr<Resolver> MakeResolver(const DnsSettings& settings, std::string& error);

}  // namespace platform
