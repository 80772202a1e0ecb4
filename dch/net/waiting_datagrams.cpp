#include "dch/net/waiting_datagrams.h"

#include <algorithm>

namespace dch {

void WaitingDatagrams::add(const Message& message) {
  _datagrams.push_back({std::string(message.bytes), message});
  _bytes += message.bytes.size();
}

std::size_t WaitingDatagrams::peek(std::span<Message> messages) const {
  const std::size_t count = std::min(messages.size(), _datagrams.size());
  for (std::size_t i = 0; i < count; ++i) {
    messages[i] = _datagrams[i].message;
    messages[i].bytes = _datagrams[i].bytes;
  }
  return count;
}

void WaitingDatagrams::remove(std::size_t count) {
  for (; count > 0; --count) {
    _bytes -= _datagrams.front().bytes.size();
    _datagrams.pop_front();
  }
}

}  // namespace dch
