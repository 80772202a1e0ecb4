// status_snapshots.h: tells new subscribers of provider status what is on line.
#ifndef DCH_CORE_STATUS_SNAPSHOTS_H
#define DCH_CORE_STATUS_SNAPSHOTS_H

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "dch/core/peer_address.h"
#include "dch/core/publisher.h"
#include "dch/core/registry.h"

namespace dch {

// Sends batch by batch: a subscriber's system keeps a few hundred datagrams that it has not read
// yet, and loses what is beyond. Every event tells what is so when it is sent, so changes may be
// published in between. One thread.
class StatusSnapshots {
 public:
  static constexpr std::size_t defaultBatch = 100;

  StatusSnapshots(const Registry& registry, Publisher& publisher, std::size_t batch = defaultBatch)
      : _registry(registry), _publisher(publisher), _batch(batch) {}

  // Sends the first batch to a subscriber; from the start also when it is being told already.
  // Throws std::bad_alloc.
  void start(const PeerAddress& subscriber);

  // The next batch is due for everyone who has not been told all. To be called a moment later.
  // Sends it to the first of them.
  void advance() noexcept;

  // Whether advanceOne() is to be called, after others had their turn.
  bool areAdvancing() const { return !_due.empty(); }
  void advanceOne() noexcept;

  bool areUnderWay() const { return !_lastTold.empty(); }

 private:
  bool sendBatch(const PeerAddress& subscriber, ZORA_Long* lastTold);

  const Registry& _registry;
  Publisher& _publisher;
  const std::size_t _batch;
  // The highest handle that each one has been told of.
  std::unordered_map<PeerAddress, ZORA_Long, PeerAddressHash> _lastTold;
  std::vector<PeerAddress> _due;  // with room for all of them
};

}  // namespace dch

#endif  // DCH_CORE_STATUS_SNAPSHOTS_H
