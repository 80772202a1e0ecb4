// answers.h: sends answers back to where the requests came from.
#ifndef DCH_ANSWERS_H
#define DCH_ANSWERS_H

#include <cstdint>

#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "dch/kept_descriptor.h"
#include "dch/paced_sender.h"
#include "dch/requests.h"
#include "zordipc/zordipc.h"

namespace dch {

// An answer that cannot be sent at once is dropped and counted: a client that does not read holds
// up nobody else. One of several datagrams goes to the paced sender. One thread.
class Answers {
 public:
  // Throws std::system_error without the two descriptors that it keeps.
  Answers(DCHipc& endpoint, PacedSender& pacedSender, const EventLog& log)
      : _endpoint(endpoint), _pacedSender(pacedSender), _log(log) {}

  void send(const IncomingMessage& request, const Answer& answer);

 private:
  bool sendStatus(const IncomingMessage& request, const Answer& answer);
  bool sendText(const IncomingMessage& request, const std::string& text);
  bool sendDatagram(const PeerAddress& receiver, char* message, ZORA_Long length);
  bool sendOnConnection(const IncomingMessage& request, char* message, ZORA_Long length);

  DCHipc& _endpoint;
  PacedSender& _pacedSender;
  const EventLog& _log;
  KeptDescriptor _forConnections;
  std::uint64_t _dropped = 0;
};

}  // namespace dch

#endif  // DCH_ANSWERS_H
