// The reverse-DNS resolver (see Resolver.h) on c-ares, driven from the caller's thread: each
// Deliver polls the library's sockets, lets it read the answers and run its time-outs, and hands
// the finished look-ups over.
//
// The time-out is the whole of a look-up's budget. The library waits a time per try that doubles
// with each round of tries over the servers; the first wait is chosen so that every try of every
// server fits the budget, and a look-up still open when its budget is spent is ended here with an
// error whatever the library is still doing about it (its late result is then dropped).
#include "platform/Resolver.h"

#include <arpa/inet.h>
#include <ares.h>
#include <netinet/in.h>
#include <netdb.h>
#include <poll.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <deque>

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

// Request numbers run 1..kLastNumber and then start again at 1.
constexpr int kLastNumber = 32767;

bool ParsePort(std::string_view text, int& port) {
  if (text.empty() || text.size() > 5) return false;
  const auto r = std::from_chars(text.data(), text.data() + text.size(), port);
  return r.ec == std::errc() && r.ptr == text.data() + text.size() && port >= 1 && port <= 65535;
}

bool IsIpv4(const std::string& text) {
  in_addr a{};
  return inet_pton(AF_INET, text.c_str(), &a) == 1;
}

bool IsIpv6(const std::string& text) {
  in6_addr a{};
  return inet_pton(AF_INET6, text.c_str(), &a) == 1;
}

class AresResolver final : public Resolver {
 public:
  ~AresResolver() override {
    closing_ = true;
    // Every look-up still inside the library ends now; the callbacks only free them.
    if (channel_ != nullptr) ares_destroy(channel_);
    if (libraryReady_) ares_library_cleanup();
  }

  bool Init(const DnsSettings& settings, std::string& error) {
    for (const std::string& s : settings.servers) {
      error = CheckDnsServer(s);
      if (!error.empty()) return false;
    }
    if (settings.timeoutMs < 1) {
      error = "the DNS time-out must be at least 1 millisecond";
      return false;
    }
    if (settings.retries < 0 || settings.retries > 10) {
      error = "the DNS retries must be a number from 0 to 10";
      return false;
    }
    if (const int status = ares_library_init(ARES_LIB_INIT_ALL); status != ARES_SUCCESS) {
      error = std::string("the DNS library cannot start: ") + ares_strerror(status);
      return false;
    }
    libraryReady_ = true;
    budget_ = std::chrono::milliseconds(settings.timeoutMs);
    const int tries = settings.retries + 1;

    // The servers: those given, else the system's configuration (whose count is read from a
    // first channel, as the wait per try depends on it).
    int servers = static_cast<int>(settings.servers.size());
    if (servers == 0) {
      if (!Open(settings, 1000, tries, error)) return false;
      servers = ServerCount();
      ares_destroy(channel_);
      channel_ = nullptr;
      if (servers < 1) servers = 1;
    }
    // Try k (from 0) waits first * 2^(k / servers): the rounds over all servers sum to
    // first * servers * (2^tries - 1), which must fit the budget.
    const long rounds = servers * ((1L << tries) - 1);
    const int first = static_cast<int>(std::max(1L, settings.timeoutMs / rounds));
    return Open(settings, first, tries, error);
  }

