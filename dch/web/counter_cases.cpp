// What is counted where the web meets the channel.
#include <gtest/gtest.h>

#include <memory>

#include "dch/testkit/counter_cases.h"
#include "dch/web/live_feed.h"

namespace dch::testkit::counter_cases {

void liveEventsLost() {
  Counters counters;
  Doorbell bell;
  LiveFeed feed(counters, bell);
  feed.watch({std::make_shared<WatchedTopic>(topicOf("A", "g"), 1)});
  feed.offerTopics();
  feed.takeTopics();
  Group group;
  group.topic = topicOf("A", "g");
  Source source;
  source.group = &group;
  const CounterMoves moves(counters);
  for (std::size_t i = 0; i < LiveFeed::mostEvents + 3; ++i) feed.rowKept(source, "row", 1);
  moves.expect({{Counter::liveEventsLost, 3}});
}

}  // namespace dch::testkit::counter_cases
