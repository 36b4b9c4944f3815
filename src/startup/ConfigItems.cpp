// Item splitting and conversions shared by the configuration loaders.
#include "startup/ConfigItems.h"

#include "vb/Convert.h"
#include "vb/Strings.h"

namespace startup {

bool SplitSettingsItem(std::string_view item, KeyValue& out) {
  const std::string_view t = vb::Trim(item);
  if (t.empty() || t.front() == '[') return false;
  const size_t eq = t.find('=');
  if (eq == std::string_view::npos || eq == 0) return false;
  out.key = std::string(vb::Trim(vb::UCase(t.substr(0, eq))));
  out.value = std::string(t.substr(eq + 1));
  return true;
}

int16_t ShortOf(std::string_view text) { return vb::CInt(vb::Val(text)); }

int32_t LongOf(std::string_view text) { return vb::CLng(vb::Val(text)); }

vb::Date DateTimeOf(std::string_view text) { return vb::DateValue(text) + vb::TimeValue(text); }

}  // namespace startup
