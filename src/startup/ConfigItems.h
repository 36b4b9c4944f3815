// The pieces shared by the three configuration-file loaders (SETTINGS.INI, the sites file,
// EXTYPES.INI): splitting an item "KEY=value" and the numeric conversions they use.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "vb/Dates.h"
#include "vb/ItemReader.h"

namespace startup {

struct KeyValue {
  std::string key;    // upper case, trimmed
  std::string value;  // everything after the first "=", as it stands
};

// Splits a SETTINGS.INI / EXTYPES.INI item: trimmed; empty items, items starting "[" and items
// without "=" (or with "=" first) are skipped (returns false). Key: the text before "=" upper-cased
// and trimmed; value: the rest as it stands (blanks after "=" kept).
bool SplitSettingsItem(std::string_view item, KeyValue& out);

// The "short" conversion of the loaders: the leading numeric part of the text (0 when there is
// none) rounded to the nearest 16-bit integer. Throws vb::Failure(6) outside 16 bits.
int16_t ShortOf(std::string_view text);
// The same to a 32-bit integer.
int32_t LongOf(std::string_view text);
// A date plus its time of day, both read from the same text. Throws vb::Failure(13) when the text
// is neither.
vb::Date DateTimeOf(std::string_view text);

}  // namespace startup
