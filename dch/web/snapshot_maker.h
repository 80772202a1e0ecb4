// snapshot_maker.h: makes a snapshot, piece by piece.
#ifndef DCH_WEB_SNAPSHOT_MAKER_H
#define DCH_WEB_SNAPSHOT_MAKER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "dch/core/registry.h"
#include "dch/web/snapshot.h"

namespace dch {

// One thread, the registry's. The registry may change between two pieces.
class SnapshotMaker {
 public:
  // A piece is no more than that.
  static constexpr std::size_t mostSources = 128;
  static constexpr std::size_t mostApplications = 16;
  static constexpr std::size_t mostBytes =
      std::size_t{128} * 1024;  // of rows, beyond the first one

  // Both outlive it, and are of its thread.
  SnapshotMaker(const Registry& registry, const EarlierNumbers& earlier)
      : _registry(registry), _earlier(earlier) {}

  // Begins a snapshot, in the memory of an earlier one.
  void begin(std::unique_ptr<Snapshot> used) noexcept;

  // Whether one is begun and not complete, nor given up.
  bool isMaking() const { return _snapshot != nullptr; }

  // Adds a piece. Returns whether it is complete. Throws std::bad_alloc: then it is given up.
  bool addPiece();

  // The one that is complete.
  std::unique_ptr<Snapshot> take() noexcept;

 private:
  enum class Part { applications, sources, rest };

  void addApplications();
  void addApplication(const suite::Registration& registration);
  void addSources();
  std::size_t addSource(const Source& source);
  void addEarlier(const Source& source, Snapshot::SourceState* state) const;
  bool removeRest() noexcept;

  const Registry& _registry;
  const EarlierNumbers& _earlier;
  std::unique_ptr<Snapshot> _snapshot;
  Part _part = Part::applications;
  std::uint64_t _revision = 0;  // of the registry when it began
  std::shared_ptr<Snapshot::Applications> _applications;
  std::string _lastName;      // of those
  ZORA_Long _lastHandle = 0;  // of the sources
  std::size_t _sourceCount = 0;

  // Those of the snapshot before, and the registry's revision that they are of.
  std::shared_ptr<const Snapshot::Applications> _formerApplications =
      std::make_shared<Snapshot::Applications>();
  std::uint64_t _formerRevision = 0;
  std::size_t _formerPlace = 0;  // where the next one is looked for
};

}  // namespace dch

#endif  // DCH_WEB_SNAPSHOT_MAKER_H
