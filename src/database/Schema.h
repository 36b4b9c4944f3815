// The layout of every table of the database: file stems, field definitions and index-tag
// definitions, exactly as they are handed to the table engine. The monitoring product reads
// these tables with its own engine, so nothing here may change.
//
// A field definition is "name|type|width": type "C" (character, blank-padded), "N" (numeric,
// no decimals) or "D" (date, 8 characters, yyyymmdd). A tag definition is
// "name|key expression|filter|U or N|D": trailing parts may be missing (missing = not unique,
// ascending, no filter). Keys are the fixed-width field texts concatenated, so a key built by the
// program pads each character field to its full width (IP to 15, Site to 20, Name to 50).
//
// File names: the table name + ".DBF" / ".MDX" in the data folder. The previous visitor table is
// read as "VISITOR.DBF"/"VISITOR.MDX" where it lies during a rebuild; "VISOLD.DBF"/"VISOLD.MDX"
// are the names an interrupted run of an older version left it under.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace database::schema {

// Table names (file stems), with the case the engine is given.
inline constexpr std::string_view kVisits = "Visits";
inline constexpr std::string_view kVisitor = "Visitor";
inline constexpr std::string_view kReferrers = "Referrers";
inline constexpr std::string_view kExceptions = "Exceptions";
inline constexpr std::string_view kPages = "Pages";
inline constexpr std::string_view kDownloads = "Downloads";
inline constexpr std::string_view kDaySum = "DaySum";
inline constexpr std::string_view kIpcc = "IPCC";
inline constexpr std::string_view kVisOld = "VISOLD";

// The previous visitor table's files, and the names an older version moved them to.
inline constexpr std::string_view kVisitorDbf = "VISITOR.DBF";
inline constexpr std::string_view kVisitorMdx = "VISITOR.MDX";
inline constexpr std::string_view kVisOldDbf = "VISOLD.DBF";
inline constexpr std::string_view kVisOldMdx = "VISOLD.MDX";

// Key widths of the character fields that keys are built from.
inline constexpr int kIpWidth = 15;
inline constexpr int kSiteWidth = 20;
inline constexpr int kReferrerWidth = 50;

// "Visits": one record per visit.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | IP|C|15           | visitor IP address, dotted text
// 3  | Site|C|20         | site name
// 4  | Active|C|1        | "Y" while the visit is active, "N" once it ended
// 5  | Alert|C|1         | "Y" when an alert definition matched the visit
// 6  | AlertNo|N|3       | number of that alert
// 7  | VisitNo|C|5       | visit number, "00000"
// 8  | VisitDate|D|8     | date of the first hit
// 9  | VisitTime|C|8     | time of the first hit, "hh:mm:ss"
// 10 | FirstPage|C|20    | entry page
// 11 | LastPage|C|20     | latest page
// 12 | PagesSeen|N|5     | pages viewed
// 13 | MinsOn|C|6        | duration, minutes ":" seconds ("0:59", "0:60", "1:01")
// 14 | Browser|C|5       | browser code
// 15 | Spider|C|1        | "Y" for a robot's visit
// 16 | SpiderT|C|15      | spider name
// 17 | Referrer|C|50     | referrer shortened to scheme://host
// 18 | HackRaised|C|1    | "Y" when the hacker alert was raised
// 19 | Flags|C|10        | "Y"/"N": friendly name known; visit joined through a host mask
inline const std::vector<std::string> kVisitsFields = {
    "RecordNo|C|9",   "IP|C|15",       "Site|C|20",      "Active|C|1",     "Alert|C|1",
    "AlertNo|N|3",    "VisitNo|C|5",   "VisitDate|D|8",  "VisitTime|C|8",  "FirstPage|C|20",
    "LastPage|C|20",  "PagesSeen|N|5", "MinsOn|C|6",     "Browser|C|5",    "Spider|C|1",
    "SpiderT|C|15",   "Referrer|C|50", "HackRaised|C|1", "Flags|C|10"};
inline const std::vector<std::string> kVisitsTags = {
    "key0|IP + Site + DTOS(VisitDate) + VisitNo||U|", "key1|Site + DTOS(VisitDate) + VisitNo|"};

// "Visitor": one record per IP address and site; also the DNS and friendly-name cache.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | IP|C|15           | visitor IP address
// 3  | Site|C|20         | site name
// 4  | DNS|C|50          | resolved host name (the IP itself while unresolved)
// 5  | Name|C|25         | friendly name
// 6  | Visits|N|5        | visits counted
// 7  | Country|C|2       | two-letter country code
// 8  | FirstVDate|D|8    | date of the first visit
// 9  | FirstVTime|C|8    | its time, "hh:mm:ss"
// 10 | LastVDate|D|8     | date of the latest visit
// 11 | LastVTime|C|8     | its time
// 12 | Browser|C|5       | browser code
// 13 | Spider|C|1        | "Y" for a robot
// 14 | SpiderT|C|15      | spider name
// 15 | HackCount|N|3     | hack attempts counted
// 16 | Flags|C|10        | flag characters (never written)
inline const std::vector<std::string> kVisitorFields = {
    "RecordNo|C|9",   "IP|C|15",       "Site|C|20",     "DNS|C|50",      "Name|C|25",
    "Visits|N|5",     "Country|C|2",   "FirstVDate|D|8", "FirstVTime|C|8", "LastVDate|D|8",
    "LastVTime|C|8",  "Browser|C|5",   "Spider|C|1",    "SpiderT|C|15",  "HackCount|N|3",
    "Flags|C|10"};
