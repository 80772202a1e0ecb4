// shared_registrations.h: one parsed registration for all that have the same text.
#ifndef DCH_LINK_SHARED_REGISTRATIONS_H
#define DCH_LINK_SHARED_REGISTRATIONS_H

#include <cstddef>
#include <memory>
#include <string_view>

#include "dch/core/text_map.h"
#include "suite/registration.h"

namespace dch {

// Most sites have the same applications, with the same texts. Keeps none that nobody else has, but
// for what it takes to notice that: as much again at most. One thread; what it gives, any thread
// may have and let go.
class SharedRegistrations {
 public:
  // Of a text that may come from anywhere; null unless it is the shortest form of a registration
  // and fits into a provider's message. Throws std::bad_alloc, nothing has changed then.
  std::shared_ptr<const suite::Registration> of(std::string_view text);

  // How many are kept, with those that were not noticed yet.
  std::size_t size() const { return _known.size(); }

 private:
  void forgetUnused();

  TextMap<std::weak_ptr<const suite::Registration>> _known;
  std::size_t _nextLook = 64;  // when there are so many
};

}  // namespace dch

#endif  // DCH_LINK_SHARED_REGISTRATIONS_H
