// history_bench: what it takes to read rows that were kept. Not a test: it prints figures.
//
//   history_bench FILE ROWS SOURCES [GROUPS]
//
// keeps so many rows of three numbers in FILE, unless it is there already, one each second of the
// sources in turn, and registers so many groups that have none; and asks for some of the rows.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "dch/store/rows_in_order.h"
#include "dch/store/rows_query.h"
#include "dch/store/sqlite_store.h"
#include "dch/store/thinned_query.h"
#include "dch/testkit/error_log.h"
#include "suite/registration.h"
#include "zordchcl/messages.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr dch::Time second = 1'000'000;
constexpr dch::Time start = 1'790'000'000 * second;

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

long residentKibibytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

class Client : public dch::StoreClient {
 public:
  void conclude(dch::Entry&&, bool) noexcept override {}
};

std::string rowMessage(ZORA_Long handle, long row) {
  char buffer[512];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  message.add(DCH_requestType, short{DCH_REQUEST_DATA}).add(DCH_handle, handle);
  message.add(DCH_dataCode, short{17});
  for (const char* name : {"load1", "load5", "processes"}) {
    const auto number = static_cast<ZORA_Long>((row * 7919) % 100'000);
    message.add(DCH_attrName, name).addAttributeValue(&number, sizeof number, 'N');
  }
  return {buffer, static_cast<std::size_t>(message.length())};
}

void keepRows(dch::SqliteStore* store, long rows, long sources, long emptyGroups) {
  Client client;
  const auto append = [&](dch::Change change) {
    dch::Entry entry;
    entry.change = std::move(change);
    store->append(&entry, &client);
  };
  std::string text = "appl:BENCH,BEN;group:g;attr:load1,N,4;attr:load5,N,4;attr:processes,N,4;";
  for (long group = 0; group < emptyGroups; ++group)
    text += "group:empty" + std::to_string(group) + ";attr:load1,N,4;";
  dch::Registered change;
  std::string error;
  if (!suite::parseRegistration(text, &change.registration, &error)) std::abort();
  append(std::move(change));
  for (long handle = 1; handle <= sources; ++handle)
    append(dch::WentOnline{"BENCH", "g", "source" + std::to_string(handle),
                           static_cast<ZORA_Long>(handle)});
  for (long row = 0; row < rows; ++row) {
    const auto handle = static_cast<ZORA_Long>(1 + row % sources);
    append(dch::Row{handle, start + row * second, rowMessage(handle, row)});
    if (row % 5'000 == 0) store->finish();
  }
  store->finish();
}

struct Steps {
  long count = 0;
  double longest = 0;

  template <class Step>
  void take(Step step) {
    for (bool goesOn = true; goesOn; ++count) {
      const Clock::time_point begin = Clock::now();
      goesOn = step();
      longest = std::max(longest, millisecondsSince(begin));
    }
  }
};

void tell(const char* what, long found, const Steps& steps, Clock::time_point begin) {
  std::printf("%s: %.1f ms, %ld found, %ld steps, the longest %.1f ms, %ld KiB resident\n", what,
              millisecondsSince(begin), found, steps.count, steps.longest, residentKibibytes());
}

class Bench {
 public:
  explicit Bench(const dch::SqliteStore& store)
      : _history([&store] { return store.places(); }),
        _inOrder([&store] { return store.places(); }) {
    const Clock::time_point begin = Clock::now();
    _group = _history.findGroup(_history.findApplication("BENCH").value(), "g").value();
    tell("open and find", 1, {}, begin);
  }

  void rows(const char* what, std::optional<ZORA_Long> handle, const dch::HistoryRange& range,
            std::optional<std::int64_t> limit = {}) {
    const Clock::time_point begin = Clock::now();
    dch::RowsQuery query(_history, _group, handle, range, limit);
    long count = 0;
    Steps steps;
    steps.take([&] {
      return query.step([&](const dch::HistoryRow& row) {
        count += row.values.empty() ? 0 : 1;
        return true;
      });
    });
    tell(what, count, steps, begin);
  }

  void thinned(const char* what, std::optional<ZORA_Long> handle, const dch::HistoryRange& range) {
    const Clock::time_point begin = Clock::now();
    dch::ThinnedQuery query(_history, _group, handle, range, 1'000);
    Steps steps;
    steps.take([&] { return query.step(); });
    long count = 0;
    query.forEachPoint([&](const dch::ThinnedPoint&) { ++count; });
    tell(what, count, steps, begin);
  }

  void inOrder() {
    const Clock::time_point begin = Clock::now();
    std::size_t bytes = 0;
    long count = 0;
    std::int64_t after = 0;
    Steps steps;
    const auto pass = [&] {
      const auto read = _inOrder.read(after, {}, [&](const dch::OrderedRow& row) {
        bytes += row.message.size() + row.source.size();
        ++count;
      });
      after = read.upTo;
      return read.isCut;
    };
    steps.take(pass);
    tell("all groups in order", count, steps, begin);
    const Clock::time_point next = Clock::now();
    steps = {};
    steps.take([&] {
      pass();
      return steps.count < 99;
    });
    tell("100 passes that find nothing", 0, steps, next);
  }

 private:
  dch::History _history;
  dch::RowsInOrder _inOrder;
  dch::HistoryGroup _group;
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return EXIT_FAILURE;
  const long rows = std::strtol(arguments[2], nullptr, 10);
  const long sources = std::strtol(arguments[3], nullptr, 10);
  dch::SqliteStoreSettings settings;
  settings.path = arguments[1];
  settings.retention.megabytes = 100'000;
  settings.now = [] { return start; };
  const bool isThere = std::filesystem::exists(settings.path);
  const dch::testkit::ErrorLog log(true);
  dch::SqliteStore store(
      settings, [] {}, log);
  store.load([](dch::Change&&) {});
  if (!isThere)
    keepRows(&store, rows, sources, count > 4 ? std::strtol(arguments[4], nullptr, 10) : 0);
  std::printf("%ld KiB resident\n", residentKibibytes());

  Bench bench(store);
  const dch::Time middle = start + rows / 2 * second;
  const dch::HistoryRange hour{middle, middle + 3'599 * second};
  for (int round = 0; round < 2; ++round) {
    bench.rows("an hour", {}, hour);
    bench.rows("an hour of a source", 1, hour);
    bench.rows("the newest 1,000", {}, {}, 1'000);
    bench.rows("the newest 1,000 of a source", 1, {}, 1'000);
    bench.thinned("an hour thinned", {}, hour);
    bench.thinned("all thinned", {}, {});
    bench.thinned("all of a source thinned", 1, {});
    bench.rows("all", {}, {});
    bench.inOrder();
  }
  return EXIT_SUCCESS;
}
