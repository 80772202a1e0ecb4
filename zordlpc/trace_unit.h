// The trace record of the functions in zordlpc/.
#ifndef ZORDLPC_TRACE_UNIT_H
#define ZORDLPC_TRACE_UNIT_H

#include "zora/trc1.h"

namespace zordlpc {
inline constinit TRC1_Unit traceUnit{"zordlpc", "ZORD410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = zordlpc::traceUnit;

#endif  // ZORDLPC_TRACE_UNIT_H
