#include "tools/data_wait.h"

#include <sysexits.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "tools/common/failure.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

constexpr std::chrono::seconds dataRenewalInterval{5};

}  // namespace

DataWait::DataWait(std::string applName, std::string attrGroup,
                   std::optional<Clock::duration> quietLimit)
    : _applName(std::move(applName)),
      _attrGroup(std::move(attrGroup)),
      _quietLimit(quietLimit),
      _upkeep([this] { renew(); }, dataRenewalInterval) {
  DCH_api_init();
  // First, so that whoever sees the subscription can end it by a signal.
  _controlThread.emplace([this](int signal) { act(signal); }, [this] { return deadline(); });
  const std::lock_guard lock(_handleMutex);
  subscribe();
}

DataWait::~DataWait() {
  _controlThread.reset();
  unsubscribe();
  DCH_api_destroy();
}

DataWait::Outcome DataWait::next() {
  while (!isStopped()) {
    const int result = dc_waitOnData(_handle, _buffer.data(), static_cast<short>(_buffer.size()));
    if (result == 0) {
      _upkeep.messageCame();
      return Outcome::message;
    }
    if (isStopped()) break;
    // Nobody here cancelled it: -1 came from another process's datagram, 1 is a failure. Either way
    // the handle is of no more use.
    std::cerr << "zordc: warning: the wait for rows failed, subscribing again\n";
    const std::lock_guard lock(_handleMutex);
    unsubscribe();
    subscribe();
  }
  return _stopped;
}

void DataWait::subscribe() {
  _handle = dc_waitOnDataInitialize(_applName.c_str(), _attrGroup.c_str());
  if (_handle == nullptr) throw Failure(EX_UNAVAILABLE, "the subscription could not be sent");
  _sender.emplace(_handle);
}

void DataWait::unsubscribe() {
  _sender.reset();
  if (_handle != nullptr) dc_waitOnDataDestroy(std::exchange(_handle, nullptr));
}

void DataWait::renew() {
  const std::lock_guard lock(_handleMutex);
  if (_sender) _sender->startRows(_applName, _attrGroup);
}

// On the control thread.
void DataWait::act(int signal) {
  if (signal != 0)
    stop(Outcome::signal);
  else if (Clock::now() >= quietDeadline())
    stop(Outcome::quiet);
  else
    _upkeep.check();
}

void DataWait::stop(Outcome why) {
  const std::lock_guard lock(_handleMutex);
  _stopped = why;
  if (_handle != nullptr) dc_waitOnDataCancel(_handle);
}

DataWait::Clock::time_point DataWait::deadline() const {
  return isStopped() ? Clock::time_point::max() : std::min(quietDeadline(), _upkeep.nextCheck());
}

DataWait::Clock::time_point DataWait::quietDeadline() const {
  return _quietLimit ? _lastRow.load() + *_quietLimit : Clock::time_point::max();
}

}  // namespace tools
