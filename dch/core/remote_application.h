// remote_application.h: an application as other sites have it.
#ifndef DCH_CORE_REMOTE_APPLICATION_H
#define DCH_CORE_REMOTE_APPLICATION_H

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "suite/registration.h"

namespace dch {

// One thread.
class RemoteApplication {
 public:
  explicit RemoteApplication(std::string_view name) : _name(name) {}
  RemoteApplication(const RemoteApplication&) = delete;
  RemoteApplication& operator=(const RemoteApplication&) = delete;

  // Sites that make up more than these do not hold up who merges them: so many registrations, and
  // of those behind the first so many that all together have no more bytes of text than this.
  static constexpr std::size_t mostToMerge = 16;
  static constexpr std::size_t mostBytesToMerge = std::size_t{128} * 1024;

  // One of its registrations.
  struct Shared {
    std::shared_ptr<const suite::Registration> registration;
    std::size_t sites = 0;  // that have it
  };

  const std::string& name() const { return _name; }
  bool isRegistered() const { return !_registrations.empty(); }
  bool isInUse() const { return isRegistered() || _sourcesOnline > 0; }
  std::size_t sourcesOnline() const { return _sourcesOnline; }

  // What its sites have registered: the first ones of their texts in order, so that each server
  // that knows the same of other sites tells the same. It is registered. Valid until the next
  // change. Throws std::bad_alloc.
  std::vector<const suite::Registration*> registrations() const;
  // The first of them.
  const suite::Registration& first() const { return *_registrations.begin()->second.registration; }
  // The groups that they have, see merged_registration.h. They have been merged with the change:
  // who lists all applications does not have to wait for that of each. Valid until the next change.
  // Throws std::bad_alloc.
  const std::vector<std::string_view>& groupNames() const;
  // Whether all sites that have registered it have this text.
  bool hasOnly(std::string_view text) const;

  // That of this text; null when no site has it.
  const Shared* find(std::string_view text) const;
  // The same, entered when no site has it. Throws std::bad_alloc; nothing has changed then that can
  // be seen.
  Shared* enter(const std::shared_ptr<const suite::Registration>& registration);
  // A site has it no more. It goes when none has it.
  void remove(Shared* shared) noexcept;
  // That of this text goes when no site has it.
  void dropUnused(std::string_view text) noexcept;

  void addSource() noexcept { ++_sourcesOnline; }
  void removeSource() noexcept { --_sourcesOnline; }

 private:
  void changed() noexcept;

  const std::string _name;
  std::map<std::string_view, Shared> _registrations;  // by their texts
  std::size_t _sourcesOnline = 0;
  // Nothing after a change for which there was no memory.
  mutable std::optional<std::vector<std::string_view>> _groupNames;
};

}  // namespace dch

#endif  // DCH_CORE_REMOTE_APPLICATION_H
