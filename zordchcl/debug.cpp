#include "zordchcl/debug.h"

#include <atomic>

#include "suite/osv1.h"
#include "zora/zora.h"
#include "zordchcl/trace_unit.h"

namespace {

// Racing first calls store the same values.
std::atomic<char> _ZORA_VERBOSE{'N'};
std::atomic<short> VX_Debug_InitializeDone{0};

}  // namespace

int VX_Debug_Initialize() {
  TRC1_FUNCTION("VX_Debug_Initialize");
  static const char* const VX_verbose = OSV1_GetEnv("ZORA_VERBOSE", 0);
  const char setting = VX_verbose != nullptr ? *VX_verbose : 'N';
  _ZORA_VERBOSE.store(setting, std::memory_order_relaxed);
  TRC1_RETURN(int{setting});
}

int VX_Debug() {
  // Whoever sees the flag sees the setting that it stands for.
  if (VX_Debug_InitializeDone.load(std::memory_order_acquire) == 0) {
    VX_Debug_Initialize();
    VX_Debug_InitializeDone.store(1, std::memory_order_release);
  }
  switch (_ZORA_VERBOSE.load(std::memory_order_relaxed)) {
    case 'Y':
      return 1;
    case 'D':
      return 2;
    default:
      return 0;
  }
}
