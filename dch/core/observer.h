// observer.h: who looks on at what the core does.
#ifndef DCH_CORE_OBSERVER_H
#define DCH_CORE_OBSERVER_H

#include <string_view>

#include "dch/core/message.h"
#include "dch/core/registry.h"

namespace dch {

// Called by the core, on its thread, when what is told is known, answered and on its way to
// subscribers. It does not call the core. What it is given is valid until it returns.
class Observer {
 public:
  // A row of this source, as it came, was kept and acknowledged. Of a source that is on line
  // `former` is the one before it; it is empty where there is none at hand.
  virtual void rowKept(const Source& source, std::string_view message, std::string_view former,
                       Time time) noexcept = 0;

  // What subscribers of provider status are told, also when there are none: see StatusEvent. Names
  // that do not apply are empty.
  virtual void statusChanged(const SourceNames& names, short requestCode) noexcept = 0;

  // A topic has got its first subscriber, or lost its last one.
  virtual void topicChanged([[maybe_unused]] std::string_view topic,
                            [[maybe_unused]] bool isWanted) noexcept {}

 protected:
  ~Observer() = default;
};

}  // namespace dch

#endif  // DCH_CORE_OBSERVER_H