// The only tag; this one string ends after the unique flag, without a trailing separator.
inline const std::vector<std::string> kVisitorTags = {"key0|IP + Site||U"};

// "Referrers": one record per referrer and site.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | Name|C|50         | referrer, shortened to scheme://host
// 3  | Site|C|20         | site name
// 4  | FirstVDate|D|8    | first visit from it
// 5  | FirstVTime|C|8    | its time
// 6  | LastVDate|D|8     | latest visit from it
// 7  | LastVTime|C|8     | its time
// 8  | Visits|N|5        | visits from it
inline const std::vector<std::string> kReferrersFields = {
    "RecordNo|C|9",   "Name|C|50",      "Site|C|20",     "FirstVDate|D|8",
    "FirstVTime|C|8", "LastVDate|D|8",  "LastVTime|C|8", "Visits|N|5"};
// key1 is descending: a site's referrers by visit count, highest first.
inline const std::vector<std::string> kReferrersTags = {"key0|Name + Site||U|",
                                                        "key1|Site + STR(Visits)||N|D"};

// "Exceptions": one record per exception raised.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | Site|C|20         | site name
// 3  | ExDate|D|8        | date
// 4  | ExTime|C|8        | time, "hh:mm:ss"
// 5  | Number|N|3        | exception number of the catalogue
// 6  | Value|C|20        | the exception's value
// 7  | IP|C|15           | visitor IP address (or its host name, for repeat visitors)
// 8  | VisitNo|C|5       | visit number, plain decimal ("7")
inline const std::vector<std::string> kExceptionsFields = {
    "RecordNo|C|9", "Site|C|20", "ExDate|D|8", "ExTime|C|8",
    "Number|N|3",   "Value|C|20", "IP|C|15",   "VisitNo|C|5"};
inline const std::vector<std::string> kExceptionsTags = {
    "key0|Site + RecordNo||U|", "key1|Site + DTOS(ExDate)", "key2|Site + STR(Number,3)"};

// "Pages": one record per page viewed within a visit.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | IP|C|15           | visitor IP address
// 3  | Site|C|20         | site name
// 4  | VisitNo|C|5       | visit number, "00000"
// 5  | Page|C|40         | page
// 6  | PageDate|D|8      | date of the hit
// 7  | PageTime|C|8      | time of the hit, "hh:mm:ss"
// 8  | PageNo|C|4        | page number within the visit, "0000"
// 9  | Status|N|3        | HTTP status
inline const std::vector<std::string> kPagesFields = {
    "RecordNo|C|9",  "IP|C|15",       "Site|C|20",  "VisitNo|C|5", "Page|C|40",
    "PageDate|D|8",  "PageTime|C|8",  "PageNo|C|4", "Status|N|3"};
inline const std::vector<std::string> kPagesTags = {"key0|IP + Site + VisitNo + PageNo||U|"};

// "Downloads": one record per download.
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | IP|C|15           | visitor IP address
// 3  | Site|C|20         | site name
// 4  | VisitNo|C|5       | visit number, "00000"
// 5  | VisitDate|D|8     | date of the hit
// 6  | VisitTime|C|8     | time of the hit
// 7  | Download|C|30     | downloaded file name
// 8  | Status|N|3        | HTTP status
inline const std::vector<std::string> kDownloadsFields = {
    "RecordNo|C|9",  "IP|C|15",       "Site|C|20",     "VisitNo|C|5",
    "VisitDate|D|8", "VisitTime|C|8", "Download|C|30", "Status|N|3"};
inline const std::vector<std::string> kDownloadsTags = {
    "key0|IP + RecordNo||U|", "key1|IP + Site + VisitNo", "key2|Site + Download"};

// "DaySum": one record per site per day (written by the daily summaries through VADAY).
// #  | DEFINITION        | DESCRIPTION
// 1  | RecordNo|C|9      | record number (never written)
// 2  | Site|C|20         | site name
// 3  | Dated|D|8         | the day
// 4  | Visitors|N|5      | visits that day
// 5  | Alerts|N|5        | alerts that day
// 6  | Spiders|N|5       | spider visits that day
// 7  | Exceptions|N|5    | exceptions that day
// 8  | Downloads|N|5     | downloads that day
inline const std::vector<std::string> kDaySumFields = {
    "RecordNo|C|9", "Site|C|20",    "Dated|D|8",      "Visitors|N|5",
    "Alerts|N|5",   "Spiders|N|5",  "Exceptions|N|5", "Downloads|N|5"};
inline const std::vector<std::string> kDaySumTags = {"key0|Site + DTOS(Dated)||U|"};

// "IPCC" (supplied by the product, only read): the field read is "Country"; its default order is
// keyed by the 12-digit form of an IPv4 address (each part as "000").
inline constexpr std::string_view kIpccCountryField = "Country";

}  // namespace database::schema
