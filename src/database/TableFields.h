// The field indexes of every table of the visitor database, resolved once when the tables are
// opened, so that the record operations set and read fields by index rather than by name.
// -1 is a field the table does not have.
#pragma once

namespace database {

struct TableFields {
  struct {
    int ip, site, active, alert, alertNo, visitNo, visitDate, visitTime, firstPage, lastPage,
        pagesSeen, minsOn, browser, spider, spiderT, referrer, hackRaised, flags;
  } visits{};
  struct {
    int ip, site, dns, name, visits, country, firstVDate, firstVTime, lastVDate, lastVTime,
        browser, spider, spiderT, hackCount;
  } visitor{};
  struct {
    int name, site, firstVDate, firstVTime, lastVDate, lastVTime, visits;
  } referrers{};
  struct {
    int site, exDate, exTime, number, value, ip, visitNo;
  } exceptions{};
  struct {
    int ip, site, visitNo, page, pageDate, pageTime, pageNo, status;
  } pages{};
  struct {
    int ip, site, visitNo, visitDate, visitTime, download, status;
  } downloads{};
  struct {
    int ip, dns, name;
  } visOld{};
  int ipccCountry = -1;
};

}  // namespace database
