#include <atomic>
#include <cstdlib>

#include "suite/osv1.h"
#include "zora/zora.h"

namespace {

// 0 means not decided yet. Racing first calls store the same value.
std::atomic<ZORA_Long> _ipcType{0};

}  // namespace

int ZORA_GetIPCtype() {
  ZORA_Long type = _ipcType.load(std::memory_order_relaxed);
  if (type == 0) {
    const char* configured = OSV1_GetEnv("ZORA_DCH_IPCTYPE", 0);
    type = configured != nullptr ? std::atoi(configured) : IPC_TYPE_SOCKET;
    _ipcType.store(type, std::memory_order_relaxed);
  }
  return static_cast<int>(type);
}
