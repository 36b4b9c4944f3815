// Writing the loaded configuration as JSON: a small writer that keeps track of commas, and the
// dump of each part of the World.
#include "startup/ConfigJson.h"

#include <cmath>
#include <cstdio>

#include "startup/World.h"
#include "vb/Format.h"
#include "vb/Strings.h"

namespace startup {

namespace {

// Unicode code points of Windows-1252 bytes 0x80..0x9F.
constexpr char32_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

std::string Number(double x) {
  if (!std::isfinite(x)) return "null";
  if (x == std::floor(x) && std::fabs(x) < 1e15) {
    return std::to_string(static_cast<long long>(x));
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.17g", x);
  return buf;
}

// A JSON writer that places the commas: Begin/End open and close containers, Key names the next
// member of an object, the value functions write one value.
class Json {
 public:
  void BeginObject() { Open('{'); }
  void EndObject() { Close('}'); }
  void BeginArray() { Open('['); }
  void EndArray() { Close(']'); }
  // Passwords are written as "********" (an empty one stays empty) unless secrets are shown.
  explicit Json(bool showSecrets) : showSecrets_(showSecrets) {}
  Json& Key(std::string_view k) {
    Separate();
    out_ += JsonString(k);
    out_ += ':';
    afterKey_ = true;
    secret_ = !showSecrets_ && vb::UCase(k).find("PASSWORD") != std::string::npos;
    return *this;
  }
  void String(std::string_view s) {
    Value(JsonString(secret_ && !s.empty() ? std::string_view("********") : s));
    secret_ = false;
  }
  void Num(double x) { Value(Number(x)); }
  void Bool(bool b) { Value(b ? "true" : "false"); }
  void Null() { Value("null"); }
  void Time(vb::Date d) { String(vb::FormatDate(d, "hh:mm:ss")); }
  void DateTime(vb::Date d) { String(vb::FormatDate(d, "yyyy-mm-dd hh:mm:ss")); }
  std::string Take() { return std::move(out_); }

 private:
  void Separate() {
    if (afterKey_) {
      afterKey_ = false;
      return;
    }
    if (needComma_) out_ += ',';
  }
  bool showSecrets_ = false;
  bool secret_ = false;
  void Value(std::string_view v) {
    Separate();
    out_ += v;
    needComma_ = true;
  }
  void Open(char c) {
    Separate();
    out_ += c;
    needComma_ = false;
  }
  void Close(char c) {
    out_ += c;
    needComma_ = true;
  }
  std::string out_;
  bool needComma_ = false;
  bool afterKey_ = false;
};

void WriteSettings(Json& j, const World& w) {
  const AppSettings& s = w.settings;
  j.Key("settings").BeginObject();
  for (const SettingsKey& k : SettingsKeys()) {
    j.Key(k.key);
    std::visit(
        [&](auto member) {
          using T = std::decay_t<decltype(s.*member)>;
          if constexpr (std::is_same_v<T, bool>) j.Bool(s.*member);
          else if constexpr (std::is_same_v<T, std::string>) j.String(s.*member);
          else if constexpr (std::is_same_v<T, double>) j.Time(s.*member);
          else j.Num(static_cast<double>(s.*member));
        },
        k.member);
  }
  j.Key("DDFPATH").String(w.app.dataFolder);
  j.EndObject();

  j.Key("pageExtensions").BeginArray();
  for (int i = 1; i <= s.pageExtensionCount && i <= kMaxPageExtensions; ++i) {
    j.String(s.pageExtensions[static_cast<size_t>(i)]);
  }
  j.EndArray();
  j.Key("dnsMasks").BeginArray();
  for (int i = 1; i <= kDnsMaskCount; ++i) j.String(s.dnsMasks[static_cast<size_t>(i)]);
  j.EndArray();
}

void WriteTables(Json& j, const World& w) {
  j.Key("searchEngines").BeginArray();
  for (int i = 1; i <= w.tables.SearchEngineSlots(); ++i) {
    const SearchEngine& e = w.tables.searchEngines[static_cast<size_t>(i)];
    j.BeginArray();
    j.String(e.name);
    j.String(e.fragment);
    j.EndArray();
  }
  j.EndArray();
  j.Key("searchEngineCount").Num(w.tables.searchEngineCount);
  j.Key("countryCount").Num(w.tables.countryCount);
}

void WriteList(Json& j, std::string_view key, const std::array<std::string, kAlertListSlots + 1>& list,
               int count) {
  j.Key(key).BeginArray();
  for (int i = 1; i <= count && i <= kAlertListSlots; ++i) j.String(list[static_cast<size_t>(i)]);
  j.EndArray();
}

void WriteAlert(Json& j, const Alert& a) {
  j.BeginObject();
  j.Key("ALERT").String(a.name);
  j.Key("ALERTNO").Num(a.number);
  j.Key("ALERTENABLED").Bool(a.enabled);
  j.Key("ALERTCOLOR").Num(a.colour);
  j.Key("ALERTEMAIL").Bool(a.email);
  j.Key("ALERTEMAILADDRESS").String(a.emailAddress);
  j.Key("ALERTSOUND").Bool(a.sound);
  j.Key("ALERTSOUNDFILE").String(a.soundFile);
  j.Key("ALERTRUN").String(a.run);
  j.Key("ALERTMESSAGE").String(a.message);
  j.Key("ALERTRUNTHIS").Bool(a.runThis);
  j.Key("ALERTENGINEALL").Bool(a.allEngines);
  WriteList(j, "ALERTDNS", a.dnsList, a.dnsCount);
  WriteList(j, "ALERTWORD", a.wordList, a.wordCount);
  WriteList(j, "ALERTENGINE", a.engineList, a.engineCount);
  WriteList(j, "ALERTPAGE", a.pageList, a.pageCount);
  j.EndObject();
}

void WriteSite(Json& j, const World& w, int index) {
  const Site& s = w.sites[static_cast<size_t>(index)];
  j.BeginObject();
  j.Key("NAME").String(s.name);
  j.Key("LASTREADPOS").Num(s.lastReadPos);
  j.Key("LASTREADPOSDAY").Num(s.lastReadPosDay);
  j.Key("LASTFIELDS").String(s.lastFields);
  j.Key("LASTREADDATETIME").DateTime(s.lastReadDateTime);
  j.Key("SLEEPMODE").Bool(s.sleepMode);
  j.Key("SLEEPSTART").Time(s.sleepStart);
  j.Key("SLEEPEND").Time(s.sleepEnd);
  j.Key("PAUSED").Bool(s.paused);
  j.Key("FREQUENCY").Num(s.frequency);
  j.Key("TYPE").Num(static_cast<int16_t>(s.type));
  j.Key("UNIX").Bool(s.unixServer);
  j.Key("LASTLOGFILE").String(s.lastLogFile);
  j.Key("MASK").String(s.mask);
  j.Key("SELECTMETHOD").Num(s.selectMethod);
  j.Key("INCLUDEQUERY").Bool(s.includeQuery);
  j.Key("FTP").Bool(s.ftp);
  j.Key("FTPDOMAIN").String(s.ftpDomain);
  j.Key("FTPUSERNAME").String(s.ftpUserName);
  j.Key("FTPPASSWORD").String(s.ftpPassword);
  j.Key("FTPPATH").String(s.ftpPath);
  j.Key("FTPPASSIVE").Bool(s.ftpPassive);
  // The folder both as this machine reads it and as the sites file writes it.
  j.Key("FOLDER").String(s.folder);
  j.Key("folderAsWritten").String(s.folderAsWritten);
  if (!s.folderProblem.empty()) j.Key("folderProblem").String(s.folderProblem);
  j.Key("EXCLUDE").String(s.exclude);
  j.Key("EXCLUDEPAGES").String(s.excludePages);
  j.Key("DOMAIN").String(s.domain);
  j.Key("HOMEPAGE").String(s.homePage);
  j.Key("LASTIP").String(s.lastIp);
  j.Key("LASTTIME").DateTime(s.lastTime);
  j.Key("WEBACCESS").Bool(s.webAccess);
  j.Key("WEBUSERNAME").String(s.webUserName);
  j.Key("WEBPASSWORD").String(s.webPassword);
  j.Key("WEBLOGO").String(s.webLogo);
  j.Key("WEBREFERRERS").Bool(s.webReferrers);
  j.Key("USELOCALTIME").Bool(s.useLocalTime);
  j.Key("TOUCH").Bool(s.touch);
  j.Key("TOUCHEVERY").Num(s.touchEvery);
  j.Key("TOUCHPAGE").String(s.touchPage);
  j.Key("EMAILADDRESS").String(s.emailAddress);
  j.Key("EMAILGLOBALALSO").Bool(s.emailGlobalAlso);
  j.Key("EMAILDAILYREPORT").Bool(s.emailDailyReport);
  j.Key("AUTOARCHIVE").Bool(s.autoArchive);
  j.Key("alerts").BeginArray();
  for (int a = 1; a <= w.alertCount && static_cast<size_t>(a) < w.alerts.size(); ++a) {
    if (w.alerts[static_cast<size_t>(a)].site == index) WriteAlert(j, w.alerts[static_cast<size_t>(a)]);
  }
  j.EndArray();
  j.EndObject();
}

void WriteExceptionTypes(Json& j, const World& w) {
  j.Key("exceptionTypes").BeginArray();
  for (int i = 1; i <= w.exceptions.count; ++i) {
    const ExceptionType& e = w.exceptions.types[static_cast<size_t>(i)];
    j.BeginObject();
    j.Key("number").Num(e.number);
    j.Key("description").String(e.description);
    j.Key("value");
    if (const auto* d = std::get_if<double>(&e.value)) j.Num(*d);
    else if (const auto* s = std::get_if<std::string>(&e.value)) j.String(*s);
    else j.Null();
    j.Key("raise").Bool(e.raise);
    j.Key("email").Bool(e.email);
    j.EndObject();
  }
  j.EndArray();
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else if (c < 0x80) {
          out += static_cast<char>(c);
        } else if (c < 0xA0) {
          AppendUtf8(out, kCp1252High[c - 0x80]);
        } else {
          AppendUtf8(out, c);  // 0xA0..0xFF are the Latin-1 characters of the same number
        }
    }
  }
  out += '"';
  return out;
}

std::string ConfigToJson(const World& w, bool showSecrets) {
  Json j(showSecrets);
  j.BeginObject();
  j.Key("programVersion").String(w.app.programVersion);
  j.Key("appFolder").String(w.app.appFolder);
  j.Key("dataFolder").String(w.app.dataFolder);
  j.Key("dataFolderAsWritten").String(w.app.dataFolderAsWritten);
  j.Key("appTitle").String(w.app.appTitle);
  j.Key("appDomain").String(w.app.appDomain);
  j.Key("appOrderPage").String(w.app.appOrderPage);
  j.Key("appSupportPage").String(w.app.appSupportPage);
  j.Key("maxSites").Num(w.app.maxSites);
  j.Key("startDate").String(vb::FormatDate(w.app.startDate, "yyyy-mm-dd"));
  j.Key("timeZoneOffset").Num(w.app.timeZoneOffset);
  WriteSettings(j, w);
  WriteTables(j, w);
  j.Key("siteCount").Num(w.siteCount);
  j.Key("sites").BeginArray();
  for (int i = 1; i <= w.siteCount && static_cast<size_t>(i) < w.sites.size(); ++i) WriteSite(j, w, i);
  j.EndArray();
  j.Key("alertCount").Num(w.alertCount);
  WriteExceptionTypes(j, w);
  j.Key("robotCount").Num(w.robots.count);
  j.EndObject();
  return j.Take();
}

}  // namespace startup
