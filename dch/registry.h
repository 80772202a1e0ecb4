// registry.h: what the server knows of providers: applications with their attribute groups, and the
// sources that are on line. An interface, so that a store that outlives the process can stand
// behind it.
#ifndef DCH_REGISTRY_H
#define DCH_REGISTRY_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/text_map.h"
#include "suite/registration.h"
#include "zora/zora.h"
#include "zordchcl/status.h"

namespace dch {

struct Attribute {
  char letter;
  ZORA_Long size;  // the value's largest size in bytes
};

// The attributes of a group by their names.
using AttributeGroup = TextMap<Attribute>;

struct SourceNames {
  std::string_view application;
  std::string_view group;
  std::string_view source;
};

// A source that may send rows.
struct OnlineSource {
  ZORA_Long handle = 0;
  std::string application;
  std::string groupName;
  std::string source;
  std::string topic;  // what its rows are published under: topicOf(application, groupName)
  const AttributeGroup* group = nullptr;

  SourceNames names() const { return {application, groupName, source}; }
};

struct RegisteredApplication {
  const suite::Registration* registration = nullptr;  // valid until the next change
  std::size_t sourcesOnline = 0;
};

using SourceVisitor = std::function<void(const OnlineSource&)>;

// The key of (application, group).
inline std::string topicOf(std::string_view application, std::string_view group) {
  return joinNames(application, group);
}

// Operations that change something answer the status for the client. One that fails has changed
// nothing; DCH_STATUS_NOT_STORED when the change could not be kept. None of them throws; queries
// may throw std::bad_alloc. One thread.
class Registry {
 public:
  virtual ~Registry() = default;

  // Replaces an earlier registration of the same name. Sources stay on line when their group is
  // still there; the others go off line.
  virtual DCH_Status registerApplication(const suite::Registration& registration) = 0;

  // Its sources go off line.
  virtual DCH_Status unregisterApplication(std::string_view application) = 0;

  // Stores the handle through `handle`: positive, and the same for the same names each time. It is
  // never used for other names.
  virtual DCH_Status goOnline(const SourceNames& names, ZORA_Long* handle) = 0;

  virtual DCH_Status goOffline(ZORA_Long handle) = 0;

  // Keeps a row that was found good.
  virtual DCH_Status storeRow(const OnlineSource& source, std::string_view message) = 0;

  // The source with this handle, null when it is not on line. Valid until the next change.
  virtual const OnlineSource* findOnline(ZORA_Long handle) const = 0;

  // Nothing when no application of this name is registered.
  virtual std::optional<RegisteredApplication> findApplication(std::string_view name) const = 0;

  // All of them, sorted by name.
  virtual std::vector<RegisteredApplication> applications() const = 0;

  virtual bool isOnline(const SourceNames& names) const = 0;

  // The source on line with the lowest handle above `handle`, null when there is none. Starting
  // with 0 this leads through all of them.
  virtual const OnlineSource* nextOnline(ZORA_Long handle) const = 0;

  // Calls the visitor, which changes nothing, for every source of an application that is on line.
  // What the visitor throws comes through.
  virtual void visitOnline(std::string_view application, const SourceVisitor& visitor) const = 0;
};

}  // namespace dch

#endif  // DCH_REGISTRY_H
