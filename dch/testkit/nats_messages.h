// nats_messages.h: what tests read of NATS messages.
#ifndef DCH_TESTKIT_NATS_MESSAGES_H
#define DCH_TESTKIT_NATS_MESSAGES_H

#include <stdexcept>
#include <string>

#include "dch/link/nats.h"

namespace dch::testkit {

inline void requireDone(natsStatus status) {
  if (status != NATS_OK) throw std::runtime_error(natsStatus_GetText(status));
}

// `reply` may be null.
inline NatsMessage messageFor(const std::string& subject, const std::string& body,
                              const char* reply = nullptr) {
  natsMsg* made = nullptr;
  requireDone(
      natsMsg_Create(&made, subject.c_str(), reply, body.data(), static_cast<int>(body.size())));
  return NatsMessage(made);
}

inline void setHeader(const NatsMessage& message, const char* header, const std::string& value) {
  requireDone(natsMsgHeader_Set(message.get(), header, value.c_str()));
}

// Empty when there is no such header.
inline std::string headerIn(natsMsg* message, const char* name) {
  const char* value = nullptr;
  return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : "";
}

inline std::string bodyOf(natsMsg* message) {
  return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NATS_MESSAGES_H
