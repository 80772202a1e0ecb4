#include "dch/link/alive_message.h"

#include <array>
#include <utility>

#include "dch/link/escaped_name.h"
#include "dch/link/link_settings.h"
#include "dch/link/number_text.h"
#include "dch/link/subject.h"
#include "dch/link/text_fields.h"

namespace dch {

namespace {

constexpr std::string_view aliveVersion = "1", noField = "-", plainInVersions = ".-_";
constexpr std::string_view aliveSubjectStart = "zord.alive.";
constexpr std::array<std::string_view, 4> stateTexts = {"new", "here", "aside", "stopping"};

std::string positionText(std::optional<std::int64_t> position) {
  return position ? std::to_string(*position) : std::string(noField);
}

std::optional<std::int64_t> positionIn(std::string_view text) {
  if (text == noField) return std::nullopt;
  return numberIn<std::int64_t>(text);
}

// Any state when it is none.
AliveMessage::State stateIn(std::string_view text) {
  std::size_t index = 0;
  while (index + 1 < stateTexts.size() && stateTexts.at(index) != text) ++index;
  return static_cast<AliveMessage::State>(index);
}

bool isNegative(std::optional<std::int64_t> position) {
  return position && *position < 0;
}

bool isLines(std::string_view changes) {
  return changes.ends_with('\n') && changes.size() <= longestChanges;
}

std::string aliveLine(const AliveMessage& message) {
  std::string text(aliveVersion);
  const auto add = [&](std::string_view field) { (text += ' ') += field; };
  add(epochText(message.run));
  add(std::to_string(message.count));
  add(std::to_string(message.period.count()));
  add(stateTexts.at(static_cast<std::size_t>(message.state)));
  add(message.hears ? epochText(*message.hears) : noField);
  add(positionText(message.newest));
  add(positionText(message.published));
  add(std::to_string(message.from));
  add(std::to_string(message.to));
  add(escapedName(message.version, plainInVersions));
  return text;
}

std::optional<AliveMessage> parseAliveLine(std::string_view text) {
  const auto fields = fieldsOf<11>(text);
  if (!fields) return std::nullopt;
  const auto& [form, run, count, period, state, hears, newest, published, from, to, version] =
      *fields;
  constexpr std::size_t longestEscaped = 3 * longestVersion;
  if (version.size() > longestEscaped) return std::nullopt;
  const auto runEpoch = parseEpoch(run);
  auto plainVersion = unescapedName(version, plainInVersions);
  if (!runEpoch || !plainVersion) return std::nullopt;
  AliveMessage message{
      .run = *runEpoch,
      .count = numberIn<std::uint64_t>(count),
      .period = std::chrono::milliseconds(numberIn<std::int64_t>(period)),
      .state = stateIn(state),
      .hears = parseEpoch(hears),
      .newest = positionIn(newest),
      .published = positionIn(published),
      .from = numberIn<std::uint64_t>(from),
      .to = numberIn<std::uint64_t>(to),
      .version = *std::move(plainVersion),
  };
  if (message.period.count() < 0 || isNegative(message.newest) || isNegative(message.published) ||
      message.version.size() > longestVersion)
    return std::nullopt;
  // A message is written in one way only: what was something else is written differently now.
  if (aliveLine(message) != text) return std::nullopt;
  return message;
}

}  // namespace

std::string aliveSubject(std::string_view site) {
  return std::string(aliveSubjectStart) + subjectToken(site);
}

std::optional<std::string> parseAliveSubject(std::string_view subject) {
  if (!subject.starts_with(aliveSubjectStart)) return std::nullopt;
  auto site = nameOfToken(subject.substr(aliveSubjectStart.size()));
  if (!site || site->empty() || site->size() > longestSiteName) return std::nullopt;
  return site;
}

std::string aliveText(const AliveMessage& message) {
  std::string text = aliveLine(message);
  if (!message.changes.empty()) (text += '\n') += message.changes;
  return text;
}

std::optional<AliveMessage> parseAlive(std::string_view text) {
  const std::size_t end = text.find('\n');
  auto message = parseAliveLine(text.substr(0, end));
  if (!message) return std::nullopt;
  const bool hasChanges = end != std::string_view::npos;
  const std::string_view changes = hasChanges ? text.substr(end + 1) : std::string_view();
  if (hasChanges && !isLines(changes)) return std::nullopt;
  if (message->from > message->to || hasChanges != (message->from < message->to))
    return std::nullopt;
  message->changes = changes;
  return message;
}

}  // namespace dch
