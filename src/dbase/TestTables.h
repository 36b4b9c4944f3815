// The product's table layouts, for the engine's tests. The engine itself knows no table, so the
// tests borrow the database layer's definitions (a header of constants only, nothing to link).
#pragma once

#include "database/Schema.h"

namespace dbase::testing {
using namespace database::schema;
}  // namespace dbase::testing
