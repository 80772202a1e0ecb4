#include "tools/run/rows_feed.h"

#include <sysexits.h>

#include <system_error>
#include <utility>

#include "tools/common/printable.h"
#include "tools/common/values.h"
#include "tools/run/pace.h"

namespace tools {
namespace {

// How long a command that is asked to end is waited for; less at the end of zordp.
constexpr std::chrono::seconds grace{5};
constexpr std::chrono::seconds graceAtEnd{2};
constexpr std::chrono::seconds pauseOfFullDch{1};

// The output may have been cut off in the middle of its last line.
struct CutOff {};

std::string namesOf(const RowsTable& table) {
  return printable(table.group.name + " of " + table.source).text;
}

Say sayWithNames(const RowsTable& table, const Say& say) {
  return [say, names = namesOf(table)](const std::string& text) { say(names + ": " + text); };
}

std::string secondsOf(std::chrono::milliseconds time) {
  std::string text = std::to_string(std::chrono::duration<double>(time).count());
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text + " s";
}

}  // namespace

RowsFeed::RowsFeed(const RowsTable& table, ProviderSource& source,
                   const FeedSurroundings& surroundings)
    : _table(table),
      _surroundings(surroundings),
      _delivery(
          source, surroundings.presence, [this] { _surroundings.end.check(); },
          [this] { rest(Clock::now() + pauseOfFullDch); }),
      _trouble(sayWithNames(table, surroundings.say)),
      _badLines(sayWithNames(table, surroundings.say)),
      _thread(&RowsFeed::run, this) {}

RowsFeed::~RowsFeed() {
  _surroundings.end.begin();
  if (_thread.joinable()) _thread.join();
}

void RowsFeed::finish() {
  _thread.join();
  if (_failure) throw Failure(*_failure);
}

void RowsFeed::askCommandToEnd() {
  const std::lock_guard lock(_mutex);
  if (_command) _command->askToEnd();
}

void RowsFeed::killCommandAt(Clock::time_point time) {
  std::unique_lock lock(_mutex);
  _commandHasEnded.wait_until(lock, time, [this] { return !_command; });
  if (_command) _command->kill();
}

void RowsFeed::run() {
  try {
    runAgainAndAgain();
  } catch (const EndHasBegun&) {
    // As it should.
  } catch (const Failure& failure) {
    fail(Failure(failure.exitStatus(), namesOf(_table) + ": " + failure.what()));
  } catch (const std::exception& error) {
    fail(Failure(EX_SOFTWARE, namesOf(_table) + ": " + error.what()));
  }
}

void RowsFeed::fail(const Failure& failure) {
  _failure = failure;
  _surroundings.end.begin();
}

void RowsFeed::runAgainAndAgain() {
  if (isContinuous()) {
    for (RestartPause pause;;) {
      runOnce();
      rest(Clock::now() + pause.after(Clock::now() - _start));
    }
  }
  for (const Intervals intervals(Clock::now(), *_table.every);;) {
    runOnce();
    rest(intervals.after(Clock::now()));
  }
}

void RowsFeed::rest(Clock::time_point until) const {
  if (_surroundings.end.waitUntil(until)) throw EndHasBegun();
}

void RowsFeed::runOnce() {
  _start = Clock::now();
  if (!startCommand()) return;
  CommandOutput output(*_command, _surroundings.end, {_table.timeout, isContinuous()});
  try {
    sendRows(&output);
    output.waitForShell();
  } catch (...) {
    stopCommand(output);
    dropCommand(output);
    throw;
  }
  _trouble.note(takeEnd(output));
}

bool RowsFeed::startCommand() try {
  const std::lock_guard lock(_mutex);
  // From here on whoever begins the end sees the command.
  _surroundings.end.check();
  _command.emplace(_table.command);
  return true;
} catch (const std::system_error& error) {
  _trouble.note("cannot be started: " + error.code().message());
  return false;
}

std::string RowsFeed::takeEnd(const CommandOutput& output) {
  // Something that it started in the background may still have the output open.
  if (output.hasTimedOut() || !output.drain(Clock::now())) stopCommand(output);
  const std::optional<int> status = dropCommand(output);
  if (output.hasTimedOut())
    return (isContinuous() ? "has printed no line for " : "has not ended within ") +
           secondsOf(*_table.timeout) + " and was stopped";
  return status == 0 && !isContinuous() ? "" : "has ended with " + describeEnd(status.value_or(0));
}

// Waits for its end, but at the end of zordp no longer than a moment.
void RowsFeed::stopCommand(const CommandOutput& output) {
  askCommandToEnd();
  const EndEvent& end = _surroundings.end;
  output.drain(Clock::now() + (end.hasBegun() ? graceAtEnd : grace));
  {
    const std::lock_guard lock(_mutex);
    _command->kill();
  }
  constexpr std::chrono::seconds moment{1};
  do output.drain(Clock::now() + moment);
  while (!output.hasShellEnded() && !end.hasBegun());
}

// Returns its status when it has ended.
std::optional<int> RowsFeed::dropCommand(const CommandOutput& output) {
  std::optional<int> status;
  const std::lock_guard lock(_mutex);
  if (output.hasShellEnded()) status = _command->takeStatus();
  _command.reset();
  _commandHasEnded.notify_all();
  return status;
}

void RowsFeed::sendRows(CommandOutput* output) {
  LineInput input("output", [&](char* bytes, std::size_t room) {
    const std::size_t count = output->read(bytes, room);
    if (count > 0) return count;
    output->waitForShell();
    if (!output->isAtEnd() || output->hasTimedOut() || !_command->hasEndedWell()) throw CutOff();
    return count;
  });
  const auto reader = makeReader(input);
  const std::uint64_t rowsBefore = _rows;
  InputRow row;
  for (bool isThere = true; isThere;) try {
      isThere = reader->next(&row);
      if (isThere) sendRow(row, output);
    } catch (const RefusedLine& refused) {
      _badLines.add(refused.number(), refused.reason());
    } catch (const BadValue& error) {
      _badLines.add(row.lineNumber, error.what());
    } catch (const CutOff&) {
      isThere = false;
    }
  _badLines.endStreak(_rows > rowsBefore);
}

void RowsFeed::sendRow(const InputRow& row, CommandOutput* output) {
  const EncodedRow encoded = encodeRow(row);
  const auto start = Clock::now();
  _delivery.deliver(encoded);
  const auto now = Clock::now();
  output->excuse(now - start);
  ++_rows;
  ++_surroundings.rows;
  if (!isContinuous()) return;
  _badLines.endStreak(true);
  if (now - _start >= goodRun) _trouble.note("");
}

std::unique_ptr<RowReader> RowsFeed::makeReader(LineInput& input) const {
  RowColumns columns;
  for (const std::string& each : _table.columns) resolveAttribute(_table.group, each, &columns);
  switch (_table.format) {
    case RowsTable::Format::csv:
      return makeCsvReader(input, _table.group, std::move(columns));
    case RowsTable::Format::jsonl:
      return makeJsonLinesReader(input, _table.group);
    default:
      return makeWordsReader(input, std::move(columns));
  }
}

}  // namespace tools
