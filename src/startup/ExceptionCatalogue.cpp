// The exception catalogue: built-in entries, EXTYPES.INI, thresholds into the sites, and the
// application-name placeholders.
#include "startup/ExceptionCatalogue.h"

#include <exception>

#include "platform/Files.h"
#include "startup/ConfigItems.h"
#include "startup/World.h"
#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/ItemReader.h"
#include "vb/Strings.h"

namespace startup {

namespace {

constexpr int kInvalidUseOfNull = 94;

struct BuiltIn {
  int16_t number;
  std::string_view description;
  double value;  // used when hasValue
  bool hasValue;
  bool email;
};

// Template 160 has two blanks before "../" and template 134 names a fixed "5 minutes" beside its
// value 5: both are the texts the monitoring product shows, kept as they are.
constexpr BuiltIn kBuiltIn[] = {
    {110, "More than [value] active visitors", 100, true, false},
    {120, "More than [value] active visitors", 200, true, true},
    {122, "No visitors for [value] minutes", 60, true, false},
    {123, "No visitors for [value] minutes", 120, true, true},
    {130, "Single visitor on site for more than [value] minutes", 30, true, false},
    {131, "Single visitor viewed more than [value] pages", 25, true, false},
    {132, "Same visitor returning more than [value] times in a single day", 5, true, true},
    {133, "Same visitor returning more than [value] times", 10, true, false},
    {134, "Single visitor viewed page [lastpage] for more than 5 minutes", 5, true, false},
    {150, "The EXE file [value] was requested", 0, false, true},
    {151, "The DLL file [value] was requested", 0, false, true},
    {152, "The BAT file [value] was requested", 0, false, true},
    {153, "The VBS file [value] was requested", 0, false, true},
    {160, "The requested path [value] contains  ../", 0, false, true},
    {161, "Visitor generated more than [value] 404 errors", 10, true, true},
    {162, "Visitor used a PUT request on page [value]", 0, false, true},
    {165, "Possible HACKER detected!", 0, false, true},
    {170, "Touch failed with error [value]. The Web Server may be down!", 0, false, true},
    {400, "HTTP Bad request. Page: [value]", 0, false, true},
    {401, "HTTP Unauthorised. Page: [value]", 0, false, true},
    {403, "HTTP Forbidden. Page: [value]", 0, false, true},
    {404, "HTTP Page [value] not found 404 error", 0, false, true},
    {405, "HTTP Method not allowed. Page: [value]", 0, false, true},
    {500, "HTTP Internal server error. Page: [value]", 0, false, true},
    {502, "HTTP Bad gateway. Page: [value]", 0, false, true},
    {503, "HTTP Server overloaded.", 0, false, true},
    {900, "Unrecognised browser: [value]", 0, false, false},
    {902, "New unknown spider detected: [value]", 0, false, true},
};

// VALUE: the number a numeric text gives, else the text.
ExceptionValue ValueOfText(const std::string& text) {
  if (vb::IsNumeric(text)) return vb::CDbl(text);
  return text;
}

void ProcessItem(ExceptionCatalogue& c, const std::string& item) {
  KeyValue kv;
  if (!SplitSettingsItem(item, kv)) return;
  const std::string& key = kv.key;
  const std::string& v = kv.value;
  if (key == "NUMBER") {
    // Always a new entry, even for a number already in the catalogue.
    if (c.count == INT16_MAX) vb::Raise(vb::kOverflow);
    c.types.resize(static_cast<size_t>(c.count) + 1);
    c.types.emplace_back();
    ++c.count;
    c.types[static_cast<size_t>(c.count)].number = ShortOf(v);
    return;
  }
  // Every other key sets a field of the entry appended last.
  ExceptionType& e = c.types[static_cast<size_t>(c.count)];
  if (key == "DESCRIPTION") e.description = v;
  else if (key == "VALUE") e.value = ValueOfText(v);
  else if (key == "RAISE") e.raise = vb::CBool(v);
  else if (key == "EMAIL") e.email = vb::CBool(v);
  else if (key == "EMAILADDRESS") e.emailAddress = v;
  else if (key == "SMS") e.sms = vb::CBool(v);
  else if (key == "SMSNUMBER") e.smsNumber = v;
  else if (key == "NETMSG") e.netMsg = vb::CBool(v);
  else if (key == "NETDNS") e.netDns = v;
  else if (key == "EVENTLOG") e.eventLog = vb::CBool(v);
  else if (key == "EVENTLEVEL") e.eventLevel = ShortOf(v);
}

}  // namespace

const ExceptionType* ExceptionCatalogue::Find(int16_t number) const {
  for (int i = 1; i <= count; ++i) {
    if (types[static_cast<size_t>(i)].number == number) return &types[static_cast<size_t>(i)];
  }
  return nullptr;
}

const ExceptionType* ExceptionCatalogue::FindLast(int16_t number) const {
  for (int i = count; i >= 1; --i) {
    if (types[static_cast<size_t>(i)].number == number) return &types[static_cast<size_t>(i)];
  }
  return nullptr;
}

void AddExceptionType(ExceptionCatalogue& catalogue, int16_t number, std::string_view description,
                      bool raise, bool email, const ExceptionValue& value) {
  int found = 0;
  for (int i = 1; i <= catalogue.count; ++i) {
    if (catalogue.types[static_cast<size_t>(i)].number == number) {
      found = i;
      break;
    }
  }
  if (found == 0) {
    if (catalogue.count == INT16_MAX) vb::Raise(vb::kOverflow);
    catalogue.types.resize(static_cast<size_t>(catalogue.count) + 1);
    catalogue.types.emplace_back();
    found = ++catalogue.count;
  }
  ExceptionType& e = catalogue.types[static_cast<size_t>(found)];
  e.number = number;
  e.description = std::string(description);
  e.raise = raise;
  e.email = email;
  if (const auto* text = std::get_if<std::string>(&value); text && vb::IsNumeric(*text)) {
    e.value = vb::CDbl(*text);
  } else {
    e.value = value;
  }
}

void LoadExceptionConstants(ExceptionCatalogue& catalogue) {
  for (const BuiltIn& b : kBuiltIn) {
    const ExceptionValue value = b.hasValue ? ExceptionValue(b.value) : ExceptionValue();
    AddExceptionType(catalogue, b.number, b.description, true, b.email, value);
  }
}

bool LoadExceptionTypesFile(ExceptionCatalogue& catalogue, const std::string& appFolder) {
  const auto path = platform::FindFileCI(appFolder, "EXTYPES.INI");
  if (!path) return false;
  auto reader = vb::ItemReader::Open(*path);
  if (!reader) vb::Raise(vb::kPathFileAccess);
  // The first item before the loop, the end-of-file test before the processing: the last item
  // of the file is never processed.
  std::string item = reader->ReadItem();
  while (!reader->Eof()) {
    ProcessItem(catalogue, item);
    item = reader->ReadItem();
  }
  return true;
}

int16_t ValueAsShort(const ExceptionValue& value) {
  if (const auto* d = std::get_if<double>(&value)) return vb::CInt(*d);
  if (const auto* s = std::get_if<std::string>(&value)) return vb::CInt(std::string_view(*s));
  vb::Raise(kInvalidUseOfNull);
}

void RefreshexceptionConstants(World& world) {
  try {
    if (world.siteCount < 1) return;
    for (int i = 1; i <= world.siteCount; ++i) {
      Site& site = world.sites.at(static_cast<size_t>(i));
      for (int j = 1; j <= world.exceptions.count; ++j) {
        const ExceptionType& e = world.exceptions.types[static_cast<size_t>(j)];
        switch (e.number) {
          case 133: site.returnLimit = ValueAsShort(e.value); break;
          case 131: site.pageLimit = ValueAsShort(e.value); break;
          case 130: site.visitMinutesLimit = ValueAsShort(e.value); break;
          case 161: site.limit404 = ValueAsShort(e.value); break;
          case 134: site.pageMinutesLimit = ValueAsShort(e.value); break;
          default: break;
        }
      }
    }
  } catch (const std::exception& failure) {
    world.errors.LogError("Engine.RefreshexceptionConstants", failure);
  }
}

std::string ReplaceAppNames(const AppState& app, std::string_view text) {
  const std::string titled = vb::Replace(text, "[APPTITLE]", app.appTitle);
  return vb::Replace(titled, "[APPDOMAIN]", app.appDomain);
}

}  // namespace startup
