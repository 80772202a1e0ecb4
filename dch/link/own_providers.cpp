#include "dch/link/own_providers.h"

#include <utility>

#include "dch/link/provider_line.h"

namespace dch {

namespace {

bool isSo(const ProviderFact& fact) {
  return fact.kind == ProviderFact::Kind::registered || fact.kind == ProviderFact::Kind::online;
}

// Says of what has this key that it is so no more.
std::string goneLine(std::string_view key) {
  const char letter = key.starts_with('A') ? 'U' : 'G';
  return letter + std::string(key.substr(1));
}

}  // namespace

void OwnProviders::take(const ProviderNews& news) {
  if (news.kind == ProviderNews::Kind::first) ++_beginnings;
  for (const ProviderFact& each : news.facts) take(each);
  if (news.isAll) removeUntold();
  if (_revision == 0 ? !news.isAll : !_hasChanged) return;
  ++_revision;
  _hasChanged = false;
}

// Is noted first: a change that is not told would never be, one that is told and is none does not
// harm.
void OwnProviders::take(const ProviderFact& fact) {
  std::string key = providerKey(fact);
  const auto known = _lines.find(key);
  if (!isSo(fact)) {
    if (known == _lines.end()) return;
    note(key);
    _lines.erase(known);
    return;
  }
  std::string rest = providerLine(fact).substr(key.size());
  if (known == _lines.end()) {
    note(key);
    _lines.emplace(std::move(key), Line{std::move(rest), _beginnings});
    return;
  }
  Line& line = known->second;
  if (line.rest != rest) note(key);
  line.rest = std::move(rest);
  line.beginning = _beginnings;
}

void OwnProviders::removeUntold() {
  for (auto each = _lines.begin(); each != _lines.end();) {
    if (each->second.beginning == _beginnings) {
      ++each;
      continue;
    }
    note(each->first);
    each = _lines.erase(each);
  }
}

void OwnProviders::note(const std::string& key) {
  _hasChanged = true;
  if (_areTooMany || !_changed.insert(key).second) return;
  _changedBytes += key.size() + 1;
  if (_changedBytes <= mostChangesBytes) return;
  _areTooMany = true;
  _changed.clear();
}

OwnProviders::Changes OwnProviders::changes() {
  Changes changes{_told, _revision};
  if (_told == _revision) return changes;
  if (_told > 0) changes.text = changedLines();
  if (changes.text.empty()) changes.from = changes.to;
  _told = _revision;
  _changed.clear();
  _changedBytes = 0;
  _areTooMany = false;
  return changes;
}

// As they are now; none when they are too many.
std::string OwnProviders::changedLines() const {
  std::string text;
  for (const std::string& key : _changed) {
    const auto known = _lines.find(key);
    if (known != _lines.end())
      (text += key) += known->second.rest;
    else
      text += goneLine(key);
    text += '\n';
    if (text.size() > mostChangesBytes) return {};
  }
  return text;
}

OwnProviders::Piece OwnProviders::answer(std::string_view key) const {
  Piece piece{_told};
  for (auto each = _lines.upper_bound(key); each != _lines.end(); ++each) {
    const auto& [ownKey, line] = *each;
    const std::size_t size = ownKey.size() + line.rest.size() + 1;
    if (!piece.text.empty() && piece.text.size() + size > mostAnswerBytes) return piece;
    ((piece.text += ownKey) += line.rest) += '\n';
  }
  piece.isAll = true;
  return piece;
}

}  // namespace dch
