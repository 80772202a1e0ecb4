// provider_inbox.h: questions of other sites for this one's providers, and answers to its own,
// until the link looks at them.
#ifndef DCH_LINK_PROVIDER_INBOX_H
#define DCH_LINK_PROVIDER_INBOX_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "dch/core/text_map.h"
#include "dch/link/live_connection.h"

namespace dch {

// What has come on a subject, by whom an answer is wanted, if by anybody, and what it says.
struct ProviderMessage {
  std::string subject;
  std::string asker;
  std::string header;  // Zord-Known
  std::string body;
  bool saysNobody = false;
};

// What has no room is lost: whoever asks asks again. Any thread.
class ProviderInbox final : public LiveInbox {
 public:
  struct Limits {
    std::size_t messages;
    std::size_t bytes;
    std::size_t ofOneAsker;  // messages: one who asks without an end leaves room for the others
    std::size_t bytesOfOne;
  };

  // `wake` is called when there is something after there was nothing.
  ProviderInbox(const Limits& limits, std::function<void()> wake)
      : _limits(limits), _wake(std::move(wake)) {}

  void put(const LiveMessage& message) noexcept override;
  void put(ProviderMessage&& message);

  // The one that has waited longest.
  std::optional<ProviderMessage> take() noexcept;
  bool empty() const;
  void clear() noexcept;

  // For want of room, or too long.
  std::uint64_t refused() const;

 private:
  const Limits _limits;
  const std::function<void()> _wake;
  mutable std::mutex _mutex;
  std::deque<ProviderMessage> _messages;
  std::size_t _bytes = 0;
  TextMap<std::size_t> _askers;  // who have something here, and how much
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_LINK_PROVIDER_INBOX_H
