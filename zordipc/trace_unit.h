// The trace record of the functions in zordipc/.
#ifndef ZORDIPC_TRACE_UNIT_H
#define ZORDIPC_TRACE_UNIT_H

#include "zora/trc1.h"

namespace zordipc {
inline constinit TRC1_Unit traceUnit{"zordipc", "ZORD410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = zordipc::traceUnit;

#endif  // ZORDIPC_TRACE_UNIT_H
