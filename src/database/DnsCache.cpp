// The visitor database: the DNS cache (host names already known in "Visitor" or in the previous
// run's "VISOLD") and the country code of an address from "IPCC".
#include <cstring>

#include "database/Database.h"
#include "database/TableAccess.h"
#include "database/RecordText.h"
#include "database/Schema.h"
#include "vb/Strings.h"

namespace database {

namespace {

// Whether the record a near seek for the blank-padded IP stood on can hold that IP (its "IP"
// field trimmed equal to the IP), judged from the tag entry's key alone, which in "Visitor" as
// this run creates it ("IP + Site") begins with the record's "IP" field. A field that does not
// begin with a blank holds the IP only when it is exactly the padded IP, and then the seek found
// it exactly; a field that begins with a blank is left to the record itself. An entry key that
// is not known says nothing either. Most near seeks of a scan are for addresses not seen before
// and stand on another address's record: that record is then not read at all.
bool MayHoldIp(int seekStatus, std::string_view entryKey) {
  if (seekStatus == dbase::kOk) return true;
  return entryKey.empty() || entryKey.front() == ' ';
}

}  // namespace

std::string Database::LookupDNS(std::string_view ip, Visit* visit) {
  try {
    // 1. The one-entry memory answers a repeated question without touching the tables.
    if (ip == memoIp_) {
      if (visit != nullptr) visit->friendlyName = memoName_;
      return memoHost_;
    }

    // 2. The first "Visitor" record of the IP, for any site.
    char key[schema::kIpWidth];
    PadInto(key, schema::kIpWidth, ip);
    const std::string_view padded = detail::View(key, schema::kIpWidth);
    const int seek = VAVIS.SeekNear(padded);
    lastStatus_ = detail::NearStatus(seek);

    // 3.
    const auto& f = fields_->visitor;
    if (lastStatus_ == dbase::kOk && MayHoldIp(seek, VAVIS.EntryKey()) &&
        vb::Trim(VAVIS.GetText(f.ip)) == ip) {
      const std::string_view dns = vb::Trim(VAVIS.GetText(f.dns));
      const std::string_view name = vb::Trim(VAVIS.GetText(f.name));
      std::string result;
      // A record whose host name is the bare IP was never resolved: nothing is remembered and the
      // caller resolves it again.
      if (dns != ip) {
        memoIp_.assign(ip);
        memoHost_.assign(dns);
        memoName_.assign(name);
        result.assign(dns);
      }
      if (visit != nullptr) visit->friendlyName.assign(name);
      return result;
    }

    // 4. The previous run's visitors.
    if (oldVisitorTable_) {
      const auto& o = fields_->visOld;
      // The previous run's index may come from elsewhere, with keys of another form: each
      // record found is read.
      lastStatus_ = detail::NearStatus(VAOLD.SeekNear(padded));
      if (lastStatus_ == dbase::kOk && vb::Trim(VAOLD.GetText(o.ip)) == ip) {
        memoIp_.assign(ip);
        memoHost_.assign(vb::Trim(VAOLD.GetText(o.dns)));
        memoName_.assign(vb::Trim(VAOLD.GetText(o.name)));
        // The friendly name is taken only from the record of this IP, never from the neighbour
        // that a failed near seek stands on.
        if (visit != nullptr) visit->friendlyName = memoName_;
        return memoHost_;
      }
    }
  } catch (const std::exception& e) {
    LogFailure("Btree.LookupDNS", e);
  }
  // 5.
  return {};
}

void Database::UpdateDNS(std::string_view ip, std::string_view dns) {
  try {
    // 1.
    char key[schema::kIpWidth];
    PadInto(key, schema::kIpWidth, ip);
    const std::string_view padded = detail::View(key, schema::kIpWidth);
    lastStatus_ = detail::NearStatus(VAVIS.SeekNear(padded));
    // 2. Every site's record of the visitor gets the name.
    const auto& f = fields_->visitor;
    while (lastStatus_ == dbase::kOk && VAVIS.GetText(f.ip) == padded) {
      VAVIS.SetText(f.dns, dns);
      lastStatus_ = VAVIS.ReplaceRecord();
      lastStatus_ = VAVIS.Skip(1);
    }
  } catch (const std::exception& e) {
    LogFailure("Btree.UpdateDNS", e);
  }
}

std::string Database::LookupCountryCode(std::string_view ip) {
  try {
    // 1. The 12-digit key.
    char buf[48];
    const std::string_view key = CountryKey(ip, buf);
    // 2. The nearest range record is the answer; the status is not tested.
    lastStatus_ = detail::NearStatus(IPCC.SeekNear(key));
    if (IPCC.Eof()) return {};
    return std::string(vb::RTrim(IPCC.GetText(fields_->ipccCountry)));
  } catch (const std::exception& e) {
    // 3. Not a dotted IPv4 address.
    LogFailure("F.LookupCountryCode", e);
  }
  return {};
}

}  // namespace database
