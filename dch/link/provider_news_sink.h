// provider_news_sink.h: where what other sites say of their providers goes.
#ifndef DCH_LINK_PROVIDER_NEWS_SINK_H
#define DCH_LINK_PROVIDER_NEWS_SINK_H

#include <string_view>

#include "dch/core/provider_fact.h"

namespace dch {

class ProviderNewsSink {
 public:
  virtual ~ProviderNewsSink() = default;

  // Whether a further part of a copy of the site is worth asking for: put() will most likely take
  // it.
  virtual bool hasRoom(std::string_view site) const noexcept = 0;
  // False: there is no room, or no memory; it is lost.
  virtual bool put(ProviderNews&& news) noexcept = 0;
};

}  // namespace dch

#endif  // DCH_LINK_PROVIDER_NEWS_SINK_H
