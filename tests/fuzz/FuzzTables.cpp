// Fuzz target: a damaged table as `dbfinspect --check` reads it. The input is split at its first
// "\n--MDX--\n" (when there is one) into a .DBF and its production .MDX; the checker opens them
// read-only, verifies the index against the records and reads every record. Nothing may crash.
#include <cstdint>
#include <filesystem>
#include <string_view>

#include "FuzzTarget.h"
#include "dbase/Checker.h"
#include "dbase/Table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& folder = fuzz::Scratch();
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  constexpr std::string_view kMark = "\n--MDX--\n";
  const size_t cut = bytes.find(kMark);
  const size_t dbfSize = cut == std::string_view::npos ? size : cut;
  fuzz::Write(folder + "FUZZ.DBF", data, dbfSize);
  std::error_code ec;
  std::filesystem::remove(folder + "FUZZ.MDX", ec);
  if (cut != std::string_view::npos)
    fuzz::Write(folder + "FUZZ.MDX", data + cut + kMark.size(), size - cut - kMark.size());
  (void)dbase::CheckTable(folder + "FUZZ.DBF");
  dbase::Table t;
  t.SetLocation(folder);
  t.SetTableName("FUZZ");
  if (t.OpenTableReadOnly() == dbase::kOk) {
    for (int s = t.GoTop(); s == dbase::kOk && !t.Eof(); s = t.Skip(1))
      for (int f = 0; f < t.FieldCount(); ++f) (void)t.GetText(f);
  }
  return 0;
}
