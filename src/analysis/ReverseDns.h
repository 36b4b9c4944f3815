// Reverse DNS for the hit analysis: the host name a new visit gets (from the DNS cache, else the
// address while a look-up is made), and what an answer does when it arrives (the visit's host name,
// its visitor records, or the cache when the visit has gone).
//
// The look-ups are asynchronous: ResolveHost starts one and returns at once; the answer comes
// later, on the analysis thread, through RequestComplete, which the scan driver calls from its
// yields and from its waits for the resolver. At most 100 look-ups are in flight: a visit that
// opens while 100 are outstanding keeps its address as host name for good.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "analysis/VisitTable.h"
#include "database/Database.h"
#include "database/Visit.h"
#include "platform/Resolver.h"

namespace analysis {

// Requests at or above this many outstanding: a new visit makes none.
inline constexpr int kDnsRequestLimit = 100;

// The run's reverse-DNS figures.
struct DnsCounts {
  int32_t requests = 0;   // look-ups started
  int32_t cacheHits = 0;  // host names answered by the DNS cache ("Visitor", "VISOLD")
  int32_t answers = 0;    // look-ups that ended, with a name or not
  int32_t failures = 0;   // look-ups that ended without a name
};

class ReverseDns {
 public:
  // The run's setting and resolver (nullptr: none, no look-up is made), set by the scan driver
  // before the first hit. `showPending` shows the number of outstanding requests (lblDNS); it may
  // be empty.
  void Attach(bool on, platform::Resolver* resolver, std::function<void(int)> showPending) {
    on_ = on;
    resolver_ = resolver;
    showPending_ = std::move(showPending);
  }
  bool On() const { return on_; }
  // Look-ups outstanding now (0 without a resolver).
  int Outstanding() const { return resolver_ != nullptr ? resolver_->Outstanding() : 0; }

  // The host name to store for a newly opened `visit` (its client address set):
  // 1. addr = the client address with blanks trimmed.
  // 2. The name the DNS cache knows (LookupDNS, which also sets the visit's friendly name):
  //    counted as a cache hit and returned.
  // 3. Else, with the setting on and fewer than 100 outstanding, a look-up of addr starts; its
  //    number goes into visit.dnsRequest and the outstanding count is shown.
  // 4. addr: the visit's host name is its address until an answer arrives.
  std::string ResolveHost(database::Visit& visit, database::Database& f);

  // One finished look-up:
  // 1. An answer without a host name does nothing more.
  // 2. The visit waiting for this request number: on an error its host name gets " ?" appended;
  //    otherwise it takes the answered name and address and its visitor record is updated
  //    (UpdateVisitor without counting the referrer).
  // 3. That visit's resolved flag is set (it waits no longer).
  // 4. The outstanding count is shown.
  // 5. No visit waits for it (the visit ended and left the table): the answer goes into the
  //    cache, every "Visitor" record of the address (UpdateDNS), for later visits to find.
  void RequestComplete(const platform::DnsAnswer& answer, VisitTable& visits, database::Database& f);

  const DnsCounts& Counts() const { return counts_; }

 private:
  void ShowPending();

  bool on_ = false;
  platform::Resolver* resolver_ = nullptr;
  std::function<void(int)> showPending_;
  DnsCounts counts_;
};

}  // namespace analysis
