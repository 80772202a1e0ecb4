#include "dch/web/channel_side.h"

#include <memory>
#include <new>
#include <utility>

namespace dch {

ChannelSide::ChannelSide(EventLoop& loop, Counters& counters)
    : _live(counters, _happened),
      _making(loop, [this] { makeSnapshot(); }),
      _waker(loop, [this] { look(); }) {}

void ChannelSide::attach(const Core& core, std::function<void()> setGauges,
                         std::function<void()> wakeWeb) {
  _core = &core;
  _setGauges = std::move(setGauges);
  _answered.setWake(wakeWeb);
  _happened.setWake(std::move(wakeWeb));
  _maker.emplace(core.registry(), _earlier);
}

void ChannelSide::detach() noexcept {
  _core = nullptr;
  _isMaking = false;
  _maker.reset();
  _live.detach();
  _answered.setWake(nullptr);
  _happened.setWake(nullptr);
}

void ChannelSide::rowKept(const Source& source, std::string_view message, std::string_view former,
                          Time time) noexcept {
  _live.rowKept(source, message, time);
  if (source.isOnline) _earlier.take(source, message, former);
}

void ChannelSide::statusChanged(const SourceNames& names, short requestCode) noexcept {
  _live.statusChanged(names, requestCode);
  if (_core == nullptr || _earlier.isEmpty()) return;
  const Source* const source = _core->registry().find(names);
  if (source != nullptr && !source->isOnline) _earlier.forget(source->handle);
}

void ChannelSide::look() noexcept {
  if (_core == nullptr) return;
  _live.takeTopics();
  if (_figures.isAsked()) answerFigures();
  if (!_snapshots.isAsked() || std::exchange(_isMaking, true)) return;
  _cost = {};
  makeSnapshot();
}

void ChannelSide::answerFigures() noexcept {
  const Clock::time_point begin = Clock::now();
  std::unique_ptr<Figures> figures;
  try {
    figures = _figures.takeUsed();
    _setGauges();
    figures->requests = _core->requestCounts();
    figures->deferrals = _core->deferrals().kept().size();
  } catch (const std::bad_alloc&) {
    figures = nullptr;
  }
  _figures.answer(std::move(figures), Clock::now() - begin);
  _answered.ring();
}

void ChannelSide::makeSnapshot() noexcept {
  if (!_isMaking) return;  // detached meanwhile
  const Clock::time_point begin = Clock::now();
  bool isDone = true;
  std::unique_ptr<Snapshot> snapshot;
  try {
    isDone = addToSnapshot();
    if (isDone) snapshot = _maker->take();
  } catch (const std::bad_alloc&) {
    // It is given up.
  }
  _cost += Clock::now() - begin;
  if (!isDone) return _making.ask();
  _isMaking = false;
  _snapshots.answer(std::move(snapshot), _cost);
  _answered.ring();
}

// Returns whether it is complete.
bool ChannelSide::addToSnapshot() {
  if (!_maker->isMaking()) _maker->begin(_snapshots.takeUsed());
  return _maker->addPiece();
}

}  // namespace dch