  int16_t Start(std::string_view address) override {
    const int16_t number = NextNumber();
    if (number == 0) return 0;
    inUse_[static_cast<size_t>(number)] = true;
    ++outstanding_;
    const std::string text(address);
    in_addr v4{};
    in6_addr v6{};
    auto* q = new Query{this, number, text, Clock::now() + budget_};
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
      live_.push_back(q);
      ares_gethostbyaddr(channel_, &v4, sizeof v4, AF_INET, &AresResolver::OnAnswer, q);
    } else if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
      live_.push_back(q);
      ares_gethostbyaddr(channel_, &v6, sizeof v6, AF_INET6, &AresResolver::OnAnswer, q);
    } else {
      // Not an address: nothing to ask; it ends with an error at the next Deliver.
      ended_.push_back(DnsAnswer{number, text, text, true});
      delete q;
    }
    return number;
  }

  int Outstanding() const override { return outstanding_; }

  void Deliver(int waitMs, const std::function<void(const DnsAnswer&)>& done) override {
    if (outstanding_ == 0) return;
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(std::max(waitMs, 0));
    for (;;) {
      const Clock::time_point now = Clock::now();
      const int left =
          ended_.empty() && now < until
              ? static_cast<int>(
                    std::chrono::ceil<std::chrono::milliseconds>(until - now).count())
              : 0;
      Pump(left);
      ExpireOverdue(Clock::now());
      if (!ended_.empty() || Clock::now() >= until) break;
    }
    while (!ended_.empty()) {
      const DnsAnswer answer = std::move(ended_.front());
      ended_.pop_front();
      inUse_[static_cast<size_t>(answer.request)] = false;
      --outstanding_;
      done(answer);
    }
  }

 private:
  struct Query {
    AresResolver* owner;
    int16_t number;
    std::string address;
    Clock::time_point deadline;
    bool settled = false;  // ended here (answer queued); the library's result is then dropped
  };

  bool Open(const DnsSettings& settings, int firstWaitMs, int tries, std::string& error) {
    ares_options options{};
    options.timeout = firstWaitMs;
    options.tries = tries;
    int mask = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES;
    // With servers named, they are the only source of names: the hosts file is not read.
    char lookups[] = "b";
    if (!settings.servers.empty()) {
      options.lookups = lookups;
      mask |= ARES_OPT_LOOKUPS;
    }
    if (const int status = ares_init_options(&channel_, &options, mask); status != ARES_SUCCESS) {
      channel_ = nullptr;
      error = std::string("the DNS resolver cannot start: ") + ares_strerror(status);
      return false;
    }
    if (!settings.servers.empty()) {
      std::string csv;
      for (const std::string& s : settings.servers) csv += (csv.empty() ? "" : ",") + s;
      if (const int status = ares_set_servers_ports_csv(channel_, csv.c_str());
          status != ARES_SUCCESS) {
        error = "the DNS servers \"" + csv + "\" cannot be used: " + ares_strerror(status);
        return false;
      }
    }
    return true;
  }

  int ServerCount() const {
    ares_addr_port_node* list = nullptr;
    if (ares_get_servers_ports(channel_, &list) != ARES_SUCCESS) return 1;
    int n = 0;
    for (const ares_addr_port_node* p = list; p != nullptr; p = p->next) ++n;
    ares_free_data(list);
    return n;
  }

  int16_t NextNumber() {
    for (int k = 0; k < kLastNumber; ++k) {
      last_ = last_ >= kLastNumber ? 1 : last_ + 1;
      if (!inUse_[static_cast<size_t>(last_)]) return static_cast<int16_t>(last_);
    }
    return 0;
  }

  static void OnAnswer(void* arg, int status, int /*timeouts*/, hostent* host) {
    auto* q = static_cast<Query*>(arg);
    AresResolver& self = *q->owner;
    if (!q->settled && !self.closing_) {
      const bool named = status == ARES_SUCCESS && host != nullptr && host->h_name != nullptr &&
                         host->h_name[0] != '\0';
      self.Settle(*q, named ? std::string(host->h_name) : std::string());
    }
    delete q;
  }

  // Ends look-up `q`: with `name`, or with an error when it is empty.
  void Settle(Query& q, std::string name) {
    q.settled = true;
    const bool error = name.empty();
    ended_.push_back(DnsAnswer{q.number, q.address, error ? q.address : std::move(name), error});
    live_.erase(std::remove(live_.begin(), live_.end(), &q), live_.end());
  }

  // Look-ups whose budget is spent end with an error; the library's later result is dropped.
  void ExpireOverdue(Clock::time_point now) {
    while (!live_.empty() && live_.front()->deadline <= now) Settle(*live_.front(), {});
  }

  // One wait on the library's sockets, at most `waitMs` and never past the next deadline, then
  // the library reads what came and runs its time-outs.
  void Pump(int waitMs) {
    ares_socket_t sockets[ARES_GETSOCK_MAXNUM];
    const int bits = ares_getsock(channel_, sockets, ARES_GETSOCK_MAXNUM);
    pollfd fds[ARES_GETSOCK_MAXNUM];
    nfds_t n = 0;
    for (int i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
      short events = 0;
      if (ARES_GETSOCK_READABLE(bits, i)) events |= POLLIN;
      if (ARES_GETSOCK_WRITABLE(bits, i)) events |= POLLOUT;
      if (events == 0) continue;
      fds[n++] = pollfd{sockets[i], events, 0};
    }
    int wait = waitMs;
    timeval most{waitMs / 1000, (waitMs % 1000) * 1000};
    timeval tv{};
    if (const timeval* t = ares_timeout(channel_, &most, &tv); t != nullptr)
      wait = std::min<int>(wait, static_cast<int>(t->tv_sec * 1000 + (t->tv_usec + 999) / 1000));
    if (!live_.empty()) {
      const auto toDeadline = std::chrono::ceil<std::chrono::milliseconds>(
                                  live_.front()->deadline - Clock::now())
                                  .count();
      wait = static_cast<int>(std::clamp<long>(toDeadline, 0, wait));
    }
    const int ready = poll(fds, n, wait);
    if (ready > 0) {
      for (nfds_t i = 0; i < n; ++i) {
        const short r = fds[i].revents;
        if (r == 0) continue;
        const bool readable = (r & (POLLIN | POLLERR | POLLHUP)) != 0;
        const bool writable = (r & POLLOUT) != 0;
        ares_process_fd(channel_, readable ? fds[i].fd : ARES_SOCKET_BAD,
                        writable ? fds[i].fd : ARES_SOCKET_BAD);
      }
    } else {
      ares_process_fd(channel_, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    }
  }

  ares_channel channel_ = nullptr;
  bool libraryReady_ = false;
  bool closing_ = false;
  std::chrono::milliseconds budget_{kDefaultDnsTimeoutMs};
  std::deque<Query*> live_;     // look-ups inside the library, in start order (deadline order)
  std::deque<DnsAnswer> ended_; // ended, not yet handed over
  std::vector<bool> inUse_ = std::vector<bool>(kLastNumber + 1);
  int last_ = 0;
  int outstanding_ = 0;
};

}  // namespace

