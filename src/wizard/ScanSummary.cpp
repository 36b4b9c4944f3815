// The end-of-run message of a scan.
#include "wizard/ScanSummary.h"

#include <cmath>

#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/Format.h"

namespace wizard {
namespace {

constexpr const char* kCrLf = "\r\n";
constexpr std::string_view kSummaryStart = "Scan Complete. ";

// Str without its sign blank.
std::string Trimmed(double x) { return vb::CStr(x); }

}  // namespace

std::string SummaryTimeText(float elapsed) {
  std::string text;
  // 1. Each statement that fails leaves the text as it was; the summary goes on without it.
  try {
    if (elapsed < 60) {
      text = vb::Str(vb::CInt(static_cast<double>(elapsed))) + " Seconds";
    } else {
      int32_t m = vb::CLng(static_cast<double>(elapsed)) / 60;
      int16_t s = vb::CInt(static_cast<double>(elapsed) - 60.0 * m);
      text = vb::Str(m) + " Minutes" + vb::Str(s) + " seconds";
    }
  } catch (const vb::Failure&) {
  }
  return text;
}

int32_t LinesPerSecond(int32_t totalLines, float elapsed) {
  int32_t perSecond = 0;
  // 2. A rounded time of 0 is a division by zero; the figure then stays 0.
  try {
    int32_t seconds = vb::CLng(static_cast<double>(elapsed));
    if (seconds == 0) vb::Raise(vb::kDivisionByZero);
    perSecond = totalLines / seconds;
  } catch (const vb::Failure&) {
  }
  return perSecond;
}

std::string ScanSummaryText(float elapsed, int32_t totalLines, bool dns,
                            const database::RunTotals& totals) {
  std::string timeText = SummaryTimeText(elapsed);
  int32_t perSecond = LinesPerSecond(totalLines, elapsed);

  // 3. The line count.
  std::string msg(kSummaryStart);
  msg += kCrLf;
  msg += kCrLf;
  msg += "Scanned" + vb::Str(totalLines) + " lines";
  // 4. The time and the rate, unless the run waited for DNS answers.
  if (!dns) {
    msg += " in" + timeText + kCrLf + Trimmed(perSecond) + " lines per second.";
  } else {
    msg += ".";
  }
  // 5. The records added.
  msg += kCrLf;
  msg += kCrLf;
  msg += Trimmed(totals.visitRecordsAdded) + " visit records added." + kCrLf;
  msg += Trimmed(totals.pageRecordsAdded) + " page view records added." + kCrLf;
  msg += Trimmed(totals.exceptionRecordsAdded) + " exception records added." + kCrLf;
  return msg;
}

bool IsScanSummary(std::string_view message) { return message.rfind(kSummaryStart, 0) == 0; }

}  // namespace wizard
