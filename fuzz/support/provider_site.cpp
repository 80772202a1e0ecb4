#include "fuzz/support/provider_site.h"

#include <utility>

#include "dch/link/provider_line.h"

namespace fuzz {

namespace {

using News = dch::ProviderNews;

// Two applications with two texts each, and four sources of each.
std::string keyOf(unsigned choice) {
  const std::string application = (choice & 1) != 0 ? "B" : "A";
  if ((choice & 2) != 0) return "A " + application;
  return "S " + application + " g " + static_cast<char>('a' + (choice >> 2) % 4);
}

std::string lineOf(const std::string& key, unsigned choice) {
  if (key[0] == 'S') return key;
  return key + " appl:" + key[2] + ((choice & 4) != 0 ? ",KEY;" : ",YEK;") + "group:g;attr:a,A,4;";
}

// The first lines of a text; whether these are all.
bool shorten(std::string* text, std::size_t most) {
  std::size_t end = 0;
  for (std::size_t line = 0; line < most && end < text->size(); ++line)
    end = text->find('\n', end) + 1;
  if (end >= text->size()) return true;
  text->resize(end);
  return false;
}

}  // namespace

void ProviderSite::change(unsigned choice) {
  const std::string key = keyOf(choice), line = lineOf(key, choice);
  std::string news = line;
  const auto known = _lines.find(key);
  if (known != _lines.end() && known->second == line) {
    _lines.erase(known);
    news = (key[0] == 'S' ? 'G' : 'U') + key.substr(1);
  } else {
    _lines[key] = line;
  }
  if (knowsItself() && (choice & 0x80) == 0)
    _own.take({.kind = News::Kind::more, .facts = {factOf(news)}});
  else
    tellItselfAll();
}

void ProviderSite::tellItselfAll() {
  News all{.kind = News::Kind::first, .isAll = true};
  for (const auto& [key, line] : _lines) all.facts.push_back(factOf(line));
  _own.take(all);
}

dch::ProviderFact ProviderSite::factOf(const std::string& line) {
  return *dch::parseProviderLine(line, _registrations);
}

dch::SiteChanges ProviderSite::speak(bool tellsMuch) {
  auto [from, to, text] = _own.changes();
  if (tellsMuch) text.clear();
  return {_name, _run, tellsMuch ? to : from, to, std::move(text)};
}

std::optional<ProviderSite::Reply> ProviderSite::answer(const std::string& key,
                                                        std::size_t most) const {
  auto piece = _own.answer(key);
  if (piece.revision == 0) return std::nullopt;
  const bool isAll = shorten(&piece.text, most) && piece.isAll;
  return Reply{{_run, piece.revision, isAll}, std::move(piece.text)};
}

}  // namespace fuzz
