// site_providers.h: what sites say of their providers, where the channel's thread and the link's
// meet.
#ifndef DCH_LINK_SITE_PROVIDERS_H
#define DCH_LINK_SITE_PROVIDERS_H

#include "dch/core/changed_providers.h"
#include "dch/link/waiting_providers.h"

namespace dch {

struct SiteProviders {
  ChangedProviders changed;  // looks on at the core; the channel's thread
  WaitingProviders own;      // from there to the link's thread
  WaitingProviders others;   // and back
};

}  // namespace dch

#endif  // DCH_LINK_SITE_PROVIDERS_H
