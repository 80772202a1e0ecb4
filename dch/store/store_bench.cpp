// store_bench: what keeping a row costs. Not a test: it prints figures.
//
//   store_bench FILE IN-FLIGHT ROWS SOURCES [GROUPS [KEEP-MEGABYTES]]
//
// opens FILE, tells how long that takes, and keeps so many rows, each new one appended when another
// one is concluded. Then it keeps the same rows as if they were of another site, 512 in a change.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dch/clock.h"
#include "dch/store/sqlite_store.h"
#include "dch/testkit/error_log.h"
#include "suite/registration.h"
#include "zordchcl/messages.h"

namespace {

using dch::now;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Five attributes: three numbers, two texts.
constexpr char attributes[] =
    "attr:load1,N,4;attr:load5,N,4;attr:processes,N,4;attr:user,D,16;attr:state,D,16;";

std::string rowMessage(ZORA_Long handle) {
  char buffer[512];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  const ZORA_Long number = 4711;
  message.add(DCH_requestType, short{DCH_REQUEST_DATA}).add(DCH_handle, handle);
  message.add(DCH_dataCode, short{17});
  for (const char* name : {"load1", "load5", "processes"})
    message.add(DCH_attrName, name).addAttributeValue(&number, sizeof number, 'N');
  message.add(DCH_attrName, "user").addAttributeValue("operator", 9, 'D');
  message.add(DCH_attrName, "state").addAttributeValue("running", 8, 'D');
  return {buffer, static_cast<std::size_t>(message.length())};
}

// What wakes the thread of the client.
class Bell {
 public:
  void ring() {
    const std::lock_guard lock(_mutex);
    _isRung = true;
    _rung.notify_one();
  }
  void wait() {
    std::unique_lock lock(_mutex);
    _rung.wait(lock, [this] { return _isRung; });
    _isRung = false;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _rung;
  bool _isRung = false;
};

class Client : public dch::StoreClient {
 public:
  void conclude(dch::Entry&&, bool kept) noexcept override {
    ++concluded;
    lost += kept ? 0 : 1;
  }
  std::size_t concluded = 0;
  std::size_t lost = 0;
};

void append(dch::SqliteStore* store, Client* client, dch::Change change) {
  dch::Entry entry;
  entry.change = std::move(change);
  store->append(&entry, client);
}

// Two changes at a time, as a hub has them.
void keepRemoteRows(dch::SqliteStore* store, Client* client, Bell* woken,
                    const std::vector<std::string>& messages, long groups, std::size_t rows) {
  constexpr std::size_t rowsOfChange = 512;
  constexpr std::size_t changesInFlight = 2;
  dch::RowName name{dch::newEpoch(), 0};
  const dch::StoreFigures before = store->figures();
  const auto start = Clock::now();
  for (std::size_t made = 0; made < rows || store->waiting() > 0;) {
    while (made < rows && store->waiting() < changesInFlight) {
      dch::RemoteRows change{"site", {}, {}, std::nullopt};
      for (; made < rows && change.rows.size() < rowsOfChange; ++made) {
        const std::size_t source = made * 7919 % messages.size();
        ++name.number;
        change.rows.push_back({name, now(), "BENCH",
                               "g" + std::to_string((static_cast<long>(source) + 1) % groups),
                               "source" + std::to_string(source + 1), messages[source]});
      }
      append(store, client, std::move(change));
    }
    store->handOver();
    woken->wait();
    store->collect();
  }
  const double seconds = secondsSince(start);
  const dch::StoreFigures after = store->figures();
  const double written = static_cast<double>(after.microseconds - before.microseconds) / 1e6;
  std::printf("%zu rows of another site: %.0f rows/s, %.0f %% of the time writing, %zu not kept\n",
              rows, static_cast<double>(rows) / seconds, 100 * written / seconds, client->lost);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 5) return EXIT_FAILURE;
  const auto number = [&](int index, long otherwise) {
    return index < count ? std::strtol(arguments[index], nullptr, 10) : otherwise;
  };
  const auto inFlight = static_cast<std::size_t>(number(2, 64));
  const auto rows = static_cast<std::size_t>(number(3, 0));
  const long sources = number(4, 64);
  const long groups = number(5, 1);
  dch::SqliteStoreSettings settings;
  settings.path = arguments[1];
  settings.retention.megabytes = number(6, 100'000);
  if (const char* durability = std::getenv("DURABILITY");
      durability != nullptr && std::strcmp(durability, "power") == 0)
    settings.durability = dch::Durability::power;
  Bell woken;
  Client client;
  const dch::testkit::ErrorLog log(true);

  const auto opening = Clock::now();
  dch::SqliteStore store(
      settings, [&] { woken.ring(); }, log);
  std::size_t loaded = 0;
  store.load([&](dch::Change&&) { ++loaded; });
  std::printf("open and load: %.1f ms, %zu changes\n", 1e3 * secondsSince(opening), loaded);

  std::string text = "appl:BENCH,BEN;";
  for (long group = 0; group < groups; ++group)
    text +=
        "group:g" + std::to_string(group) + ";" + (groups > 10 ? "attr:load1,N,4;" : attributes);
  dch::Registered change;
  std::string error;
  if (!suite::parseRegistration(text, &change.registration, &error)) return EXIT_FAILURE;
  append(&store, &client, std::move(change));
  std::vector<std::string> messages;
  for (long handle = 1; handle <= sources; ++handle) {
    append(&store, &client,
           dch::WentOnline{"BENCH", "g" + std::to_string(handle % groups),
                           "source" + std::to_string(handle), static_cast<ZORA_Long>(handle)});
    messages.push_back(rowMessage(static_cast<ZORA_Long>(handle)));
  }
  store.finish();
  std::printf("message: %zu bytes\n", messages.front().size());

  const dch::StoreFigures before = store.figures();
  client = {};
  const auto start = Clock::now();
  std::size_t appended = 0;
  while (client.concluded < rows) {
    for (; appended < rows && store.waiting() < inFlight; ++appended) {
      const std::size_t source = appended * 7919 % static_cast<std::size_t>(sources);
      append(&store, &client,
             dch::Row{static_cast<ZORA_Long>(source + 1), now(), messages[source]});
    }
    store.handOver();
    woken.wait();
    store.collect();
  }
  const double seconds = secondsSince(start);
  const dch::StoreFigures after = store.figures();
  const double written = static_cast<double>(after.microseconds - before.microseconds) / 1e6;
  std::printf(
      "%zu rows, %zu in flight, %ld sources, %ld groups: %.0f rows/s, %.1f rows a commit, "
      "%.0f %% of the time writing, %zu not kept, %llu removed\n",
      rows, inFlight, sources, groups, static_cast<double>(rows) / seconds,
      static_cast<double>(rows) / static_cast<double>(after.groups - before.groups),
      100 * written / seconds, client.lost,
      static_cast<unsigned long long>(after.rowsRemoved - before.rowsRemoved));
  client = {};
  keepRemoteRows(&store, &client, &woken, messages, groups, rows);
  return EXIT_SUCCESS;
}
