// Small helpers of the record operations that read the table controls: a fixed-width text as a
// view, and the status of a near seek as the operations read it.
#pragma once

#include <cstddef>
#include <string_view>

#include "dbase/Status.h"

namespace database::detail {

// The status of a near seek as the record operations read it: 0 whenever the table stands on a
// record (an equal or a greater key); the caller then checks the record itself.
inline int NearStatus(int status) { return status == dbase::kAfter ? dbase::kOk : status; }

inline std::string_view View(const char* data, int width) {
  return {data, static_cast<size_t>(width)};
}

}  // namespace database::detail
