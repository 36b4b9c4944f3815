// Read access to the product's registry values: string values under the machine-wide root
// (HKEY_LOCAL_MACHINE is implied), addressed by key path and value name.
//
// On Linux the registry is an INI file, one section per key path written exactly as the key is
// built, e.g.
//
//   [Software\Fenwright\Tallyo \Settings]
//   DDFPath=/srv/tallyo/data/
//
// (the blank before the last backslash belongs to the key). Key paths and value names are matched
// case-insensitively, as the registry does. The file is named by the environment variable
// TALLYO_REGISTRY, default /etc/tallyo/registry.ini; a missing or unreadable file is an empty
// registry. On Windows `WindowsRegistry` reads the real registry behind the same interface.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

class Registry {
 public:
  virtual ~Registry() = default;
  // The string value `valueName` under key `keyPath` (below HKEY_LOCAL_MACHINE).
  // Returns "" when the key or the value is absent or cannot be read. Never throws.
  virtual std::string ReadString(std::string_view keyPath, std::string_view valueName) const = 0;
  // Where the values live, for messages that tell the user what to add: the registry file's path,
  // or "the registry".
  virtual std::string Location() const { return "the registry"; }
};

// The key of the drive map: on Linux a log or data folder written with a drive letter
// ("D:\Logs\W3SVC1\") is found through the value named by that letter and a colon ("D:") under
// this key, e.g. a section "[Drives]" holding "D:=/srv/logs".
inline constexpr std::string_view kDrivesKey = "Drives";

// The key path of the branding values (AppTitle, AppDomain, AppOrderPage, AppSupportPage).
inline constexpr std::string_view kBrandingKey = "Software\\Fenwright\\Branding";

// A registry held in an INI file (see the file comment).
class IniRegistry final : public Registry {
 public:
  // Reads `file` once, now. A missing or unreadable file gives an empty registry.
  static IniRegistry FromFile(const std::filesystem::path& file);
  // Parses INI text: "[key path]" lines open a key, "name=value" lines add a value (the name is
  // trimmed, the value is taken after "=" up to the line end without its CR; surrounding blanks
  // are trimmed). Lines before any section, lines without "=", and lines starting ";" are ignored.
  static IniRegistry FromText(std::string_view text);

  // The file the registry lives in: `envValue` (the value of TALLYO_REGISTRY) when it is set and
  // not empty, else /etc/tallyo/registry.ini.
  static std::filesystem::path PathFromEnvironment(const char* envValue);

  std::string ReadString(std::string_view keyPath, std::string_view valueName) const override;
  // The file it was read from (FromFile), else "the registry".
  std::string Location() const override;

 private:
  std::string file_;
  // Keyed by upper-cased "key path" + '\n' + "value name".
  std::map<std::string, std::string> values_;
};

#ifdef _WIN32
// The real registry under HKEY_LOCAL_MACHINE.
class WindowsRegistry final : public Registry {
 public:
  std::string ReadString(std::string_view keyPath, std::string_view valueName) const override;
};
#endif

// The registry of this machine: on Windows the real one, elsewhere the INI file named by
// TALLYO_REGISTRY (see above). `envValue` is the value of TALLYO_REGISTRY or null.
std::unique_ptr<Registry> OpenSystemRegistry(const char* envValue);

}  // namespace platform
