#include "dch/link/provider_line.h"

#include <cstddef>
#include <utility>

#include "dch/link/escaped_name.h"
#include "dch/link/text_fields.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

using Kind = ProviderFact::Kind;

constexpr char registeredLetter = 'A', unregisteredLetter = 'U';
constexpr char onlineLetter = 'S', offlineLetter = 'G';

bool isOfSource(Kind kind) {
  return kind == Kind::online || kind == Kind::offline;
}

char letterOf(Kind kind) {
  switch (kind) {
    case Kind::registered:
      return registeredLetter;
    case Kind::unregistered:
      return unregisteredLetter;
    case Kind::online:
      return onlineLetter;
    case Kind::offline:
      break;
  }
  return offlineLetter;
}

std::string startOf(char letter, const ProviderFact& fact) {
  std::string line{letter};
  const auto add = [&](const std::string& name) {
    (line += ' ') += escapedName(name, plainInLines);
  };
  add(fact.application);
  if (!isOfSource(fact.kind)) return line;
  add(fact.group);
  add(fact.source);
  return line;
}

bool isProviderName(const std::optional<std::string>& name, std::size_t least, std::size_t most) {
  return name && name->size() >= least && name->size() <= most &&
         name->find('\0') == std::string::npos;
}

std::optional<std::string> applicationIn(std::string_view field) {
  auto name = unescapedName(field, plainInLines);
  if (!isProviderName(name, 1, suite::longestApplName)) return std::nullopt;
  return name;
}

std::optional<ProviderFact> registeredIn(std::string_view rest,
                                         SharedRegistrations& registrations) {
  const auto fields = fieldsOf<2>(rest);
  if (!fields) return std::nullopt;
  auto application = applicationIn((*fields)[0]);
  const auto text = unescapedName((*fields)[1], plainInLines);
  if (!application || !text) return std::nullopt;
  auto registration = registrations.of(*text);
  if (!registration || registration->applName != *application) return std::nullopt;
  return ProviderFact{.kind = Kind::registered,
                      .application = *std::move(application),
                      .registration = std::move(registration)};
}

std::optional<ProviderFact> unregisteredIn(std::string_view rest) {
  auto application = applicationIn(rest);
  if (!application) return std::nullopt;
  return ProviderFact{.kind = Kind::unregistered, .application = *std::move(application)};
}

std::optional<ProviderFact> sourceIn(Kind kind, std::string_view rest) {
  const auto fields = fieldsOf<3>(rest);
  if (!fields) return std::nullopt;
  auto application = applicationIn((*fields)[0]);
  auto group = unescapedName((*fields)[1], plainInLines);
  auto source = unescapedName((*fields)[2], plainInLines);
  if (!application || !isProviderName(group, 1, suite::longestName) ||
      !isProviderName(source, 0, DCH_MAX_SOURCE_NAME))
    return std::nullopt;
  return ProviderFact{.kind = kind,
                      .application = *std::move(application),
                      .group = *std::move(group),
                      .source = *std::move(source)};
}

}  // namespace

std::string providerLine(const ProviderFact& fact) {
  std::string line = startOf(letterOf(fact.kind), fact);
  if (fact.kind == Kind::registered)
    (line += ' ') += escapedName(fact.registration->text, plainInLines);
  return line;
}

std::string providerKey(const ProviderFact& fact) {
  return startOf(isOfSource(fact.kind) ? onlineLetter : registeredLetter, fact);
}

std::optional<ProviderFact> parseProviderLine(std::string_view line,
                                              SharedRegistrations& registrations) {
  if (line.size() < 2 || line[1] != ' ') return std::nullopt;
  const std::string_view rest = line.substr(2);
  switch (line.front()) {
    case registeredLetter:
      return registeredIn(rest, registrations);
    case unregisteredLetter:
      return unregisteredIn(rest);
    case onlineLetter:
      return sourceIn(Kind::online, rest);
    case offlineLetter:
      return sourceIn(Kind::offline, rest);
    default:
      return std::nullopt;
  }
}

}  // namespace dch
