#include "dch/link/provider_lines.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "dch/link/provider_line.h"

namespace dch {

namespace {

constexpr std::size_t shortestLine = 4;  // an application of one letter that is not registered

std::size_t mostLinesIn(std::string_view text) {
  const auto ends = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  return std::min(ends, text.size() / shortestLine);
}

}  // namespace

std::optional<std::vector<ProviderFact>> parseProviderLines(std::string_view text,
                                                            SharedRegistrations& registrations) {
  std::vector<ProviderFact> facts;
  facts.reserve(mostLinesIn(text));
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    auto fact = parseProviderLine(text.substr(0, end), registrations);
    if (!fact) return std::nullopt;
    facts.push_back(*std::move(fact));
    text.remove_prefix(end + 1);
  }
  return facts;
}

std::optional<std::vector<ProviderFact>> parseProviderPiece(std::string_view text, std::string* key,
                                                            SharedRegistrations& registrations) {
  auto facts = parseProviderLines(text, registrations);
  if (!facts) return std::nullopt;
  std::string last = *key;
  for (const ProviderFact& fact : *facts) {
    std::string next = providerKey(fact);
    const bool isThere =
        fact.kind == ProviderFact::Kind::registered || fact.kind == ProviderFact::Kind::online;
    if (!isThere || next <= last) return std::nullopt;
    last = std::move(next);
  }
  *key = std::move(last);
  return facts;
}

}  // namespace dch
