// endpoint_answers.h: sends answers through the endpoint that the requests came from.
#ifndef DCH_ENDPOINT_ANSWERS_H
#define DCH_ENDPOINT_ANSWERS_H

#include "dch/core/answers.h"
#include "dch/kept_descriptor.h"
#include "dch/paced_sender.h"
#include "zordipc/zordipc.h"

namespace dch {

// An answer of several datagrams goes to the paced sender. The number of a connection is its
// descriptor. One thread.
class EndpointAnswers : public Answers {
 public:
  // Throws std::system_error without the two descriptors that it keeps.
  EndpointAnswers(DCHipc& endpoint, PacedSender& pacedSender, Counters& counters, const Log& log)
      : _endpoint(endpoint), _pacedSender(pacedSender), _counters(counters), _log(log) {}

  void send(const Origin& receiver, std::string_view message) noexcept override;

 private:
  bool sendDatagram(const PeerAddress& receiver, std::string_view message);
  bool sendOnConnection(const Origin& receiver, std::string_view message);

  DCHipc& _endpoint;
  PacedSender& _pacedSender;
  Counters& _counters;
  const Log& _log;
  KeptDescriptor _forConnections;
};

}  // namespace dch

#endif  // DCH_ENDPOINT_ANSWERS_H
