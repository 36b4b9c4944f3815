// The visitor database: visitor records (one per IP address and site), visit numbering, the
// referrer counts, hack counts and friendly names.
#include <cstring>

#include "database/Database.h"
#include "database/TableAccess.h"
#include "database/RecordText.h"
#include "database/Schema.h"
#include "vb/Format.h"
#include "vb/Strings.h"

namespace database {

namespace {

constexpr int kVisitorKeyLength = schema::kIpWidth + schema::kSiteWidth;

// The exception raised for a visitor who returns at least the site's return limit of times.
constexpr int16_t kRepeatVisitor = 133;

}  // namespace

void Database::UpdateVisitor(Visit& visit, bool dontUpdateReferrer) {
  try {
    const auto& f = fields_->visitor;
    char time[8];
    vb::FormatTimeTo(visit.startTime, time);

    // 1. Visitor key: IP + current site.
    char key[kVisitorKeyLength];
    PadInto(key, schema::kIpWidth, visit.clientAddress);
    std::memcpy(key + schema::kIpWidth, siteKey_.data(), schema::kSiteWidth);
    lastStatus_ = VAVIS.SeekKey(detail::View(key, kVisitorKeyLength));
    // Whether the record is new is decided by this seek alone. The exception that step 7 may
    // raise can write a batch of exceptions and so change the last status; letting that status
    // choose between append and replace would overwrite another visitor's record.
    const bool isNew = lastStatus_ > 0;

    // 2. A new visitor.
    if (isNew) {
      ++totals_.newVisitors;
      VAVIS.BlankRecord();
      VAVIS.SetDate(f.firstVDate, visit.startTime);
      VAVIS.SetText(f.firstVTime, detail::View(time, 8));
      VAVIS.SetNumber(f.visits, 0);
      VAVIS.SetText(f.spider, visit.spider ? "Y" : "N");
      VAVIS.SetText(f.spiderT, visit.spiderName);
      VAVIS.SetText(f.site, currentSite_);
      VAVIS.SetText(f.name, {});
      VAVIS.SetText(f.country, visit.countryCode);
      VAVIS.SetNumber(f.hackCount, 0);
    }

    // 3. New and known visitors alike.
    VAVIS.SetText(f.ip, visit.clientAddress);
    VAVIS.SetText(f.browser, visit.browser);
    VAVIS.SetText(f.dns, visit.hostName);

    // 4. Only a visit that starts later than the recorded last visit counts again.
    const vb::Date last = CombineDateTime(VAVIS.GetDate(f.lastVDate), VAVIS.GetText(f.lastVTime));
    if (WholeSeconds(visit.startTime) > WholeSeconds(last)) {
      VAVIS.SetNumber(f.visits, VAVIS.GetNumber(f.visits) + 1);
      VAVIS.SetDate(f.lastVDate, visit.startTime);
      VAVIS.SetText(f.lastVTime, detail::View(time, 8));
    }

    // 5. Visits are numbered per IP and site from 1, in order of their start times.
    visit.visitNumber = static_cast<int32_t>(VAVIS.GetNumber(f.visits));

    // 6.
    visit.friendlyName.assign(vb::Trim(VAVIS.GetText(f.name)));
    visit.firstVisitTime =
        CombineDateTime(VAVIS.GetDate(f.firstVDate), VAVIS.GetText(f.firstVTime));

    // 7. Repeat visitor.
    const bool knownSite = visit.siteIndex >= 1 && visit.siteIndex <= inputs_.siteCount;
    if (knownSite && !visit.spider &&
        visit.visitNumber >= inputs_.site(visit.siteIndex).returnLimit) {
      AddException(visit.siteIndex, kRepeatVisitor, visit.lastHitTime, std::nullopt,
                   visit.hostName, visit.visitNumber);
    }

    // 8.
    lastStatus_ = isNew ? VAVIS.AppendRecord() : VAVIS.ReplaceRecord();

    // 9. The referrer's record: nothing here reads it back, so the record writer counts the
    //    visit there.
    if (dontUpdateReferrer) return;
    const std::string_view referrer = ShortenReferrer(visit.referrer);
    if (referrer.empty()) return;
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kReferrer;
    std::memcpy(job.site, siteKey_.data(), sizeof job.site);
    PadInto(job.referrer, sizeof job.referrer, referrer);
    job.startTime = visit.startTime;
    SubmitJob();
  } catch (const std::exception& e) {
    LogFailure("F.UpdateVisitor", e);
  }
}

void Database::UpdateHackCount(Visit& visit) {
  try {
    char key[kVisitorKeyLength];
    PadInto(key, schema::kIpWidth, visit.clientAddress);
    std::memcpy(key + schema::kIpWidth, siteKey_.data(), schema::kSiteWidth);
    lastStatus_ = VAVIS.SeekKey(detail::View(key, kVisitorKeyLength));
    if (lastStatus_ != dbase::kOk) return;  // a visitor without a record is not counted
    const auto& f = fields_->visitor;
    const double count = VAVIS.GetNumber(f.hackCount) + 1;
    VAVIS.SetNumber(f.hackCount, count);
    visit.hackCount = static_cast<int16_t>(VAVIS.GetNumber(f.hackCount));
    lastStatus_ = VAVIS.ReplaceRecord();
  } catch (const std::exception& e) {
    LogFailure("F.UpdateHackCount", e);
  }
}

void Database::ChangeFriendlyName(std::string_view ip, std::string_view newName) {
  try {
    if (!DatabaseReady()) return;
    const auto& f = fields_->visitor;
    char key[kVisitorKeyLength];
    PadInto(key, schema::kIpWidth, ip);
    for (int i = 1; i <= inputs_.siteCount; ++i) {
      PadInto(key + schema::kIpWidth, schema::kSiteWidth, inputs_.site(i).name);
      lastStatus_ = VAVIS.SeekKey(detail::View(key, kVisitorKeyLength));
      if (lastStatus_ == dbase::kOk) {
        VAVIS.SetText(f.name, newName);
        lastStatus_ = VAVIS.ReplaceRecord();
      }
    }
  } catch (const std::exception& e) {
    LogFailure("Btree.ChangeFriendlyName", e);
  }
}

std::string Database::GetFriendlyName(std::string_view ip) {
  try {
    // The IP followed by a blank site: the first record of that IP for any site.
    char key[kVisitorKeyLength];
    PadInto(key, schema::kIpWidth, ip);
    std::memset(key + schema::kIpWidth, ' ', schema::kSiteWidth);
    lastStatus_ = detail::NearStatus(VAVIS.SeekNear(detail::View(key, kVisitorKeyLength)));
    const auto& f = fields_->visitor;
    if (lastStatus_ == dbase::kOk && vb::Trim(VAVIS.GetText(f.ip)) == ip) {
      return std::string(vb::Trim(VAVIS.GetText(f.name)));
    }
  } catch (const std::exception& e) {
    LogFailure("Btree.GetFriendlyName", e);
  }
  return {};
}

}  // namespace database
