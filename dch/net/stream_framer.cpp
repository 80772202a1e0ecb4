#include "dch/net/stream_framer.h"

#include <cstdint>

#include "suite/fields.h"

namespace dch {

void StreamFramer::add(std::string_view bytes) {
  _bytes.erase(0, _taken);
  _taken = 0;
  _bytes += bytes;
}

StreamFramer::Next StreamFramer::next(std::string_view* message) {
  const std::string_view rest = std::string_view(_bytes).substr(_taken);
  if (rest.empty()) clear();
  if (rest.size() < ZOR0_LENGTH_WORD_SIZE) return Next::incomplete;
  const std::uint32_t length = ZOR0_MessageLength(rest.data());
  if (length < ZOR0_LENGTH_WORD_SIZE || length > _longest) return Next::broken;
  if (rest.size() < length) return Next::incomplete;
  *message = rest.substr(0, length);
  _taken += length;
  return Next::message;
}

// Also gives the memory back: a quiet connection costs none.
void StreamFramer::clear() {
  _bytes = std::string();
  _taken = 0;
}

}  // namespace dch
