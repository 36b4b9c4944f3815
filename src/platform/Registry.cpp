// The registry on Linux: an INI file with one section per key path (see Registry.h); on Windows
// the real registry under HKEY_LOCAL_MACHINE.
#include "platform/Registry.h"
#include "vb/Strings.h"
#include "vb/TrimBlanksAndTabs.h"

#include <fstream>
#include <sstream>

#ifdef _WIN32
#include <windows.h>
#endif

namespace platform {

namespace {

std::string MapKey(std::string_view keyPath, std::string_view valueName) {
  return vb::UCase(keyPath) + '\n' + vb::UCase(valueName);
}

}  // namespace

IniRegistry IniRegistry::FromFile(const std::filesystem::path& file) {
  IniRegistry reg;
  std::ifstream in(file, std::ios::binary);
  if (in) {
    std::ostringstream text;
    text << in.rdbuf();
    if (!in.bad()) reg = FromText(text.str());
  }
  reg.file_ = file.string();
  return reg;
}

std::string IniRegistry::Location() const {
  return file_.empty() ? std::string("the registry") : file_;
}

IniRegistry IniRegistry::FromText(std::string_view text) {
  IniRegistry reg;
  std::string section;
  bool inSection = false;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    // The key path is taken between the brackets exactly, blanks included: the product's
    // settings key ends "Tallyo \Settings" and that blank must survive.
    std::string_view trimmed = vb::TrimBlanksAndTabs(line);
    if (trimmed.empty() || trimmed.front() == ';' || trimmed.front() == '#') continue;
    if (trimmed.front() == '[') {
      const auto close = trimmed.rfind(']');
      if (close == std::string_view::npos || close == 0) {
        inSection = false;
        continue;
      }
      section = std::string(trimmed.substr(1, close - 1));
      inSection = true;
      continue;
    }
    if (!inSection) continue;
    const auto eq = trimmed.find('=');
    if (eq == std::string_view::npos) continue;
    std::string_view name = vb::TrimBlanksAndTabs(trimmed.substr(0, eq));
    std::string_view value = vb::TrimBlanksAndTabs(trimmed.substr(eq + 1));
    if (name.empty()) continue;
    reg.values_[MapKey(section, name)] = std::string(value);
  }
  return reg;
}

std::filesystem::path IniRegistry::PathFromEnvironment(const char* envValue) {
  if (envValue != nullptr && *envValue != '\0') return envValue;
  return "/etc/tallyo/registry.ini";
}

std::string IniRegistry::ReadString(std::string_view keyPath, std::string_view valueName) const {
  const auto it = values_.find(MapKey(keyPath, valueName));
  return it == values_.end() ? std::string() : it->second;
}

#ifdef _WIN32
std::string WindowsRegistry::ReadString(std::string_view keyPath,
                                        std::string_view valueName) const {
  HKEY key = nullptr;
  const std::string path(keyPath);
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return {};
  }
  const std::string name(valueName);
  DWORD type = 0;
  DWORD size = 0;
  std::string out;
  if (RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
      (type == REG_SZ || type == REG_EXPAND_SZ) && size > 0) {
    out.resize(size);
    if (RegQueryValueExA(key, name.c_str(), nullptr, &type,
                         reinterpret_cast<BYTE*>(out.data()), &size) != ERROR_SUCCESS) {
      out.clear();
    } else {
      out.resize(size);
      while (!out.empty() && out.back() == '\0') out.pop_back();
    }
  }
  RegCloseKey(key);
  return out;
}
#endif

std::unique_ptr<Registry> OpenSystemRegistry(const char* envValue) {
#ifdef _WIN32
  (void)envValue;
  return std::make_unique<WindowsRegistry>();
#else
  return std::make_unique<IniRegistry>(
      IniRegistry::FromFile(IniRegistry::PathFromEnvironment(envValue)));
#endif
}

}  // namespace platform
