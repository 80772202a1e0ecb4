// shared_bodies.h: large answers, made once for all who ask at the same time.
#ifndef DCH_WEB_SHARED_BODIES_H
#define DCH_WEB_SHARED_BODIES_H

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "dch/web/answer.h"
#include "dch/web/snapshot.h"

namespace dch {

// Those who read slowly keep theirs for a while; what all of them may take together is bounded. One
// thread, the web's.
class SharedBodies {
 public:
  enum class Kind : std::size_t { applications, openMetrics, metricsText, count };

  // With more than that no further one is made, unless it is the only one.
  static constexpr std::size_t mostBytes = std::size_t{64} << 20;

  // Returns what `make` makes of the snapshot, or has made of it before; null while too much is
  // being read. Throws what `make` throws.
  SharedText of(const std::shared_ptr<const Snapshot>& snapshot, Kind kind,
                const std::function<std::string()>& make);

  std::size_t bytes() const { return *_bytes; }

 private:
  struct Counted;
  struct Body {
    std::weak_ptr<const Snapshot> snapshot;
    std::weak_ptr<const std::string> text;
  };

  std::array<Body, static_cast<std::size_t>(Kind::count)> _bodies;
  const std::shared_ptr<std::size_t> _bytes = std::make_shared<std::size_t>(0);
};

}  // namespace dch

#endif  // DCH_WEB_SHARED_BODIES_H
