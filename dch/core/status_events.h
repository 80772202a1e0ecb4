// status_events.h: what subscribers of provider status are told.
#ifndef DCH_CORE_STATUS_EVENTS_H
#define DCH_CORE_STATUS_EVENTS_H

#include <array>
#include <cstddef>
#include <string_view>

#include "dch/core/registry.h"
#include "zordchcl/zordchcl.h"

namespace dch {

// What status events are published under. No topicOf(application, group) is the same: each of those
// holds a zero byte.
inline constexpr char statusTopic[] = "provider status";

// It takes no memory of its own: what has happened can be told without any.
class StatusEvent {
 public:
  // `code` is that of the request that changed the status. Names that do not apply are empty.
  StatusEvent(const SourceNames& names, short code);

  std::string_view message() const { return {_bytes.data(), _length}; }

 private:
  // A length word, the headers of four fields, three names with their zeros, and a code.
  std::array<char, 4 + 4 * 6 + (DCH_MAX_APPL_NAME + 1) + (DCH_MAX_ATTR_GROUP + 1) +
                       (DCH_MAX_SOURCE_NAME + 1) + 2>
      _bytes;
  std::size_t _length;
};

}  // namespace dch

#endif  // DCH_CORE_STATUS_EVENTS_H
