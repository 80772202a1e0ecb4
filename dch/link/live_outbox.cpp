#include "dch/link/live_outbox.h"

#include <utility>

namespace dch {

namespace {

std::size_t sizeOf(const OutgoingLiveRow& row) {
  return row.subject.size() + row.header.size() + row.message.size();
}

}  // namespace

bool LiveOutbox::put(OutgoingLiveRow&& row) noexcept {
  if (!isOpen()) return true;
  const std::size_t size = sizeOf(row);
  const std::uint64_t underWay = _bytesPut - _bytesTaken.load(std::memory_order_acquire);
  OutgoingLiveRow* const room = underWay + size <= mostBytes ? _rows.room() : nullptr;
  if (room == nullptr) return false;
  *room = std::move(row);
  _bytesPut += size;
  _rows.put();
  return true;
}

// One that was put while it was being closed is old by now.
void LiveOutbox::open() noexcept {
  clear();
  _isOpen.store(true, std::memory_order_relaxed);
}

void LiveOutbox::close() noexcept {
  _isOpen.store(false, std::memory_order_relaxed);
  clear();
}

void LiveOutbox::clear() noexcept {
  while (first() != nullptr) take(false);
}

void LiveOutbox::take(bool isSent) noexcept {
  // The next one that is put here has memory of its own.
  const OutgoingLiveRow row = std::move(*_rows.first());
  _bytesTaken.fetch_add(sizeOf(row), std::memory_order_release);
  _rows.take();
  (isSent ? _sent : _lost).fetch_add(1, std::memory_order_relaxed);
}

LiveOutbox::Figures LiveOutbox::figures() const noexcept {
  return {_sent.load(std::memory_order_relaxed), _lost.load(std::memory_order_relaxed)};
}

}  // namespace dch