std::string CheckDnsServer(std::string_view server) {
  const std::string text(server);
  const std::string what =
      "\"" + text +
      "\" is not a DNS server address: give an IPv4 or IPv6 address, with \":PORT\" when the "
      "server does not listen on port 53 (\"[IPv6]:PORT\" for IPv6)";
  int port = 0;
  if (!text.empty() && text.front() == '[') {
    const size_t close = text.find(']');
    if (close == std::string::npos || !IsIpv6(text.substr(1, close - 1))) return what;
    const std::string_view rest = std::string_view(text).substr(close + 1);
    if (rest.empty()) return {};
    if (rest.front() != ':' || !ParsePort(rest.substr(1), port)) return what;
    return {};
  }
  if (std::count(text.begin(), text.end(), ':') >= 2) return IsIpv6(text) ? "" : what;
  const size_t colon = text.find(':');
  if (!IsIpv4(text.substr(0, colon))) return what;
  if (colon != std::string::npos && !ParsePort(std::string_view(text).substr(colon + 1), port))
    return what;
  return {};
}

std::unique_ptr<Resolver> MakeResolver(const DnsSettings& settings, std::string& error) {
  auto resolver = std::make_unique<AresResolver>();
  if (!resolver->Init(settings, error)) return nullptr;
  return resolver;
}

}  // namespace platform
