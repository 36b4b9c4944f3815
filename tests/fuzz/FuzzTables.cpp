// Fuzz target: the table check that "dbfinspect --check" runs
// (dbase::CheckTable).
//
// The input is a table: the .DBF bytes, then the mark "\n--MDX--\n", then the
// production .MDX bytes (no mark: a table without its index file). They are
// written as T.DBF and T.MDX in a folder of their own and checked; the checker
// reads both files, every record and every tag's B-tree. It must return a
// report (defects are expected on most inputs); a crash, a hang or a sanitizer
// report is a fault.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzTarget.h"
#include "dbase/Checker.h"
#include "dbase/Table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto [dbf, mdx] =
      fuzz::CutAt(std::string_view(reinterpret_cast<const char*>(data), size), "\n--MDX--\n");
  tytest::TempDir& dir = fuzz::Scratch();
  fuzz::Empty(dir.path());
  tytest::WriteFile(dir.path() / "T.DBF", std::string(dbf));
  if (!mdx.empty()) tytest::WriteFile(dir.path() / "T.MDX", std::string(mdx));
  const dbase::CheckReport report = dbase::CheckTable((dir.path() / "T.DBF").string());
  (void)report.Ok();
  dbase::Table table;
  table.SetLocation(dir.str());
  table.SetTableName("T");
  if (table.OpenTableReadOnly() == dbase::kOk) {
    for (int s = table.GoTop(); s == dbase::kOk && !table.Eof(); s = table.Skip(1)) {
      for (int f = 0; f < table.FieldCount(); ++f) (void)table.GetText(f);
    }
  }
  return 0;
}
