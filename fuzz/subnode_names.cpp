// Subnode names, built and taken apart.
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/support/input.h"
#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"
#include "zora/zora.h"

using namespace fuzz;

namespace {

constexpr std::size_t maxPart = 32;
constexpr char unwritten = '#';

// What a call gets: the bytes up to a zero.
std::string takeText(Input* input) {
  const std::string_view line = input->takeLine();
  return std::string(line.substr(0, line.find('\0')));
}

// Room for a text of so many characters, exactly, so that one too many is found.
class Room {
 public:
  explicit Room(std::size_t characters) : _size(characters + 1), _bytes(new char[_size]) {
    std::memset(_bytes.get(), unwritten, _size);
  }
  char* get() { return _bytes.get(); }
  bool isUnwritten() const {
    return std::string_view(_bytes.get(), _size).find_first_not_of(unwritten) ==
           std::string_view::npos;
  }

 private:
  const std::size_t _size;
  const std::unique_ptr<char[]> _bytes;
};

struct Parts {
  std::string appl, group, source, rr, suffix;
  bool hasUntouched, hasSuffix;
};

void checkBuilding(const Parts& parts) {
  const std::string source = parts.source.substr(0, maxPart);
  const std::string group = parts.group.substr(0, maxPart);
  const std::size_t longRR = parts.rr.size() > 2 ? parts.rr.size() - 2 : 0;
  Room name(ZORA_MAX_SUBNODE_NAME + longRR);
  Room untouchedName(ZORA_MAX_UNTOUCHED_NAME);
  const int result = ZORA_SetSubnodeName(parts.appl.c_str(), parts.group.c_str(),
                                         parts.source.c_str(), parts.rr.c_str(), name.get(),
                                         parts.hasUntouched ? untouchedName.get() : nullptr,
                                         parts.hasSuffix ? parts.suffix.c_str() : nullptr);

  const std::string untouchedText = source + ':' + parts.appl + group + parts.rr;
  const bool untouchedFits = untouchedText.size() - 1 + 2 <= 69;
  const std::string tail =
      ':' + parts.appl + parts.rr + (parts.hasSuffix ? '_' + parts.suffix : "");
  // RR counts as two characters.
  const std::size_t tailSize = tail.size() - parts.rr.size() + 2;
  const bool fits = (!parts.hasUntouched || untouchedFits) && tailSize <= ZORA_MAX_SUBNODE_NAME;
  require(result == (fits ? 0 : 1), "names that fit are built");
  if (parts.hasUntouched && untouchedFits)
    require(untouchedText == untouchedName.get(), "the name with the source as it was given");
  else
    require(untouchedName.isUnwritten(), "no untouched name");
  if (!fits) {
    require(name.isUnwritten(), "no name");
    return;
  }
  const std::size_t kept = std::min(source.size(), ZORA_MAX_SUBNODE_NAME - tailSize);
  require(source.substr(source.size() - kept) + tail == name.get(),
          "the name, its source cut at the left");
}

void checkTakingApart(const std::string& name) {
  const std::string_view forSource = std::string_view(name).substr(0, 70);
  const std::size_t start = forSource.find_first_not_of(':');
  const char* const source = ZORA_GetSrcNameFromSubNodeName(name.c_str());
  if (forSource.find(':') == std::string_view::npos || start == std::string_view::npos) {
    require(source == nullptr, "no source name without a colon or with nothing else");
  } else {
    const std::string_view token = forSource.substr(start, forSource.find(':', start) - start);
    require(source != nullptr && token.substr(0, maxPart) == source, "the text before the colon");
  }

  const std::string_view forKey = std::string_view(name).substr(0, 32);
  Room key(ZORA_APPL_KEY_LENGTH);
  const int result = ZORA_GetApplKeyFromSubNodeName(name.c_str(), key.get());
  if (forKey.find(':') == std::string_view::npos) {
    require(result == 1 && key.isUnwritten(), "no key without a colon");
  } else if (forKey.find_first_not_of(':') == std::string_view::npos) {
    require(result == 0 && key.isUnwritten(), "no key, and no error, with nothing but colons");
  } else {
    require((result == 0) == !key.isUnwritten(), "a key is written when there is one");
    if (result == 0) require(key.get()[ZORA_APPL_KEY_LENGTH] == '\0', "the end of the key");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  traceIntoNothing();
  return 0;
}

// A line each: application, group, source, RR, suffix, name to take apart.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  const unsigned choice = input.takeByte();
  Parts parts;
  parts.appl = takeText(&input);
  parts.group = takeText(&input);
  parts.source = takeText(&input);
  parts.rr = takeText(&input);
  parts.suffix = takeText(&input);
  parts.hasUntouched = (choice & 1) != 0;
  parts.hasSuffix = (choice & 2) != 0;
  checkBuilding(parts);
  checkTakingApart(std::string(input.takeRest()).c_str());
  return 0;
}
