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
    if (_messages.size() >= _limits.messages || bytes > _limits.bytes - _bytes) {
      ++_refused;
      return;
    }
    _messages.push_back(std::move(message));
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
  return first;
}

bool ProviderInbox::empty() const {
  const std::lock_guard lock(_mutex);
  return _messages.empty();
}

void ProviderInbox::clear() noexcept {
  const std::lock_guard lock(_mutex);
  _messages.clear();
  _bytes = 0;
}

std::uint64_t ProviderInbox::refused() const {
  const std::lock_guard lock(_mutex);
  return _refused;
}

}  // namespace dch
