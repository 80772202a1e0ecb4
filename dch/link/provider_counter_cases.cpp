// What providers of other sites make move.
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "dch/link/site_providers.h"
#include "dch/service/server_providers.h"
#include "dch/testkit/channel_thread.h"
#include "dch/testkit/counter_cases.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

// One site has more applications than it may.
void linkProvidersRefused() {
  const auto providers = std::make_shared<SiteProviders>();
  ChannelThread server;
  const CounterMoves moves(server.counters);
  std::optional<ServerProviders> passing;
  server.thread->call([&] { passing.emplace(server.loop, providers, server.channel); });
  ProviderNews news{"west", ProviderNews::Kind::first, {}, true};
  const auto registration = std::make_shared<suite::Registration>();
  const std::size_t most = RemoteProviders::Limits().applications / 4;
  for (std::size_t number = 0; number < most + 3; ++number)
    news.facts.push_back({.kind = ProviderFact::Kind::registered,
                          .application = "A" + std::to_string(number),
                          .registration = registration});
  ASSERT_TRUE(providers->others.put(std::move(news)));
  EXPECT_TRUE(waitUntil([&] {
    server.thread->call([&] { passing->setCounters(&server.counters); });
    return moves.of(Counter::linkProvidersRefused) == 3;
  }));
  server.thread->call([&] { passing.reset(); });
}

}  // namespace dch::testkit::counter_cases
