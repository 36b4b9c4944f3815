// Log folder listing.
#include "loginput/LogFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "platform/Files.h"
#include "platform/Frontend.h"
#include "startup/World.h"
#include "vb/Format.h"

namespace loginput {
namespace {

// The size of the file as reading it finds it: opened, measured, closed. -1 when it cannot be
// opened. Only the low 32 bits are kept, as a signed number, so a file of 2 GB or more may show as
// "Unknown" (negative) or as a small size.
int32_t OpenedFileSize(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat st {};
  int32_t size = -1;
  if (::fstat(fd, &st) == 0) {
    size = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(st.st_size)));
  }
  ::close(fd);
  return size;
}

}  // namespace

std::string SizeText(int32_t size) {
  if (size < 0) return "Unknown";
  if (size > 1000000) return vb::FormatNumber(size / 1000000.0, "###.00") + "Mb";
  if (size <= 10000) return vb::Str(size) + "Bytes";
  return vb::FormatNumber(size / 1000.0, "###") + "K";
}

std::string GeneralDateText(vb::Date d) {
  const vb::DateParts p = vb::Split(d);
  const bool hasTime = p.hour != 0 || p.minute != 0 || p.second != 0;
  const bool hasDate = !(p.year == 1899 && p.month == 12 && p.day == 30);
  if (!hasDate) return vb::FormatDate(d, "hh:mm:ss");
  return vb::FormatDate(d, hasTime ? "dd/mm/yyyy hh:mm:ss" : "dd/mm/yyyy");
}

int32_t ListLogFiles(startup::World& world, platform::Frontend& ui, LogInputState& run,
                     int siteIndex) {
  // 1. An empty list and a grid with its header row only.
  run.fileCount = 0;
  run.logFiles.assign(1, LogFileEntry{});
  platform::Grid& grid = ui.FileGrid();
  grid.SetRowCount(1);
  ui.GridChanged();
  // 2.
  ui.SetCaption(platform::Label::Prog, "Scanning Log File Directory");
  try {
    const startup::Site& site = world.site(siteIndex);
    // 3. The folder is used as it stands. The listing comes sorted ascending by name, compared
    // case-insensitively, and that order is kept: it is the order the files are read in.
    for (const platform::DirEntry& found : platform::ListFiles(site.folder, site.mask)) {
      try {
        // 3.1
        ++run.fileCount;
        run.logFiles.resize(static_cast<size_t>(run.fileCount) + 1);
        // 3.2 The date comes from the listing; the size needs the file to open.
        LogFileEntry& e = run.logFiles[static_cast<size_t>(run.fileCount)];
        e.name = found.name;
        e.modified = found.modified;
        e.size = OpenedFileSize(platform::JoinPath(site.folder, found.name));
        // 3.3
        grid.SetRowCount(run.fileCount + 1);
        platform::GridRow& row = grid.Row(run.fileCount);
        row.rowData = run.fileCount;
        row.cells[0] = vb::Str(run.fileCount);
        row.cells[1] = GeneralDateText(e.modified);
        // 4.
        row.cells[2] = SizeText(e.size);
        row.cells[3] = e.name;
      } catch (const std::exception&) {
        // A file that cannot be shown does not stop the listing.
      }
    }
  } catch (const std::exception&) {
    // No such site: nothing listed.
  }
  // 5. Sort the rows ascending on the number column, so they stay in listing order.
  if (grid.RowCount() > 2) {
    std::vector<platform::GridRow> rows;
    for (int r = 1; r < grid.RowCount(); ++r) rows.push_back(grid.Row(r));
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
      return std::strtol(a.cells[0].c_str(), nullptr, 10) <
             std::strtol(b.cells[0].c_str(), nullptr, 10);
    });
    for (int r = 1; r < grid.RowCount(); ++r) grid.Row(r) = rows[static_cast<size_t>(r - 1)];
  }
  ui.GridChanged();
  // 6.
  ui.SetCaption(platform::Label::Prog, "");
  return run.fileCount;
}

}  // namespace loginput
