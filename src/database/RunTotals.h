// Run-wide totals of the records that the database adds during one scan. The scan summary
// reads the three records-added figures; the new-visitor and new-referrer counts are kept for
// statistics.
#pragma once

#include <cstdint>

namespace database {

struct RunTotals {
  int32_t visitRecordsAdded = 0;      // "Visits" records appended with status 0
  int32_t pageRecordsAdded = 0;       // "Pages" records appended with status 0 (batches included)
  int32_t exceptionRecordsAdded = 0;  // "Exceptions" records appended with status 0
  int32_t newVisitors = 0;            // "Visitor" records started by UpdateVisitor
  int32_t newReferrers = 0;           // "Referrers" records started by UpdateVisitor
};

}  // namespace database
