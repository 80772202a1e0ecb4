// status_snapshots.h: tells new subscribers of provider status what is on line, here and then at
// other sites.
#ifndef DCH_CORE_STATUS_SNAPSHOTS_H
#define DCH_CORE_STATUS_SNAPSHOTS_H

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "dch/core/peer_address.h"
#include "dch/core/publisher.h"
#include "dch/core/registry.h"
#include "dch/core/remote_providers.h"

namespace dch {

// Sends batch by batch: a subscriber's system keeps a few hundred datagrams that it has not read
// yet, and loses what is beyond. Every event tells what is so when it is sent, so changes may be
// published in between. One thread.
class StatusSnapshots {
 public:
  static constexpr std::size_t defaultBatch = 100;

  StatusSnapshots(const Registry& registry, const RemoteProviders& remote, Publisher& publisher,
                  std::size_t batch = defaultBatch)
      : _registry(registry), _remote(remote), _publisher(publisher), _batch(batch) {}

  // Sends the first batch to a subscriber; from the start also when it is being told already.
  // Throws std::bad_alloc.
  void start(const PeerAddress& subscriber);

  // The next batch is due for everyone who has not been told all. To be called a moment later.
  // Sends it to the first of them.
  void advance() noexcept;

  // Whether advanceOne() is to be called, after others had their turn.
  bool areAdvancing() const { return !_due.empty(); }
  void advanceOne() noexcept;

  bool areUnderWay() const { return !_told.empty(); }

 private:
  // How far a subscriber was told.
  struct Told {
    ZORA_Long handle = 0;           // of this server
    RemoteProviders::Place remote;  // when all of this server were
  };

  bool sendBatch(const PeerAddress& subscriber, Told* told);
  std::optional<SourceNames> next(Told* told) const;

  const Registry& _registry;
  const RemoteProviders& _remote;
  Publisher& _publisher;
  const std::size_t _batch;
  std::unordered_map<PeerAddress, Told, PeerAddressHash> _told;
  std::vector<PeerAddress> _due;  // with room for all of them
};

}  // namespace dch

#endif  // DCH_CORE_STATUS_SNAPSHOTS_H
