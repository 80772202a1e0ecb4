// registry.h: what the server knows of providers: applications with their attribute groups, and the
// sources of their rows.
#ifndef DCH_CORE_REGISTRY_H
#define DCH_CORE_REGISTRY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/offline_rows.h"
#include "dch/core/text_map.h"
#include "suite/registration.h"
#include "zordchcl/status.h"

namespace dch {

struct Attribute {
  char letter;
  ZORA_Long size;  // the value's largest size in bytes
};

// The attributes of a group by their names.
using Attributes = TextMap<Attribute>;

// The key of (application, group).
inline std::string topicOf(std::string_view application, std::string_view group) {
  return joinNames(application, group);
}

struct SourceNames {
  std::string_view application;
  std::string_view group;
  std::string_view source;
};

struct Application;
struct Source;

// It stays for as long as it is registered or has a source.
struct Group {
  Application* application = nullptr;
  std::string name;
  std::string topic;  // what its rows are published under
  bool isRegistered = false;
  Attributes attributes;
  std::unordered_map<std::string_view, Source*> sources;  // by their names
};

struct Application {
  bool isRegistered() const { return !registration.groups.empty(); }

  std::string name;
  suite::Registration registration;  // without groups while it is not registered
  TextMap<Group> groups;
  std::size_t sourcesOnline = 0;
};

// It stays for good: its handle never comes to mean another one.
struct Source {
  SourceNames names() const { return {group->application->name, group->name, name}; }

  ZORA_Long handle = 0;
  bool isOnline = false;  // its group is registered then
  Group* group = nullptr;
  std::string name;
  // Its newest row, as long as it is at hand: always while it is on line. See OfflineRows.
  std::optional<Row> row;
  Source* olderOffline = nullptr;  // their neighbours among the OfflineRows
  Source* newerOffline = nullptr;
};

// How much the registry takes in; what is beyond is not stored. Far above what a suite has, so that
// only a flood of made-up names meets it.
struct RegistryLimits {
  std::size_t applications = 10'000;
  std::size_t sources = 1'000'000;
  std::size_t offlineRowBytes = std::size_t{16} * 1024 * 1024;
};

// What has become of a change.
struct Applied {
  DCH_Status status = DCH_STATUS_OK;  // anything else: it changed nothing
  const Source* source = nullptr;     // that the change names
  std::vector<const Source*> moved;   // that went on line or off line, the lowest handle first
};

// The memory that a change takes, to be had before it is kept: what was kept has to be applied.
struct Prepared {
  struct GroupAttributes {
    Group* group;
    Attributes attributes;
  };
  std::vector<GroupAttributes> groups;
  std::vector<const Source*> moved;
};

struct RegistryFigures {
  std::size_t applications = 0;  // that are registered
  std::size_t sources = 0;       // that have a handle
  std::size_t sourcesOnline = 0;
};

// Checks answer what would become of a change now. Only apply() changes what can be seen: a change
// is checked, prepared, kept and then applied, and others may be applied in between, but for those
// of the same application when one of the two is a registration (see ChangesUnderWay). Pointers are
// valid until the next change, those to sources for good. One thread.
class Registry {
 public:
  explicit Registry(const RegistryLimits& limits = {})
      : _limits(limits), _offlineRows(limits.offlineRowBytes) {}
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  DCH_Status check(const suite::Registration& registration) const;
  DCH_Status checkUnregistration(std::string_view application) const;
  DCH_Status check(const SourceNames& names) const;

  // The handle that these names have, or will have when they go on line.
  ZORA_Long handleFor(const SourceNames& names) const;

  // Throws std::bad_alloc; nothing has changed then that can be seen.
  Prepared prepare(const Registered& change);
  Prepared prepare(const Unregistered& change);
  // The names have their handle from now on, whatever becomes of the change.
  Prepared prepare(const WentOnline& change);
  Prepared prepare(const WentOffline& change);

  // The change was not kept.
  void abandon(const Registered& change) noexcept;

  // Replaces an earlier registration of the same name. Sources stay on line when their group is
  // still there; the others go off line.
  Applied apply(Registered&& change, Prepared&& prepared) noexcept;
  // Its sources go off line.
  Applied apply(const Unregistered& change, Prepared&& prepared) noexcept;
  Applied apply(const WentOnline& change, Prepared&& prepared) noexcept;
  Applied apply(const WentOffline& change, Prepared&& prepared) noexcept;
  // A row that was good when it came stays good, whatever has come in between. It is taken unless
  // its source is off line and it is larger than all rows of such sources may be. Of a source that
  // is on line `change` holds the row before it then, an empty one where there was none.
  Applied apply(Row* change) noexcept;

  // The source with this handle, null when there is none.
  const Source* findSource(ZORA_Long handle) const { return find(handle); }
  // The same, null also when it is not on line.
  const Source* findOnline(ZORA_Long handle) const;
  // Null when these names have no handle.
  const Source* find(const SourceNames& names) const;

  // Null when no application of this name is registered.
  const Application* findApplication(std::string_view name) const;

  // All that are registered, sorted by name.
  std::vector<const Application*> applications() const;

  // The first of them behind `name`, null when there is none. Starting with an empty name this
  // leads through all of them, also when some come and go meanwhile.
  const Application* nextApplication(std::string_view name) const;

  RegistryFigures figures() const;

  // Another number after each change but a row.
  std::uint64_t revision() const { return _revision; }

  // The source on line with the lowest handle above `handle`, null when there is none. Starting
  // with 0 this leads through all of them.
  const Source* nextOnline(ZORA_Long handle) const;
  // The same, on line or not.
  const Source* nextSource(ZORA_Long handle) const;

 private:
  Application* enterApplication(std::string_view name);
  Group* enterGroup(Application* application, std::string_view name);
  void enterSource(const WentOnline& change);
  void dropUnused(std::string_view application) noexcept;
  Source* find(ZORA_Long handle) const;
  void setOnline(const Source* source, bool isOnline) noexcept;

  const RegistryLimits _limits;
  // Applications that are registered or that have sources.
  std::map<std::string, Application, std::less<>> _applications;
  std::vector<std::unique_ptr<Source>> _sources;  // that of handle 1 comes first; with gaps
  OfflineRows _offlineRows;
  std::uint64_t _revision = 0;
};

}  // namespace dch

#endif  // DCH_CORE_REGISTRY_H
