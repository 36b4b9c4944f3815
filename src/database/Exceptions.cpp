// The visitor database: exception records. AddException composes the exception's message text,
// counts it and caches the record; WriteEXCCache appends the cached records in one batch.
#include <cstring>
#include <variant>

#include "database/Database.h"
#include "database/RecordText.h"
#include "vb/Format.h"
#include "vb/Strings.h"

namespace database {

namespace {

// The cache holds entries 0..kExceptionBatch; the exception that finds it full writes it.
constexpr int kExceptionBatch = ExceptionCache::kBatch;

}  // namespace

bool Database::AddException(int32_t logNo, int16_t exNumber, vb::Date logDate,
                     std::optional<std::string_view> value, std::string_view ip, int32_t visitNo) {
  try {
    // 1. The catalogue entry; an unknown or switched-off number records nothing.
    const startup::ExceptionType* type = inputs_.exceptions.Find(exNumber);
    if (type == nullptr || !type->raise) return false;
    if (logDate == 0) logDate = inputs_.clock.Now();

    // 2. The message text. Without a value the catalogue's default value is used, in the text
    //    and in the record.
    bool hasValue = value.has_value();
    if (!hasValue) {
      defaultValue_.clear();
      if (const double* number = std::get_if<double>(&type->value)) {
        // The text of the last number converted is kept: the catalogue's defaults repeat.
        if (!defaultNumberKnown_ || std::memcmp(number, &defaultNumber_, sizeof defaultNumber_) != 0) {
          defaultNumberText_ = vb::CStr(*number);
          defaultNumber_ = *number;
          defaultNumberKnown_ = true;
        }
        defaultValue_ = defaultNumberText_;
        hasValue = true;
      } else if (const std::string* text = std::get_if<std::string>(&type->value)) {
        defaultValue_ = *text;
        hasValue = true;
      }
      value = defaultValue_;
    }
    exceptionText_.clear();
    std::string_view rest = type->description;
    if (hasValue) {
      constexpr std::string_view kPlaceholder = "[value]";
      for (size_t at = rest.find(kPlaceholder); at != std::string_view::npos;
           at = rest.find(kPlaceholder)) {
        exceptionText_.append(rest.substr(0, at));
        exceptionText_.append(*value);
        rest.remove_prefix(at + kPlaceholder.size());
      }
    }
    exceptionText_.append(rest);
    if (!ip.empty()) {
      exceptionText_ += " DNS: ";
      exceptionText_ += ip;
    }
    if (visitNo > 0) {
      char number[24];
      exceptionText_ += " Visit No: ";
      exceptionText_ += ZeroPadded(visitNo, 1, number);
    }

    // 3. A full cache is written first; the new exception then starts the next batch.
    ++exceptions_.count;
    if (exceptions_.count > kExceptionBatch) {
      WriteEXCCache();
      exceptions_.count = 1;
    }

    // 4.
    ExceptionEntry& e = exceptions_.entries[exceptions_.count - 1];
    e.filled = true;
    PadInto(e.site, sizeof e.site, currentSite_);
    e.exDate = logDate;
    vb::FormatTimeTo(logDate, e.exTime);
    e.number = exNumber;
    PadInto(e.ip, sizeof e.ip, ip);
    e.visitNo = visitNo;
    PadInto(e.value, sizeof e.value, *value);

    // 5. The day summaries' and the site's exception counters.
    hooks_->ExceptionCounted(logNo);
    // 6.
    return true;
  } catch (const std::exception& e) {
    LogFailure("F.AddException", e);
    return false;
  }
}

void Database::WriteEXCCache() {
  try {
    // The batch goes to the record writer, in the cache's own array when the writer has a
    // thread of its own (see WritePageCache).
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kExceptions;
    job.count = exceptions_.count;
    job.exceptions = writer_.HandOverBatch(exceptions_.entries);
    SubmitJob();
    exceptions_.count = 1;
  } catch (const std::exception& e) {
    LogFailure("f.WriteEXCCache", e);
  }
}

}  // namespace database
