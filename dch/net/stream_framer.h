// stream_framer.h: cuts what comes in on a stream connection into messages.
#ifndef DCH_NET_STREAM_FRAMER_H
#define DCH_NET_STREAM_FRAMER_H

#include <cstddef>
#include <string>
#include <string_view>

namespace dch {

// Messages follow each other, each with its length in front. How the bytes are cut on their way
// makes no difference.
class StreamFramer {
 public:
  enum class Next {
    message,
    incomplete,  // more bytes are needed
    broken       // a length that no message has: where the next one begins is not known any more
  };

  // `longest` is that of a message, in bytes.
  explicit StreamFramer(std::size_t longest) : _longest(longest) {}

  // Throws std::bad_alloc; nothing is added then.
  void add(std::string_view bytes);

  // Fills `message`, which is valid until the next call.
  Next next(std::string_view* message);

  void clear();

  // What it holds, in bytes.
  std::size_t size() const { return _bytes.size(); }

  // Whether a message has begun that is not whole.
  bool isInMessage() const { return _taken < _bytes.size(); }

 private:
  const std::size_t _longest;
  std::string _bytes;
  std::size_t _taken = 0;  // of them, as messages
};

}  // namespace dch

#endif  // DCH_NET_STREAM_FRAMER_H
