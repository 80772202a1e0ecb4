// input.h: takes a fuzzer's bytes apart from front to back, so that seeds are easy to write.
#ifndef FUZZ_SUPPORT_INPUT_H
#define FUZZ_SUPPORT_INPUT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fuzz {

// When the bytes run out, numbers are 0 and texts are what is left.
class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t count)
      : _left(reinterpret_cast<const char*>(bytes), count) {}

  bool atEnd() const { return _left.empty(); }

  unsigned takeByte() {
    if (_left.empty()) return 0;
    const auto byte = static_cast<unsigned char>(_left.front());
    _left.remove_prefix(1);
    return byte;
  }

  // 16 bits, the higher byte first.
  unsigned takeNumber() {
    const unsigned high = takeByte();
    return high << 8 | takeByte();
  }

  std::string_view takeBytes(std::size_t count) {
    const std::string_view taken = _left.substr(0, count);
    _left.remove_prefix(taken.size());
    return taken;
  }

  // A number, and as many bytes.
  std::string_view takePiece() { return takeBytes(takeNumber()); }

  // Up to the next line end, which is dropped.
  std::string_view takeLine() {
    const std::string_view line = takeBytes(_left.find('\n'));
    if (!_left.empty()) _left.remove_prefix(1);
    return line;
  }

  std::string_view takeRest() { return takeBytes(_left.size()); }

 private:
  std::string_view _left;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_INPUT_H
