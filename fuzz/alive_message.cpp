// What a site says of itself, and the subject on which it says it: each leads back to what it was
// made of, and nothing else is taken for one.
#include "dch/link/alive_message.h"

#include <limits>

#include "dch/link/link_settings.h"
#include "dch/link/subject.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text_forms.h"

namespace {

using fuzz::isCount, fuzz::isEpoch, fuzz::isEscaped, fuzz::most64, fuzz::mostUnsigned;
using State = dch::AliveMessage::State;

// Of a name with some bytes escaped.
std::size_t nameSize(std::string_view escaped) {
  if (escaped == "%") return 0;
  std::size_t size = escaped.size();
  for (const char each : escaped)
    if (each == '%') size -= 2;
  return size;
}

// Of two counts.
bool isLess(std::string_view left, std::string_view right) {
  return left.size() != right.size() ? left.size() < right.size() : left < right;
}

bool isAlive(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  const std::string_view behind = text.substr(line.size());
  const auto fields = fuzz::split(line, ' ');
  if (fields.size() != 11) return false;
  const bool isMore = isLess(fields[8], fields[9]);
  if (isMore ? behind.size() < 2 || behind.back() != '\n' : !behind.empty()) return false;
  if (behind.size() > 1 + dch::longestChanges || isLess(fields[9], fields[8])) return false;
  const std::string_view state = fields[4];
  const auto isPosition = [](std::string_view each) {
    return each == "-" || isCount(each, most64);
  };
  return fields[0] == "1" && isEpoch(fields[1]) && isCount(fields[2], mostUnsigned) &&
         isCount(fields[3], most64) &&
         (state == "new" || state == "here" || state == "aside" || state == "stopping") &&
         (fields[5] == "-" || isEpoch(fields[5])) && isPosition(fields[6]) &&
         isPosition(fields[7]) && isCount(fields[8], mostUnsigned) &&
         isCount(fields[9], mostUnsigned) && isEscaped(fields[10], ".-_") &&
         nameSize(fields[10]) <= dch::longestVersion;
}

bool isAliveSubject(std::string_view text) {
  const auto tokens = fuzz::split(text, '.');
  return tokens.size() == 3 && tokens[0] == "zord" && tokens[1] == "alive" &&
         isEscaped(tokens[2], "-_") && tokens[2] != "%" &&
         nameSize(tokens[2]) <= dch::longestSiteName;
}

void checkAsText(std::string_view text) {
  const auto message = dch::parseAlive(text);
  fuzz::require(message.has_value() == isAlive(text), "what a message is");
  fuzz::require(!message || dch::aliveText(*message) == text, "a message has one text");
  const auto site = dch::parseAliveSubject(text);
  fuzz::require(site.has_value() == isAliveSubject(text), "what a subject is");
  fuzz::require(!site || dch::aliveSubject(*site) == text, "a subject has one text");
}

std::int64_t takePositive(fuzz::Input* input) {
  return fuzz::take<std::int64_t>(input) & std::numeric_limits<std::int64_t>::max();
}

void checkAsMessage(fuzz::Input input) {
  const unsigned choice = input.takeByte();
  dch::AliveMessage message;
  message.run = fuzz::takeEpoch(&input);
  message.count = fuzz::take<std::uint64_t>(&input);
  message.period = std::chrono::milliseconds(takePositive(&input));
  message.state = static_cast<State>(choice % 4);
  if ((choice & 0x10) != 0) message.hears = fuzz::takeEpoch(&input);
  if ((choice & 0x20) != 0) message.newest = takePositive(&input);
  if ((choice & 0x40) != 0) message.published = takePositive(&input);
  message.from = fuzz::take<std::uint64_t>(&input);
  message.to = (choice & 0x08) != 0 ? fuzz::take<std::uint64_t>(&input) : message.from;
  message.version = input.takeBytes(dch::longestVersion);
  if ((choice & 0x80) != 0) message.changes = std::string(input.takeRest()) + '\n';
  const std::string text = dch::aliveText(message);
  const bool isGood =
      message.changes.empty() ? message.from == message.to : message.from < message.to;
  fuzz::require(isAlive(text) == isGood, "a message as it is to be");
  if (isGood)
    fuzz::require(dch::parseAlive(text) == message, "a message leads back");
  else
    fuzz::require(!dch::parseAlive(text), "no other is taken");
}

void checkAsSite(std::string_view bytes) {
  const std::string site(bytes.substr(0, dch::longestSiteName));
  const std::string subject = dch::aliveSubject(site);
  fuzz::require(isAliveSubject(subject) == !site.empty(), "a subject as it is to be");
  fuzz::require(site.empty() || dch::parseAliveSubject(subject) == site, "a subject leads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), count);
  checkAsText(text);
  checkAsMessage({bytes, count});
  checkAsSite(text);
  return 0;
}
