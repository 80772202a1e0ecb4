// channel_thread.h: a channel that serves clients beside a test.
#ifndef DCH_TESTKIT_CHANNEL_THREAD_H
#define DCH_TESTKIT_CHANNEL_THREAD_H

#include <arpa/inet.h>

#include <memory>
#include <optional>
#include <utility>

#include "dch/net/channel.h"
#include "dch/store/memory_store.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/loop_thread.h"

namespace dch::testkit {

// On a free port. It counts from the start.
class ChannelThread {
 public:
  explicit ChannelThread(const StreamLimits& limits = {},
                         std::unique_ptr<Store> ownStore = std::make_unique<MemoryStore>(),
                         ActionRules actions = {}, in_addr_t address = INADDR_LOOPBACK,
                         const Observers& observers = {})
      : store(std::move(ownStore)),
        _actions(std::move(actions)),
        _served(openPort({htonl(address)}, 0)),
        port(ntohs(_served.address.port)),
        channel(loop, std::move(_served), {.streams = limits}, *store, _actions, counters, _log,
                observers) {
    channel.start();
    thread.emplace(loop);
  }

  Counters counters;
  const std::unique_ptr<Store> store;
  EventLoop loop;

 private:
  const ErrorLog _log{false};
  const ActionRules _actions;
  ServedPort _served;

 public:
  const int port;
  Channel channel;  // on the loop's thread
  std::optional<LoopThread> thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_CHANNEL_THREAD_H
