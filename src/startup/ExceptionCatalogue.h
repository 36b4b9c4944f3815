// The exception catalogue: every kind of exception (a noteworthy event recorded against a visit or
// a site) by number, with its message template, its threshold value and its notification flags.
// A built-in catalogue of 28 entries is always loaded; EXTYPES.INI in the application folder adds
// entries. Templates hold "[value]" and "[lastpage]", which the code raising the exception fills.
//
// EXTYPES.INI is read like SETTINGS.INI: comma- and line-delimited "KEY=value" items, keys
// case-insensitive, "[" lines ignored, the last item of the file never processed. NUMBER appends a
// new entry (always, even for a number already present); every other key sets a field of the
// entry appended last (before the file's first NUMBER: the last built-in entry, 902).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace startup {

struct World;
struct AppState;

// An entry's value: nothing, a number, or a text.
using ExceptionValue = std::variant<std::monostate, double, std::string>;

struct ExceptionType {
  int16_t number = 0;          // NUMBER
  std::string description;     // DESCRIPTION: the message template
  ExceptionValue value;        // VALUE: threshold or parameter
  bool raise = false;          // RAISE
  bool email = false;          // EMAIL
  std::string emailAddress;    // EMAILADDRESS
  bool sms = false;            // SMS
  std::string smsNumber;       // SMSNUMBER
  bool netMsg = false;         // NETMSG
  std::string netDns;          // NETDNS
  bool eventLog = false;       // EVENTLOG
  int16_t eventLevel = 0;      // EVENTLEVEL
};

struct ExceptionCatalogue {
  // Entries 1..count (slot 0 unused).
  std::vector<ExceptionType> types{ExceptionType{}};
  int16_t count = 0;

  // The first entry (from 1 up) with this number, or nullptr.
  const ExceptionType* Find(int16_t number) const;
  // The last entry with this number (the one that decides thresholds), or nullptr.
  const ExceptionType* FindLast(int16_t number) const;
};

// Looks for the first entry with `number`; appends one when there is none. Sets number,
// description, raise and e-mail; sets the value to the number a numeric text gives, else to the
// value unchanged. Other fields of an existing entry stay. Throws vb::Failure(6) when the count
// would pass 32767.
void AddExceptionType(ExceptionCatalogue& catalogue, int16_t number, std::string_view description,
                      bool raise, bool email, const ExceptionValue& value);

// AddExceptionType for each of the 28 built-in entries (110 .. 902), in order. Loading it again
// changes nothing.
void LoadExceptionConstants(ExceptionCatalogue& catalogue);

// Reads EXTYPES.INI from `appFolder` (found case-insensitively) into the catalogue.
// REQUIRES: the built-in catalogue is loaded. Returns false (changing nothing) when the file does
// not exist. Throws vb::Failure on a bad flag or number or a file that cannot be read; entries
// read before stay.
bool LoadExceptionTypesFile(ExceptionCatalogue& catalogue, const std::string& appFolder);

// Copies the thresholds of entries 133, 131, 130, 161 and 134 into every site (return limit, page
// limit, visit minutes limit, 404 limit, page minutes limit); every entry is visited, so the last
// entry with a number decides. A value that is not a number (a non-numeric text, or none) is a
// failure: it is logged as "Engine.RefreshexceptionConstants" and the sites keep the limits set so
// far. Never throws.
void RefreshexceptionConstants(World& world);

// `text` with every "[APPTITLE]" replaced by the application title and every "[APPDOMAIN]" by the
// application domain (exact, case-sensitive; "[apptitle]" stays).
std::string ReplaceAppNames(const AppState& app, std::string_view text);

// The number an entry's value gives as a 16-bit threshold: a number rounded half to even, a
// numeric text converted. Throws vb::Failure for a non-numeric text (13), no value (94) or a
// number outside 16 bits (6).
int16_t ValueAsShort(const ExceptionValue& value);

}  // namespace startup
