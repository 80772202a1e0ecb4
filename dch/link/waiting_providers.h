// waiting_providers.h: what other sites say of their providers, until the channel has time for it.
#ifndef DCH_LINK_WAITING_PROVIDERS_H
#define DCH_LINK_WAITING_PROVIDERS_H

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>

#include "dch/core/text_map.h"
#include "dch/link/provider_news_sink.h"

namespace dch {

// A site has no more than a quarter of the room: one that says much leaves room for the others. Any
// thread, but where it is said.
class WaitingProviders final : public ProviderNewsSink {
 public:
  static constexpr std::size_t mostBytes = std::size_t{16} << 20;

  explicit WaitingProviders(std::size_t most = mostBytes) : _most(most) {}

  // Half of the room is kept for answers to questions that were asked already, and for changes.
  bool hasRoom(std::string_view site) const noexcept override;
  bool put(ProviderNews&& news) noexcept override;

  // `wake` is called when there is something after there was nothing; null: nobody takes it.
  void setWake(std::function<void()> wake) noexcept;
  // What has waited longest. The thread that is woken.
  std::optional<ProviderNews> take() noexcept;

 private:
  void keep(ProviderNews&& news, std::size_t size);

  const std::size_t _most;
  mutable std::mutex _mutex;
  std::function<void()> _wake;
  std::deque<ProviderNews> _news;
  std::size_t _bytes = 0;
  TextMap<std::size_t> _bytesOfSites;  // that have something here
};

}  // namespace dch

#endif  // DCH_LINK_WAITING_PROVIDERS_H
