// The nine tables of the visitor database, by name, for looking at one of them from outside
// (Database::Inspect).
#pragma once

namespace database {

enum class TableId {
  kVisits,      // "Visits"
  kVisitor,     // "Visitor"
  kReferrers,   // "Referrers"
  kExceptions,  // "Exceptions"
  kPages,       // "Pages"
  kDownloads,   // "Downloads"
  kDaySum,      // "DaySum"
  kIpcc,        // "IPCC", the product's country table
  kVisOld,      // "VISOLD", the previous run's "Visitor"
};

}  // namespace database
