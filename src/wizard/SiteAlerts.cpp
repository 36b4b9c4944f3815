// The site-level alert pass.
#include "wizard/SiteAlerts.h"

#include <exception>
#include <string>
#include <variant>

#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/Format.h"

namespace wizard {
namespace {

// The entry's value as a 32-bit threshold, converted as the run-time converts a variant.
int32_t ValueAsLong(const startup::ExceptionValue& value) {
  if (const double* d = std::get_if<double>(&value)) return vb::CLng(*d);
  if (const std::string* s = std::get_if<std::string>(&value)) return vb::CLng(*s);
  vb::Raise(94);  // no value: "Invalid use of Null"
}

// One "no visitors" entry. `quietSince` is where the minutes are counted from, `written` the
// time this entry sets.
void CheckQuiet(startup::World& world, database::Database& f, const analysis::SiteRunState& site,
                int16_t siteIndex, const startup::ExceptionType& entry, vb::Date quietSince,
                vb::Date& written, vb::Date now) {
  if (site.visitorTotal != 0) {
    written = now;
    return;
  }
  int64_t minutes = vb::DateDiffMinutes(quietSince, now);
  int16_t limit = startup::ValueAsShort(entry.value);
  if (minutes > limit) {
    f.AddException(siteIndex, entry.number, now);
    written = now;
  }
}

}  // namespace

void CheckSiteAlerts(startup::World& world, database::Database& f, analysis::SiteRunState& site,
                     int16_t siteIndex) {
  try {
    const vb::Date now = world.clock.Now();
    const startup::ExceptionCatalogue& catalogue = world.exceptions;
    for (int i = 1; i <= catalogue.count; ++i) {
      const startup::ExceptionType& entry = catalogue.types.at(static_cast<size_t>(i));
      if (!entry.raise) continue;
      switch (entry.number) {
        case 110:
        case 120: {
          int32_t limit = ValueAsLong(entry.value);
          if (site.visitorTotal > limit) {
            std::string total = vb::CStr(site.visitorTotal);
            f.AddException(siteIndex, entry.number, now, total);
          }
          break;
        }
        case 122:
          CheckQuiet(world, f, site, siteIndex, entry, site.quietSince, site.quietSince, now);
          break;
        case 123:
          // Counted from 122's time, written to its own: kept, the product behaves so.
          CheckQuiet(world, f, site, siteIndex, entry, site.quietSince, site.secondLevelQuietSince,
                     now);
          break;
        default:
          break;
      }
    }
  } catch (const std::exception&) {
    // A value that does not convert ends the pass; nothing is logged.
  }
}

}  // namespace wizard
