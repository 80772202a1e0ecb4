#include "dch/link/provider_inbox.h"

#include <new>
#include <string_view>

#include "dch/link/known_message.h"

namespace dch {

namespace {

std::size_t bytesOf(const ProviderMessage& message) {
  return message.subject.size() + message.asker.size() + message.header.size() +
         message.body.size();
}

// _INBOX.ASKER of _INBOX.ASKER.WORD...; of any other place all of it.
std::string_view askerOf(std::string_view place) {
  const std::size_t name = place.find('.');
  if (name == std::string_view::npos) return place;
  return place.substr(0, place.find('.', name + 1));
}

}  // namespace

void ProviderInbox::put(const LiveMessage& message) noexcept {
  try {
    put({std::string(message.subject()), std::string(message.replySubject()),
         std::string(message.header(knownHeaderName)), std::string(message.body()),
         message.saysNobody()});
  } catch (const std::bad_alloc&) {
    const std::lock_guard lock(_mutex);
    ++_refused;
  }
}

void ProviderInbox::put(ProviderMessage&& message) {
  {
    const std::lock_guard lock(_mutex);
    const std::size_t bytes = bytesOf(message);
    const auto known = _askers.find(askerOf(message.asker));
    if (_messages.size() >= _limits.messages || bytes > _limits.bytesOfOne ||
        bytes > _limits.bytes - _bytes ||
        (known != _askers.end() && known->second >= _limits.ofOneAsker)) {
      ++_refused;
      return;
    }
    std::size_t& ofAsker = _askers[std::string(askerOf(message.asker))];
    _messages.push_back(std::move(message));
    ++ofAsker;
    _bytes += bytes;
    if (_messages.size() > 1) return;
  }
  _wake();
}

std::optional<ProviderMessage> ProviderInbox::take() noexcept {
  const std::lock_guard lock(_mutex);
  if (_messages.empty()) return std::nullopt;
  std::optional<ProviderMessage> first(std::move(_messages.front()));
  _bytes -= bytesOf(*first);
  _messages.pop_front();
  const auto asker = _askers.find(askerOf(first->asker));
  if (--asker->second == 0) _askers.erase(asker);
  return first;
}

bool ProviderInbox::empty() const {
  const std::lock_guard lock(_mutex);
  return _messages.empty();
}

void ProviderInbox::clear() noexcept {
  const std::lock_guard lock(_mutex);
  _messages.clear();
  _askers.clear();
  _bytes = 0;
}

std::uint64_t ProviderInbox::refused() const {
  const std::lock_guard lock(_mutex);
  return _refused;
}

}  // namespace dch
