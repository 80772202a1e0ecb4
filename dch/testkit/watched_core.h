// watched_core.h: a core that keeps what it is told in memory, and what the web sees of it.
#ifndef DCH_TESTKIT_WATCHED_CORE_H
#define DCH_TESTKIT_WATCHED_CORE_H

#include "dch/core/core.h"
#include "dch/store/memory_store.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/recording_ports.h"
#include "dch/web/channel_side.h"

namespace dch::testkit {

// Of a channel whose loop is `loop`, and is its user's to run.
struct WatchedCore {
  const ErrorLog log{false};
  Counters counters;
  RecordingAnswers answers;
  RecordingRowsOut rowsOut;
  CountingTimer timer;
  RecordingPrograms programs;
  const ActionRules actionRules;
  MemoryStore store;
  EventLoop loop;
  ChannelSide side{loop, counters};
  Core core{
      {answers, rowsOut, store, timer, programs, &side.observer()}, actionRules, counters, log};
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_WATCHED_CORE_H
