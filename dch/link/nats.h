// nats.h: what the library for NATS makes, each thing with its end. For the sources of the link
// only.
#ifndef DCH_LINK_NATS_H
#define DCH_LINK_NATS_H

#include <nats/nats.h>

#include <memory>

namespace dch {

template <auto destroy>
struct NatsEnd {
  template <class Thing>
  void operator()(Thing* thing) const {
    destroy(thing);
  }
};

using NatsOptions = std::unique_ptr<natsOptions, NatsEnd<natsOptions_Destroy>>;
using NatsConnection = std::unique_ptr<natsConnection, NatsEnd<natsConnection_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsEnd<natsSubscription_Destroy>>;
using JetStreamContext = std::unique_ptr<jsCtx, NatsEnd<jsCtx_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, NatsEnd<natsMsg_Destroy>>;
using NatsInbox = std::unique_ptr<natsInbox, NatsEnd<natsInbox_Destroy>>;

}  // namespace dch

#endif  // DCH_LINK_NATS_H
