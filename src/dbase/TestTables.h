// Tables for the engine's tests, laid out as the monitoring product's own tables are (the same
// fields, widths and tag definitions), so that the tests exercise the shapes the engine really
// serves. The engine itself knows no table, and its tests do not reach up into the layer that
// does: these definitions are written out here. A change to the product's layouts is caught by
// that layer's own tests and by the reference tables; this copy only has to stay a realistic
// example.
#pragma once

#include <string>
#include <vector>

namespace dbase::testing {

inline const std::vector<std::string> kVisitsFields = {
    "RecordNo|C|9",   "IP|C|15",       "Site|C|20",      "Active|C|1",     "Alert|C|1",
    "AlertNo|N|3",    "VisitNo|C|5",   "VisitDate|D|8",  "VisitTime|C|8",  "FirstPage|C|20",
    "LastPage|C|20",  "PagesSeen|N|5", "MinsOn|C|6",     "Browser|C|5",    "Spider|C|1",
    "SpiderT|C|15",   "Referrer|C|50", "HackRaised|C|1", "Flags|C|10"};
inline const std::vector<std::string> kVisitsTags = {
    "key0|IP + Site + DTOS(VisitDate) + VisitNo||U|", "key1|Site + DTOS(VisitDate) + VisitNo|"};
inline const std::vector<std::string> kVisitorFields = {
    "RecordNo|C|9",   "IP|C|15",       "Site|C|20",     "DNS|C|50",      "Name|C|25",
    "Visits|N|5",     "Country|C|2",   "FirstVDate|D|8", "FirstVTime|C|8", "LastVDate|D|8",
    "LastVTime|C|8",  "Browser|C|5",   "Spider|C|1",    "SpiderT|C|15",  "HackCount|N|3",
    "Flags|C|10"};
inline const std::vector<std::string> kVisitorTags = {"key0|IP + Site||U"};
inline const std::vector<std::string> kReferrersFields = {
    "RecordNo|C|9",   "Name|C|50",      "Site|C|20",     "FirstVDate|D|8",
    "FirstVTime|C|8", "LastVDate|D|8",  "LastVTime|C|8", "Visits|N|5"};
inline const std::vector<std::string> kReferrersTags = {"key0|Name + Site||U|",
                                                        "key1|Site + STR(Visits)||N|D"};
inline const std::vector<std::string> kExceptionsFields = {
    "RecordNo|C|9", "Site|C|20", "ExDate|D|8", "ExTime|C|8",
    "Number|N|3",   "Value|C|20", "IP|C|15",   "VisitNo|C|5"};
inline const std::vector<std::string> kExceptionsTags = {
    "key0|Site + RecordNo||U|", "key1|Site + DTOS(ExDate)", "key2|Site + STR(Number,3)"};
inline const std::vector<std::string> kDaySumFields = {
    "RecordNo|C|9", "Site|C|20",    "Dated|D|8",      "Visitors|N|5",
    "Alerts|N|5",   "Spiders|N|5",  "Exceptions|N|5", "Downloads|N|5"};
inline const std::vector<std::string> kDaySumTags = {"key0|Site + DTOS(Dated)||U|"};

}  // namespace dbase::testing
