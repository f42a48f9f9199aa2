// Front ends for database cursors and engines. Unlike the other kinds, a
// failed check keeps the record from the host. The plug-in has neither kind.
#pragma once

#include "abi/plugin_abi.h"

namespace qvt {

void RegisterDBCursor(REALdbCursorDefinition *definition);
void RegisterDBEngine(REALdbEngineDefinition *definition);

}  // namespace qvt
