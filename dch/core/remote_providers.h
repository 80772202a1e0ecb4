// remote_providers.h: what other sites have of providers: their applications and sources on line.
#ifndef DCH_CORE_REMOTE_PROVIDERS_H
#define DCH_CORE_REMOTE_PROVIDERS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "dch/core/provider_fact.h"
#include "dch/core/registry.h"
#include "dch/core/remote_application.h"

namespace dch {

// Each call does little, however much a site has: what it has no more goes later, in settle().
// Pointers are valid until the next change. One thread.
class RemoteProviders {
 public:
  // What is beyond is refused. A site has no more than a quarter of each, so that one that makes up
  // names leaves room for the others.
  struct Limits {
    std::size_t applications = 10'000;
    // Registrations and sources, of each site that has them: the 1,000,000 sources of a thousand
    // sites, with as many applications as they may have.
    std::size_t entries = 1'100'000;
    // The texts of registrations, one that several sites have once. In memory they take some times
    // as much.
    std::size_t textBytes = std::size_t{32} << 20;
  };

  RemoteProviders() : RemoteProviders(Limits()) {}
  explicit RemoteProviders(const Limits& limits) : _limits(limits) {}
  RemoteProviders(const RemoteProviders&) = delete;
  RemoteProviders& operator=(const RemoteProviders&) = delete;

  // A copy of all that a site has begins, and ends: what was not told in between is gone. An end
  // without a beginning is none.
  void begin(std::string_view site) noexcept;
  void end(std::string_view site) noexcept;

  // None of the sources of a site is on line until it is told again. Its registrations stay. A copy
  // that has begun is none.
  void silent(std::string_view site) noexcept;

  // What a site has now; its names hold no zero. What is refused changes nothing. Throws
  // std::bad_alloc; nothing has changed then.
  void take(std::string_view site, const ProviderFact& fact);

  // Some of what is gone goes. Returns whether there is more: to be called until there is not,
  // after others had their turn. Until then it is told as if it were there.
  bool settle() noexcept;

  // Who is told what becomes of them, see StatusEvent, when it has: of each site by itself, also
  // where several have sources of one name. It takes no memory, and calls back nothing that
  // changes something. Nobody at first.
  using Told = std::function<void(const SourceNames& names, short requestCode)>;
  void setTold(Told told) { _told = std::move(told); }

  // A source of a site; with empty texts it is before all of them.
  struct Place {
    std::string site;
    std::string names;  // joined
  };
  // The next source on line behind that place, which becomes its own; nothing when there is none.
  // Starting with an empty place this leads through all of them, also when some come and go
  // meanwhile. Valid until the next change. Throws std::bad_alloc.
  std::optional<SourceNames> nextOnline(Place* place) const;
  bool hasOnlineBehind(const Place& place) const;

  // Null when no site has registered an application of this name.
  const RemoteApplication* find(std::string_view application) const;

  // The first that is registered behind `application`, null when there is none. Starting with an
  // empty name this leads through all of them, sorted by name.
  const RemoteApplication* next(std::string_view application) const;

  // Another number after each change of what they tell.
  std::uint64_t revision() const { return _revision; }

  // Facts for which there was no room.
  std::uint64_t refused() const { return _refused; }

 private:
  using Applications = std::map<std::string, RemoteApplication, std::less<>>;

  // What a site has told: an application it has registered, or a source.
  struct Entry {
    // The registrations of an application, and the sources of all its groups, are neighbours.
    RemoteApplication* application = nullptr;
    RemoteApplication::Shared* registration = nullptr;  // null of a source
    std::uint64_t round = 0;                            // in which it was told last
  };
  using Entries = std::map<std::string, Entry, std::less<>>;  // by their names, joined

  // It is there for as long as it has entries.
  struct Site {
    explicit Site(std::string_view siteName) : name(siteName) {}

    const std::string name;
    Entries entries;
    std::size_t applications = 0;  // of which it has entries
    std::size_t textBytes = 0;     // of its registrations
    bool isInCopy = false;
    bool isSettling = false;
    // A round begins with a copy or when the site falls silent. Entries of rounds before these are
    // gone.
    std::uint64_t round = 0;
    std::uint64_t registrationsSince = 0;
    std::uint64_t sourcesSince = 0;
    Entries::iterator next = entries.end();  // while it settles: the next to be looked at
  };
  using Sites = std::list<Site>;

  Site* findSite(std::string_view name);
  Site* enterSite(std::string_view name);
  void dropUnused(std::string_view site) noexcept;
  void settleLater(Site* site) noexcept;
  bool settleOne(Site* site) noexcept;
  static bool isGone(const Site& site, const Entry& entry);

  void add(std::string_view site, const ProviderFact& fact);
  bool hasRoom(const Site* site, const std::string& key, const ProviderFact& fact) const;
  bool hasRoomForEntry(const Site* site, const std::string& key, std::string_view name) const;
  bool hasRoomForText(const Site* site, const Entry* former, const ProviderFact& fact) const;
  // The entry, and whether it is new: then it is one of a source.
  std::pair<Entries::value_type*, bool> enter(Site* site, std::string&& key,
                                              RemoteApplication* application);
  void remove(Site* site, Entries::iterator entry) noexcept;
  void setRegistration(Site* site, Entries::value_type* entry,
                       RemoteApplication::Shared* registration) noexcept;
  void removeRegistration(Site* site, RemoteApplication* application,
                          RemoteApplication::Shared* registration) noexcept;
  void addSource(const Entries::value_type& entry) noexcept;
  void removeSource(RemoteApplication* application) noexcept;

  const Entries::value_type* sourceBehind(const Place& place, const Site** site) const;
  void tell(const Entries::value_type& entry, short requestCode) const noexcept;

  const Limits _limits;
  Told _told;
  Applications _applications;  // of which a site has an entry
  Sites _sites;
  Sites _settling;
  std::map<std::string, Sites::iterator, std::less<>> _siteOf;  // by their names
  std::size_t _entries = 0;                                     // of all sites
  std::size_t _textBytes = 0;                                   // of distinct registrations
  std::uint64_t _revision = 0;
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_CORE_REMOTE_PROVIDERS_H
