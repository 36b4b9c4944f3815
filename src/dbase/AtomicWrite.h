// Whole-file writes that never leave a half-written file (a new table's .DBF).
#pragma once

#include <string>
#include <string_view>

namespace dbase {

// Writes `bytes` to `path` through a temporary file in the same folder renamed over it, so the
// path holds either the old or the complete new content. Returns false on any failure (the
// temporary file is removed).
bool WriteFileAtomic(const std::string& path, std::string_view bytes);

}  // namespace dbase
