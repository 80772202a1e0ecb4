// The trace record of the functions in zora/.
#ifndef ZORA_TRACE_UNIT_H
#define ZORA_TRACE_UNIT_H

#include "zora/trc1.h"

namespace zora {
inline constinit TRC1_Unit traceUnit{"zora", "ZORA410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = zora::traceUnit;

#endif  // ZORA_TRACE_UNIT_H
