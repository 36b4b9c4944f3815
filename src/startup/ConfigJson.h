// The loaded configuration as one JSON object, for inspection (tydbcreate-cli --show-config) and
// for comparing a start-up with the files it read.
//
// Keys: appFolder, dataFolder (as read here) and dataFolderAsWritten, appTitle, appDomain,
// programVersion, timeZoneOffset, settings (an object keyed by the SETTINGS.INI key names, upper
// case, typed values; times "hh:mm:ss"), pageExtensions, dnsMasks (50 strings), searchEngines
// ([name, fragment] pairs of the entries that exist) and searchEngineCount, countryCount, sites
// (objects keyed by the sites-file keys plus NAME, each with its "alerts"; FOLDER is the folder as
// read here, folderAsWritten as the file writes it, folderProblem the report of a drive without a
// mapping), exceptionTypes ({number, description, value, raise, email}), robotCount.
//
// Texts are Windows-1252 bytes; they are written as UTF-8 so the output is always valid JSON.
#pragma once

#include <string>
#include <string_view>

namespace startup {

struct World;

// The World's configuration as a JSON object (no trailing line end). Every value whose key names
// a password (EMAILPASSWORD, FTPPASSWORD, WEBPASSWORD) is "********" when set, unless
// `showSecrets`. Never throws for any content of the World (memory aside).
std::string ConfigToJson(const World& world, bool showSecrets = false);

// `text` (Windows-1252) as a JSON string literal with its quotes: '"' and '\' escaped, control
// characters as \n, \r, \t or \u00XX, bytes 0x80..0xFF converted to the UTF-8 of the character
// that code page gives them (the five unassigned bytes map to U+0081, U+008D, U+008F, U+0090,
// U+009D).
std::string JsonString(std::string_view text);

}  // namespace startup
