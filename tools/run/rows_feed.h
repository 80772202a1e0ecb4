// rows_feed.h: runs a command, again and again, and sends the rows that it prints.
#ifndef TOOLS_RUN_ROWS_FEED_H
#define TOOLS_RUN_ROWS_FEED_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "tools/common/failure.h"
#include "tools/row_delivery.h"
#include "tools/row_reader.h"
#include "tools/run/command_output.h"
#include "tools/run/end_event.h"
#include "tools/run/run_file.h"
#include "tools/run/running_command.h"
#include "tools/run/troubles.h"

namespace tools {

// The threads of all feeds share these.
struct FeedSurroundings {
  EndEvent& end;
  DchPresence& presence;
  Say say;
  std::atomic<std::uint64_t>& rows;  // how many were taken
};

// Works on a thread of its own until the end has begun. What it cannot go on after begins the end.
class RowsFeed {
 public:
  // Keeps references to its arguments. The source is on line.
  RowsFeed(const RowsTable& table, ProviderSource& source, const FeedSurroundings& surroundings);
  // Waits for the thread, which ends once the end has begun and the DCH has answered or not.
  ~RowsFeed();
  RowsFeed(const RowsFeed&) = delete;
  RowsFeed& operator=(const RowsFeed&) = delete;

  // After the end has begun: the command is asked to end, and killed when it still runs then. Any
  // thread.
  void askCommandToEnd();
  void killCommandAt(EndEvent::Clock::time_point time);

  // Waits for the thread, and throws what has ended it before.
  void finish();

 private:
  using Clock = EndEvent::Clock;

  void run();
  void fail(const Failure& failure);
  void runAgainAndAgain();
  void rest(Clock::time_point until) const;
  void runOnce();
  // Returns what is wrong; nothing when all is well.
  std::string takeEnd(const CommandOutput& output);
  bool startCommand();
  void stopCommand(const CommandOutput& output);
  std::optional<int> dropCommand(const CommandOutput& output);

  void sendRows(CommandOutput* output);
  void sendRow(const InputRow& row, CommandOutput* output);
  std::unique_ptr<RowReader> makeReader(LineInput& input) const;
  bool isContinuous() const { return !_table.every; }

  const RowsTable& _table;
  FeedSurroundings _surroundings;
  RowDelivery _delivery;
  CommandTrouble _trouble;
  BadLines _badLines;
  std::uint64_t _rows = 0;
  Clock::time_point _start;  // of the command

  std::mutex _mutex;  // guards the command where other threads may see it
  std::condition_variable _commandHasEnded;
  std::optional<RunningCommand> _command;

  std::optional<Failure> _failure;
  std::thread _thread;
};

}  // namespace tools

#endif  // TOOLS_RUN_ROWS_FEED_H
