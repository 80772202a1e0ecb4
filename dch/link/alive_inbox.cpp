#include "dch/link/alive_inbox.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace dch {

void AliveInbox::put(const LiveMessage& message) noexcept {
  put(message.subject(), message.body());
}

void AliveInbox::put(std::string_view subject, std::string_view body) noexcept {
  bool isKept = false;
  try {
    isKept = keep(subject, body);
  } catch (const std::exception&) {  // no memory: the site says it again
  }
  if (isKept) return;
  const std::lock_guard lock(_mutex);
  ++_refused;
}

bool AliveInbox::keep(std::string_view subject, std::string_view body) {
  const auto site = parseAliveSubject(subject);
  auto message = parseAlive(body);
  if (!site || !message) return false;
  SiteChanges changes{*site, message->run, message->from, message->to,
                      std::exchange(message->changes, {})};
  std::unique_lock lock(_mutex);
  const bool isFirst = _heard.empty();
  if (_heard.size() >= mostSites && !_heard.contains(*site)) return false;
  std::vector<AliveMessage>& ofSite = _heard[*site];
  std::erase_if(ofSite, [&](const AliveMessage& each) { return each.run == message->run; });
  if (ofSite.size() >= mostRuns) return false;
  const bool hasTheName = message->state != AliveMessage::State::aside;
  ofSite.push_back(*std::move(message));
  if (hasTheName) _changes.add(std::move(changes));
  lock.unlock();
  if (isFirst) ring();
  return true;
}

std::map<std::string, std::vector<AliveMessage>> AliveInbox::take() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_heard, {});
}

std::vector<SiteChanges> AliveInbox::takeChanges() {
  const std::lock_guard lock(_mutex);
  return _changes.take();
}

std::uint64_t AliveInbox::changesDropped() const {
  const std::lock_guard lock(_mutex);
  return _changes.dropped();
}

std::uint64_t AliveInbox::refused() const {
  const std::lock_guard lock(_mutex);
  return _refused;
}

void AliveInbox::wait(std::chrono::milliseconds atMost) {
  std::unique_lock lock(_mutex);
  _bell.wait_for(lock, atMost, [this] { return _isRung; });
  _isRung = false;
}

void AliveInbox::ring() noexcept {
  {
    const std::lock_guard lock(_mutex);
    _isRung = true;
  }
  _bell.notify_one();
}

}  // namespace dch
