// changed_providers.h: what is registered and on line at this server, for who tells it to others.
#ifndef DCH_CORE_CHANGED_PROVIDERS_H
#define DCH_CORE_CHANGED_PROVIDERS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/observer.h"
#include "dch/core/provider_fact.h"
#include "dch/core/text_map.h"

namespace dch {

// Tells all that the registry has, some at a time, and then what has changed: always as it is when
// it is told, however often it has changed before. One thread, the core's.
class ChangedProviders final : public Observer {
 public:
  // Where more names have changed than that before they are told, it begins anew: names that are
  // made up without an end take no more memory.
  static constexpr std::size_t mostNames = 50'000;
  // A registration, which is to be copied, takes the place of so many other facts.
  static constexpr std::size_t factsOfARegistration = 8;

  void rowKept(const Source&, std::string_view, std::string_view, Time) noexcept override {}
  void statusChanged(const SourceNames& names, short requestCode) noexcept override;

  // From the registry of the core that it looks on at, when its state is loaded: the next facts,
  // `most` of them, not 0, or as many less as there are sources on the way that are not on line: so
  // it may be none. The news has no site. Nothing: there is no more now.
  // Throws std::bad_alloc: then it begins anew.
  std::optional<ProviderNews> take(const Registry& registry, std::size_t most);

  // For who has lost what was told: the next one is the first of all again.
  void beginAnew() noexcept;

 private:
  enum class Part { begin, applications, sources, changes };

  ProviderNews next(const Registry& registry, std::size_t most);
  // They take what they do away from `left`.
  void addApplications(const Registry& registry, ProviderNews* news, std::size_t* left);
  void addSources(const Registry& registry, ProviderNews* news, std::size_t* left);
  void addChanges(const Registry& registry, ProviderNews* news, std::size_t* left);
  static void addApplication(const Registry& registry, std::string_view name, ProviderNews* news,
                             std::size_t* left);

  Part _part = Part::begin;
  std::string _lastApplication;
  ZORA_Long _lastHandle = 0;
  // Of one name: an application; of three: a source. None while nothing is begun.
  TextSet _changed;
};

}  // namespace dch

#endif  // DCH_CORE_CHANGED_PROVIDERS_H
