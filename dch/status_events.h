// status_events.h: what subscribers of provider status are told.
#ifndef DCH_STATUS_EVENTS_H
#define DCH_STATUS_EVENTS_H

#include <string>

#include "dch/registry.h"

namespace dch {

// What status events are published under. No topicOf(application, group) is the same: each of those
// holds a zero byte.
inline constexpr char statusTopic[] = "provider status";

struct StatusEvent {
  std::string message;
  ZORA_Long handle = 0;  // of the source that it tells of, 0 when it tells of an application
};

// `code` is that of the request that changed the status. Names that do not apply are empty.
StatusEvent statusEvent(const SourceNames& names, short code, ZORA_Long handle = 0);

}  // namespace dch

#endif  // DCH_STATUS_EVENTS_H
