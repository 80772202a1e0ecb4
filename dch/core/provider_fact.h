// provider_fact.h: what a site says of its providers.
#ifndef DCH_CORE_PROVIDER_FACT_H
#define DCH_CORE_PROVIDER_FACT_H

#include <memory>
#include <string>
#include <vector>

#include "suite/registration.h"

namespace dch {

// It is so now.
struct ProviderFact {
  enum class Kind { registered, unregistered, online, offline };

  Kind kind = Kind::registered;
  std::string application;
  std::string group = {};                                        // of online and offline
  std::string source = {};                                       // likewise; may be empty
  std::shared_ptr<const suite::Registration> registration = {};  // of registered: never null
};

// Of one site, in the order in which it is to be taken.
struct ProviderNews {
  // first: what was known of the site is gone unless it is told again, from here on up to isAll.
  // silent: none of its sources is on line.
  enum class Kind { first, more, silent };

  std::string site = {};
  Kind kind = Kind::more;
  std::vector<ProviderFact> facts = {};
  bool isAll = false;  // what `first` has begun ends here
};

}  // namespace dch

#endif  // DCH_CORE_PROVIDER_FACT_H
