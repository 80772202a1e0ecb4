#include "dch/core/postponed_requests.h"

#include <new>

namespace dch {

bool PostponedRequests::has(std::string_view application) const {
  if (_queues.empty()) return false;
  const auto queue = _queues.find(application);
  return queue != _queues.end() && !queue->second.isResumed;
}

bool PostponedRequests::add(std::string_view application, const Message& message) noexcept {
  if (_size >= _capacity) return false;
  try {
    std::list<Request> one;
    one.push_back({std::string(message.bytes), message.origin, message.receivedAt});
    std::list<Request>& queue = _queues[std::string(application)].requests;
    queue.splice(queue.end(), one);
  } catch (const std::bad_alloc&) {
    return false;
  }
  ++_size;
  return true;
}

void PostponedRequests::resume(std::string_view application, const TryAgain& tryAgain) noexcept {
  if (!has(application)) return;
  const auto known = _queues.find(application);
  Queue& queue = known->second;
  queue.isResumed = true;
  while (!queue.requests.empty()) {
    const Request& next = queue.requests.front();
    if (!tryAgain({next.bytes, next.origin, next.receivedAt})) break;
    queue.requests.pop_front();
    --_size;
  }
  queue.isResumed = false;
  if (queue.requests.empty()) _queues.erase(known);
}

}  // namespace dch
