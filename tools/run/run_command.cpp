#include "tools/run/run_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <list>

#include "tools/common/control_thread.h"
#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/common/transport_check.h"
#include "tools/progress.h"
#include "tools/run/rows_feed.h"
#include "tools/run/service_manager.h"

namespace tools {
namespace {

constexpr std::chrono::seconds statusInterval{2};
// How long commands have at the end.
constexpr std::chrono::seconds graceOfCommands{2};

void say(const std::string& text) {
  std::fprintf(stderr, "zordp: %s\n", text.c_str());
}

std::string describeStop(int signal, std::uint64_t rows) {
  return "stopped by signal " + std::to_string(signal) + " (" + strsignal(signal) + "), " +
         describeRows(rows) + " sent";
}

class Run {
 public:
  Run(const RunFile& file, ProviderApplication::AtEnd atEnd)
      : _file(file),
        _control([this](int signal) { stop(signal); }),
        _application(file.registration, atEnd) {}

  // Returns the signal that ended it.
  int untilSignal() {
    try {
      goOnline();
      feed();
    } catch (const EndHasBegun&) {
      _manager.stopping();
    } catch (const Failure& failure) {
      throw withRows(failure);
    }
    try {
      for (ProviderSource& each : _sources) each.end();
      _application.end();
    } catch (const Failure& failure) {
      throw withRows(failure);
    }
    say(describeStop(_signal, _rows));
    return _signal;
  }

 private:
  // On the control thread.
  void stop(int signal) {
    if (!_isEntered) {
      // The DCH may be waited for, for long, and has no source of this process on line.
      say(describeStop(signal, 0));
      _exit(128 + signal);
    }
    _signal = signal;
    _end.begin();
  }

  void goOnline() {
    waitForDch([this] { _application.enter(); });
    _isEntered = true;
    for (const RowsTable& each : _file.rows) {
      ProviderSource& source = _sources.emplace_back(_application, each.group.name, each.source);
      waitForDch([&] { source.goOnline(); });
    }
    say(printable(_application.name()).text +
        " is on line, sources: " + std::to_string(_sources.size()));
  }

  // Asks until the DCH answers.
  template <class Request>
  void waitForDch(Request request) {
    for (;;) {
      _end.check();
      const auto asked = DchPresence::Clock::now();
      try {
        request();
        return _presence.answers();
      } catch (const Failure& failure) {
        if (failure.exitStatus() != EX_UNAVAILABLE) throw;
        _presence.isAway(asked);
      }
    }
  }

  void feed() {
    std::list<RowsFeed> feeds;
    for (std::size_t i = 0; i < _sources.size(); ++i)
      feeds.emplace_back(_file.rows[i], _sources[i], FeedSurroundings{_end, _presence, say, _rows});
    _manager.ready();
    do _manager.showStatus(describeRows(_rows) + " sent");
    while (!_end.waitUntil(EndEvent::Clock::now() + statusInterval));
    _manager.stopping();
    endCommands(&feeds);
    for (RowsFeed& each : feeds) each.finish();
  }

  // Here, because a feed may be waiting for the DCH.
  static void endCommands(std::list<RowsFeed>* feeds) {
    for (RowsFeed& each : *feeds) each.askCommandToEnd();
    const auto deadline = EndEvent::Clock::now() + graceOfCommands;
    for (RowsFeed& each : *feeds) each.killCommandAt(deadline);
  }

  Failure withRows(const Failure& failure) const {
    return Failure(failure.exitStatus(),
                   std::string(failure.what()) + "; " + describeRows(_rows) + " sent before");
  }

  const RunFile& _file;
  EndEvent _end;
  std::atomic<int> _signal{0};
  std::atomic<bool> _isEntered{false};
  std::atomic<std::uint64_t> _rows{0};
  ControlThread _control;
  DchPresence _presence{say};
  ServiceManager _manager;
  ProviderApplication _application;
  std::deque<ProviderSource> _sources;
};

}  // namespace

int run(const RunOptions& options) {
  const RunFile file = readRunFile(options.path);
  checkTransport();
  // Else the system would throw the statuses of commands away, whatever the parent wanted.
  std::signal(SIGCHLD, SIG_DFL);
  // Who reads the messages may go; the sources are to go off line all the same.
  std::signal(SIGPIPE, SIG_IGN);
  Run provided(file, options.keep ? ProviderApplication::AtEnd::staysRegistered
                                  : ProviderApplication::AtEnd::unregister);
  return 128 + provided.untilSignal();
}

}  // namespace tools
