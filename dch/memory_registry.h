// memory_registry.h: the registry in the memory of the process.
#ifndef DCH_MEMORY_REGISTRY_H
#define DCH_MEMORY_REGISTRY_H

#include <cstddef>
#include <memory>
#include <vector>

#include "dch/registry.h"

namespace dch {

// How much it takes in; what is beyond is not stored. Far above what a suite has, so that only a
// flood of made-up names meets it.
struct MemoryRegistryLimits {
  std::size_t applications = 10'000;
  std::size_t sources = 1'000'000;
};

class MemoryRegistry : public Registry {
 public:
  explicit MemoryRegistry(const MemoryRegistryLimits& limits = {}) : _limits(limits) {}

  DCH_Status registerApplication(const suite::Registration& registration) override;
  DCH_Status unregisterApplication(std::string_view application) override;
  DCH_Status goOnline(const SourceNames& names, ZORA_Long* handle) override;
  DCH_Status goOffline(ZORA_Long handle) override;
  // Keeps nothing: subscribers are the only readers of rows, and they have been sent them.
  DCH_Status storeRow(const OnlineSource& source, std::string_view message) override;
  const OnlineSource* findOnline(ZORA_Long handle) const override;
  std::optional<RegisteredApplication> findApplication(std::string_view name) const override;
  std::vector<RegisteredApplication> applications() const override;
  bool isOnline(const SourceNames& names) const override;
  const OnlineSource* nextOnline(ZORA_Long handle) const override;
  void visitOnline(std::string_view application, const SourceVisitor& visitor) const override;

 private:
  // A source is on line while its `group` is set.
  using Source = OnlineSource;

  struct Application {
    bool isRegistered() const { return !groups.empty(); }
    RegisteredApplication description() const;

    suite::Registration registration;
    TextMap<AttributeGroup> groups;
    std::vector<Source*> sources;  // also those that are off line
  };

  Source* find(ZORA_Long handle) const;
  ZORA_Long addSource(Application* application, const SourceNames& names);

  const MemoryRegistryLimits _limits;
  // Applications that are registered or that have sources: a handle belongs to its names for good.
  TextMap<Application> _applications;
  std::vector<std::unique_ptr<Source>> _sources;  // the source of handle 1 comes first
  TextMap<ZORA_Long> _handles;                    // by the three names
};

}  // namespace dch

#endif  // DCH_MEMORY_REGISTRY_H
