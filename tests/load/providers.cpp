#include "tests/load/providers.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"

namespace load {
namespace {

using Clock = std::chrono::steady_clock;

std::string registrationOf(int application) {
  char key[8];
  std::snprintf(key, sizeof key, "L%02d", application);
  return "appl:" + applicationName(application) + "," + key + "; group:" + groupName +
         "; attr:source,G,4; attr:number,G,4; attr:filler,T,100;";
}

std::string sourceName(int source) {
  return "source" + std::to_string(source);
}

}  // namespace

std::string applicationName(int application) {
  return "LOAD" + std::to_string(application);
}

Providers::Providers(int sourceCount, int threadCount, Server server)
    : _sourceCount(sourceCount),
      _server(server),
      _workers(static_cast<std::size_t>(threadCount)),
      _handles(static_cast<std::size_t>(sourceCount)),
      _acknowledged(static_cast<std::size_t>(sourceCount)),
      _sends(static_cast<std::size_t>(sourceCount)) {}

void Providers::goOnline() {
  for (int application = 0; application < applicationCount; ++application) {
    ZORA_Long status = 0;
    const int result = dp_register(&status, registrationOf(application).c_str());
    if (result != 0 || status != 0) fail("dp_register", result, status);
  }
  if (failure().empty()) {
    runEach(&Providers::takeOnline);
    for (Worker& worker : _workers) worker.thread.join();
  }
  if (!failure().empty()) throw std::runtime_error(failure());
}

void Providers::start(double rowsPerSecond) {
  _rowsPerSecond = rowsPerSecond;
  runEach(&Providers::sendRows);
}

void Providers::stop() {
  _stopping = true;
  for (Worker& worker : _workers)
    if (worker.thread.joinable()) worker.thread.join();
}

std::string Providers::failure() const {
  const std::lock_guard lock(_mutex);
  return _failure;
}

Latencies Providers::latencies(Phase phase) const {
  Latencies all;
  for (const Worker& worker : _workers)
    all.insert(all.end(), worker.latencies[phase].begin(), worker.latencies[phase].end());
  return all;
}

std::vector<dch::testkit::SourceBook> Providers::booksOf(int application) const {
  std::vector<dch::testkit::SourceBook> books;
  for (int source = application; source < _sourceCount; source += applicationCount) {
    const auto index = static_cast<std::size_t>(source);
    dch::testkit::SourceBook& book = books.emplace_back();
    book.name = sourceName(source);
    book.handle = _handles[index];
    book.acknowledged = _acknowledged[index];
    book.sent = book.acknowledged + 1;
    book.sends = _sends[index];
  }
  return books;
}

void Providers::runEach(void (Providers::*work)(int worker)) {
  for (std::size_t i = 0; i < _workers.size(); ++i)
    _workers[i].thread = std::thread(work, this, static_cast<int>(i));
}

void Providers::takeOnline(int worker) {
  const int step = static_cast<int>(_workers.size());
  for (int source = worker; source < _sourceCount && !_stopping; source += step) {
    ZORA_Long status = 0;
    const int result = dp_online(&status, &_handles[static_cast<std::size_t>(source)],
                                 applicationName(applicationOf(source)).c_str(), groupName,
                                 sourceName(source).c_str());
    if (result != 0 || status != 0) fail("dp_online", result, status);
  }
}

void Providers::sendRows(int worker) {
  const int step = static_cast<int>(_workers.size());
  const std::chrono::duration<double> interval(_rowsPerSecond > 0 ? step / _rowsPerSecond : 0);
  Latencies* const latencies = _workers[static_cast<std::size_t>(worker)].latencies;
  Clock::time_point due = Clock::now();
  for (std::uint32_t number = 1; !_stopping; ++number)
    for (int source = worker; source < _sourceCount && !_stopping; source += step) {
      std::this_thread::sleep_until(due);
      // One that is late does not make up for it in a burst.
      due = std::max(due, Clock::now() - std::chrono::milliseconds(10)) +
            std::chrono::duration_cast<Clock::duration>(interval);
      const Phase phase = _phase;
      const Clock::time_point start = Clock::now();
      if (!sendRow(source, number)) return;
      ++_rows;
      const auto taken =
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
      _acknowledged[static_cast<std::size_t>(source)] = number;
      if (phase == _phase && !_sends[static_cast<std::size_t>(source)].contains(number))
        latencies[phase].push_back(static_cast<std::uint32_t>(taken.count()));
    }
}

bool Providers::sendRow(int source, std::uint32_t number) {
  ZORA_Long status = sendRowOnce(source, number);
  while (status == DCH_STATUS_NO_ANSWER && _server == Server::mayDie && !_stopping) {
    ++_sends[static_cast<std::size_t>(source)].try_emplace(number, 1).first->second;
    status = sendRowOnce(source, number);
  }
  if (status == DCH_STATUS_OK) return true;
  // What was not answered before the end may be there.
  if (status == DCH_STATUS_NO_ANSWER && _server == Server::mayDie) return false;
  fail("dp_data", 1, status);
  return false;
}

ZORA_Long Providers::sendRowOnce(int source, std::uint32_t number) {
  char* buffer = nullptr;
  ZORA_Long size = 0;
  ZORA_Long status = 0;
  char filler[100] = "";
  std::snprintf(filler, sizeof filler, "%0*d", static_cast<int>(sizeof filler) - 1, source);
  dp_formatData(&status, &buffer, &size, "source", &source, sizeof source, 'G');
  dp_formatData(&status, &buffer, &size, "number", &number, sizeof number, 'G');
  dp_formatData(&status, &buffer, &size, "filler", filler, sizeof filler, 'T');
  const int result = dp_data(&status, _handles[static_cast<std::size_t>(source)], 0, &buffer);
  return result == 0 || status != DCH_STATUS_OK ? status : ZORA_Long{DCH_STATUS_NO_ANSWER};
}

void Providers::fail(const std::string& request, int result, ZORA_Long status) {
  const std::lock_guard lock(_mutex);
  if (_failure.empty())
    _failure = request + ": result " + std::to_string(result) + ", status " +
               std::to_string(status) + " (" + DCH_statusText(status) + ")";
  _stopping = true;
}

}  // namespace load
