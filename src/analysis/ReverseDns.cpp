// Reverse DNS for the hit analysis (see ReverseDns.h): ResolveHost and RequestComplete follow
// their numbered steps.
#include "analysis/ReverseDns.h"

#include "analysis/Text.h"

namespace analysis {

std::string ReverseDns::ResolveHost(database::Visit& visit, database::Database& f) {
  // 1.
  const std::string_view addr = vb::Trim(visit.clientAddress);
  // 2. The cache: this run's "Visitor", then the previous run's.
  std::string name = f.LookupDNS(addr, &visit);
  if (!name.empty()) {
    ++counts_.cacheHits;
    return name;
  }
  // 3. A look-up, unless 100 are in flight: then this visit never gets one.
  if (on_ && resolver_ != nullptr && resolver_->Outstanding() < kDnsRequestLimit) {
    const int16_t number = resolver_->Start(addr);
    if (number != 0) {
      visit.dnsRequest = number;
      ++counts_.requests;
    }
    ShowPending();
  }
  // 4.
  return std::string(addr);
}

void ReverseDns::RequestComplete(const platform::DnsAnswer& answer, VisitTable& visits,
                                 database::Database& f) {
  ++counts_.answers;
  if (answer.error) ++counts_.failures;
  // 1.
  if (answer.hostName.empty()) return;
  // 2. Request numbers come round again after 32,767 requests, and a visit keeps the number of
  //    its answered request: only a visit still waiting can be the one this answer is for.
  const int32_t vi = visits.FindAwaitingDns(answer.request);
  if (vi != 0) {
    database::Visit& v = visits[vi];
    if (answer.error) {
      visits.SetHostName(vi, v.hostName + " ?");
    } else {
      visits.SetHostName(vi, answer.hostName);
      visits.SetClientAddress(vi, answer.address);
      f.UpdateVisitor(v, true);
    }
    // 3.
    visits.DnsAnswered(vi);
  }
  // 4.
  ShowPending();
  // 5. The visit has gone: the name waits in the cache for the next visit of the address.
  if (vi == 0) f.UpdateDNS(answer.address, answer.hostName);
}

void ReverseDns::ShowPending() {
  if (showPending_) showPending_(Outstanding());
}

}  // namespace analysis
