// recording_ports.h: what a core works through, for tests: it shows what the core did.
#ifndef DCH_TESTKIT_RECORDING_PORTS_H
#define DCH_TESTKIT_RECORDING_PORTS_H

#include <algorithm>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "dch/core/answers.h"
#include "dch/core/programs.h"
#include "dch/core/rows_out.h"
#include "dch/core/store.h"
#include "dch/core/timer.h"

namespace dch::testkit {

class RecordingAnswers : public Answers {
 public:
  void send(const Origin& receiver, std::string_view message) noexcept override {
    sent.emplace_back(receiver, message);
  }
  void finished(const Origin& asker) noexcept override { finishedAskers.push_back(asker); }

  std::vector<std::pair<Origin, std::string>> sent;
  std::vector<Origin> finishedAskers;
};

class RecordingRowsOut : public RowsOut {
 public:
  bool push(std::string_view message, const PeerAddress& receiver) override {
    if (std::find(full.begin(), full.end(), receiver) != full.end()) return false;
    pushed.emplace_back(receiver, message);
    return true;
  }
  void takeGone(std::vector<PeerAddress>* receivers) override { receivers->swap(gone); }

  // What one receiver has been sent since the last time.
  std::vector<std::string> take(const PeerAddress& receiver) {
    std::vector<std::string> messages;
    for (const auto& [address, message] : pushed)
      if (address == receiver) messages.push_back(message);
    std::erase_if(pushed, [&](const auto& each) { return each.first == receiver; });
    return messages;
  }

  std::vector<std::pair<PeerAddress, std::string>> pushed;
  std::vector<PeerAddress> full;  // receivers that take nothing
  std::vector<PeerAddress> gone;  // to be told
};

class CountingTimer : public Timer {
 public:
  void start() override { ++started; }
  int started = 0;
};

// Programs whose path begins with "/nowhere" cannot be started.
class RecordingPrograms : public Programs {
 public:
  std::string start(ZORA_Long id, const ActionCommand& command) override {
    if (command.front().starts_with("/nowhere")) return "No such file or directory";
    started.push_back(id);
    return {};
  }
  std::vector<ZORA_Long> started;
};

// Takes its time: entries wait until the test concludes them.
class SlowStore : public Store {
 public:
  void append(Entry* entry, StoreClient* client) override {
    entries.emplace_back();
    entries.back() = {std::move(*entry), client};
  }
  std::size_t waiting() const override { return entries.size(); }
  void load(const std::function<void(Change&&)>&) override {}

  // Concludes the first entry.
  void conclude(bool kept = true) {
    auto [entry, client] = std::move(entries.front());
    entries.pop_front();
    client->conclude(std::move(entry), kept);
  }
  void concludeAll(bool kept = true) {
    while (!entries.empty()) conclude(kept);
  }

  std::deque<std::pair<Entry, StoreClient*>> entries;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_RECORDING_PORTS_H
