// The end-of-run message of a scan: lines scanned, the time taken and the lines per second, and
// the records added to the three main tables.
//
// Figures are written the way the summary always wrote them: with the numeric-to-text form that
// leaves a sign position (a blank before a non-negative number), and "trimmed" figures without
// that blank. Lines end in CR LF.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "database/RunTotals.h"

namespace wizard {

// The time part of the summary for `elapsed` seconds:
//   below 60:  Str(CInt(elapsed)) + " Seconds"                      (" 0 Seconds")
//   otherwise: Str(m) + " Minutes" + Str(s) + " seconds", with m = CLng(elapsed) \ 60 and
//              s = CInt(elapsed - 60 * m)                            (" 2 Minutes 5 seconds")
// Rounding is half to even. When a figure does not fit its 16-bit integer (a negative elapsed time
// after midnight) the text is left empty, as the failing statement is skipped.
std::string SummaryTimeText(float elapsed);

// Total lines integer-divided by the elapsed time rounded half to even to a whole number. A
// rounded time of 0 (or one that does not fit 32 bits) makes the division fail: the result is 0.
int32_t LinesPerSecond(int32_t totalLines, float elapsed);

// The whole message:
//   "Scan Complete. " CRLF CRLF "Scanned" Str(lines) " lines"
//   then, without DNS: " in" time-text CRLF trimmed(lines/s) " lines per second."
//        with DNS:     "."                  (a DNS run is timed by its waits, so no rate is given)
//   CRLF CRLF trimmed(visits) " visit records added." CRLF trimmed(pages) " page view records
//   added." CRLF trimmed(exceptions) " exception records added." CRLF
std::string ScanSummaryText(float elapsed, int32_t totalLines, bool dns,
                            const database::RunTotals& totals);

// True when `message` is an end-of-run message (it begins "Scan Complete. "), so that a front-end
// can show it apart from the other message boxes.
bool IsScanSummary(std::string_view message);

}  // namespace wizard
