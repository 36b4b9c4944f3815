// The visit-state record: one open visit of the in-memory visit table that the hit analysis keeps
// for all sites at once. The hit analysis owns the table and fills the records; the record
// operations of the database read them and write a few values back (visit number, friendly
// name, first-visit time, hack count).
//
// Fields 1..27 are the visit record proper, in record order. The fields after them are values
// that the record operations read or write and that the visit record proper does not carry
// under a name of its own. Where the record operations speak of a value under another name, the
// mapping is:
//   "time of the current hit"       -> lastHitTime (the time of the latest hit; when a page view,
//                                      a download or the visit's first page is recorded it is the
//                                      time of the hit being recorded)
//   "time of the latest activity"   -> lastHitTime
//   "second text attribute"         -> groupMask (second "Flags" character: the visit was continued
//                                      through a DNS host mask)
//   "number of pages seen"          -> pageCount
//   "host name text"                -> hostName
//   "country code"                  -> countryCode
// New fields may be appended at the end; the order of the existing ones stays.
#pragma once

#include <cstdint>
#include <string>

#include "vb/Dates.h"

namespace database {

struct Visit {
  int32_t siteIndex = 0;        // 1. one-based index of the visit's site in the site list
  std::string clientAddress;    // 2. the hit's client address (IP, dotted text)
  std::string hostName;         // 3. reverse-DNS name of the address; the address itself until resolved
  std::string groupMask;        // 4. DNS host mask through which the visit was continued, or empty
  std::string friendlyName;     // 5. the visitor's friendly name (from "Visitor"/"VISOLD"), or empty
  std::string referrer;         // 6. referrer of the first hit, double quotes removed
  std::string browser;          // 7. browser code
  std::string agent;            // 8. raw user agent
  std::string currentPage;      // 9. page of the latest counted hit
  std::string query;            // 10. "?" + latest query text when that text is longer than one char
  int32_t status = 0;           // 11. HTTP status of the latest counted hit
  std::string method;           // 12. request method of the latest counted hit
  vb::Date processedAt = 0;     // 13. wall-clock time at which the latest hit was processed
  vb::Date lastHitTime = 0;     // 14. time of the latest hit of any kind
  vb::Date lastPageTime = 0;    // 15. time of the latest counted page hit
  vb::Date startTime = 0;       // 16. time of the visit's first hit
  bool ended = false;           // 17. set when the visit timed out
  int32_t visitNumber = 0;      // 18. visit number; UpdateVisitor replaces it by the visitor's
                                //     count of visits (numbering per IP and site from 1)
  int16_t pageCount = 0;        // 19. counted pages of the visit
  int16_t notFoundCount = 0;    // 20. "not found" answers since the last 404 alert
  int16_t hackScore = 0;        // 21. raised by every suspicious request
  std::string visitorKey;       // 22. site index in decimal, ":", client address ("3:10.1.2.3")
  bool spider = false;          // 23. true when the visit is a robot's
  std::string spiderName;       // 24. result of spider detection
  std::string userName;         // 25. the hit's user-name field
  int32_t visitorVisits = 0;    // 26. set to 1 when the visit opens
  std::string countryCode;      // 27a. two-letter country code from LookupCountryCode
  std::string countryName;      // 27b. country name for that code

  // Read or written by the record operations only.
  bool alert = false;           // an alert definition matched the visit ("Alert" = "Y")
  int16_t alertNumber = 0;      // number of that alert ("AlertNo")
  bool hackRaised = false;      // the hacker alert was raised for the visit ("HackRaised" = "Y")
  vb::Date firstVisitTime = 0;  // written by UpdateVisitor: the visitor's first visit ever
  int16_t hackCount = 0;        // written by UpdateHackCount: the visitor's "HackCount" after it

  // Reverse DNS resolution.
  int16_t dnsRequest = 0;       // number of the outstanding reverse-DNS request, 0 = none
  bool resolved = false;        // an answer to that request has arrived

  // Once-per-visit alerts of the hit analysis (the hacker alert uses hackRaised above).
  bool pagesAlertRaised = false;     // alert 131: the visit passed the site's page limit
  bool durationAlertRaised = false;  // alert 130: the visit lasted longer than the site's limit

  // Written by AddVisitToDatabase: the visit's number with the record writer (0 = none), under
  // which the writer keeps the "Visits" table's ticket for the visit's record, so that
  // UpdateVisitInDatabase can find the record again without a search.
  uint64_t visitsTicket = 0;

  // Calls `f` with each text of the record. A text added above must be added here too.
  template <class Self, class Fn>
  static void ForEachText(Self& v, Fn f) {
    for (auto* text : {&v.clientAddress, &v.hostName, &v.groupMask, &v.friendlyName, &v.referrer,
                       &v.browser, &v.agent, &v.currentPage, &v.query, &v.method, &v.visitorKey,
                       &v.spiderName, &v.userName, &v.countryCode, &v.countryName})
      f(*text);
  }

  // A hint, changing nothing: fetches the memory of the texts' buffers into the cache, for a
  // record about to be reset and filled.
  void PrefetchTexts() const {
    ForEachText(*this, [](const std::string& text) { __builtin_prefetch(text.data(), 1); });
  }

  // Every field back to its initial value, as in a new Visit, while the texts keep their buffers
  // (a visit table reuses ended visits' records). A field added above must be added here too.
  void Reset() {
    ForEachText(*this, [](std::string& text) { text.clear(); });
    siteIndex = 0;
    status = 0;
    processedAt = lastHitTime = lastPageTime = startTime = 0;
    ended = false;
    visitNumber = 0;
    pageCount = notFoundCount = hackScore = 0;
    spider = false;
    visitorVisits = 0;
    alert = false;
    alertNumber = 0;
    hackRaised = false;
    firstVisitTime = 0;
    hackCount = 0;
    dnsRequest = 0;
    resolved = false;
    pagesAlertRaised = durationAlertRaised = false;
    visitsTicket = 0;
  }

  bool operator==(const Visit&) const = default;
};

}  // namespace database
