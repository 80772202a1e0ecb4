// The cutting of a stream into messages: the pieces that it comes in make no difference.
#include "dch/net/stream_framer.h"

#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using Next = dch::StreamFramer::Next;

constexpr std::size_t longest = 300;

// All messages that are whole, and whether what follows is broken.
struct Framed {
  std::vector<std::string> messages;
  bool isBroken = false;
  bool isInMessage = false;

  bool operator==(const Framed&) const = default;
};

Framed frame(const std::vector<std::string_view>& pieces) {
  dch::StreamFramer framer(longest);
  Framed framed;
  for (const std::string_view piece : pieces) {
    framer.add(piece);
    std::string_view message;
    Next next;
    while ((next = framer.next(&message)) == Next::message) framed.messages.emplace_back(message);
    framed.isBroken = next == Next::broken;
  }
  framed.isInMessage = framer.isInMessage();
  return framed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  fuzz::Input input(bytes, count);
  std::vector<std::string_view> pieces;
  std::string all;
  while (!input.atEnd()) all += pieces.emplace_back(input.takeBytes(input.takeByte()));
  const Framed framed = frame(pieces);
  fuzz::require(framed == frame({all}), "the same messages in one piece");
  std::size_t taken = 0;
  for (const std::string& each : framed.messages) {
    fuzz::require(each.size() <= longest && all.compare(taken, each.size(), each) == 0,
                  "messages are what came, in its order");
    taken += each.size();
  }
  fuzz::require(framed.isInMessage == (taken < all.size()), "the rest is a part of a message");
  return 0;
}
