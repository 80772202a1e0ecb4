// site_changes.h: what has changed at a site, as it says it.
#ifndef DCH_LINK_SITE_CHANGES_H
#define DCH_LINK_SITE_CHANGES_H

#include <cstdint>
#include <string>

#include "dch/core/epoch.h"

namespace dch {

// Of what one run of a site says of its providers: from one revision of that to the next.
struct SiteChanges {
  std::string site;
  Epoch run;
  std::uint64_t from = 0;  // not above `to`
  // The same as `from`: it says no changes now, only which revision it has. 0: it says nothing of
  // its providers yet.
  std::uint64_t to = 0;
  std::string text = {};  // lines, each with its '\n': some exactly when `to` is higher than `from`

  friend bool operator==(const SiteChanges&, const SiteChanges&) = default;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_CHANGES_H
