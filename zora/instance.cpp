#include <cstring>

#include "zora/trace_unit.h"
#include "zora/zora.h"

namespace {

constexpr std::size_t maxNameLength = 20;
char InstanceName[maxNameLength + 1];

}  // namespace

void ZORA_SetInstanceName(const char* name) {
  TRC1_FUNCTION("ZORA_SetInstanceName");
  std::memset(InstanceName, 0, sizeof InstanceName);
  if (name != nullptr) {
    name += std::strspn(name, " ");
    if (*name == '\0') {
      TRC1_ERROR("*****Nothing stored in InstanceName variable for <%s>\n", name);
    } else {
      std::strncpy(InstanceName, name, maxNameLength);
      TRC1_DETAIL("Storing InstanceName <%s>\n", InstanceName);
    }
  }
  TRC1_LEAVE();
}

char* ZORA_GetInstanceName() {
  TRC1_QUIET_FUNCTION("ZORA_GetInstanceName");
  if (InstanceName[0] != '\0') TRC1_DETAIL("Returning InstanceName <%s>\n", InstanceName);
  return InstanceName;
}
