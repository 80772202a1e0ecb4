// postponed_requests.h: requests that wait for changes of their application that are under way.
#ifndef DCH_CORE_POSTPONED_REQUESTS_H
#define DCH_CORE_POSTPONED_REQUESTS_H

#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <string_view>

#include "dch/core/message.h"
#include "dch/core/text_map.h"

namespace dch {

// A queue for each application, so that its requests keep their order and wait for no other's. One
// thread.
class PostponedRequests {
 public:
  static constexpr std::size_t defaultCapacity = 10'000;

  // `capacity` is for the requests of all applications together.
  explicit PostponedRequests(std::size_t capacity = defaultCapacity) : _capacity(capacity) {}

  // Whether requests of the application wait, so that a further one has to wait behind them. Not
  // while they are resumed: the further one is one of them then.
  bool has(std::string_view application) const;

  // Takes a copy of the message. Returns false when there is no room for it, also without memory.
  bool add(std::string_view application, const Message& message) noexcept;

  // Gives those of the application to `tryAgain` in their order, until it returns false: that one
  // still waits, and so do those behind it. Nothing is added meanwhile.
  using TryAgain = std::function<bool(const Message& message)>;
  void resume(std::string_view application, const TryAgain& tryAgain) noexcept;

 private:
  struct Request {
    std::string bytes;
    Origin origin;
    Time receivedAt;
  };
  struct Queue {
    std::list<Request> requests;
    bool isResumed = false;
  };

  const std::size_t _capacity;
  std::size_t _size = 0;
  TextMap<Queue> _queues;  // none is empty
};

}  // namespace dch

#endif  // DCH_CORE_POSTPONED_REQUESTS_H
