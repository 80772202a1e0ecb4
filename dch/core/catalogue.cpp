#include "dch/core/catalogue.h"

#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

#include "dch/core/merged_registration.h"

namespace dch {

namespace {

// Of what is kept: a client that asks for very many applications, each of very many attributes,
// does not fill the memory.
constexpr std::size_t mostKeptBytes = 8 * maxCatalogueTextBytes;

constexpr std::string_view truncatedLine = "#truncated\n";

// Takes lines until one does not fit.
class BoundedLines {
 public:
  explicit BoundedLines(std::size_t maxBytes) : _maxBytes(maxBytes) {}

  // Returns false when the text is complete as it is: no further line is wanted.
  bool add(const std::string& line) {
    if (_text.size() + line.size() <= _maxBytes) {
      _text += line;
      return true;
    }
    while (_text.size() + truncatedLine.size() > _maxBytes && !_text.empty()) dropLastLine();
    _text += truncatedLine;
    return false;
  }

  std::string take() { return std::move(_text); }

 private:
  void dropLastLine() {
    _text.pop_back();
    const std::size_t end = _text.rfind('\n');
    _text.resize(end == std::string::npos ? 0 : end + 1);
  }

  const std::size_t _maxBytes;
  std::string _text;
};

// An application as this server's own providers have it, as those of other sites do, or both.
struct Told {
  bool isKnown() const { return own != nullptr || remote != nullptr; }
  std::size_t sourcesOnline() const {
    return (own != nullptr ? own->sourcesOnline : 0) +
           (remote != nullptr ? remote->sourcesOnline() : 0);
  }
  // Most often all sites have the same.
  bool isOwnAlone() const {
    return own != nullptr && (remote == nullptr || remote->hasOnly(own->registration.text));
  }

  const Application* own;  // null: not registered
  const RemoteApplication* remote;
};

Told toldOf(const AllProviders& providers, std::string_view name) {
  return {providers.own.findApplication(name), providers.remote.find(name)};
}

// What it is registered as: its own first.
std::vector<const suite::Registration*> registrationsOf(const Told& told) {
  if (told.isOwnAlone()) return {&told.own->registration};
  std::vector<const suite::Registration*> all = told.remote->registrations();
  if (told.own != nullptr) all.insert(all.begin(), &told.own->registration);
  return all;
}

std::vector<std::string_view> groupNamesOf(const Told& told) {
  if (told.own == nullptr) return told.remote->groupNames();
  std::vector<std::string_view> names;
  names.reserve(told.own->registration.groups.size());
  for (const suite::RegisteredGroup& group : told.own->registration.groups)
    names.push_back(group.name);
  if (told.isOwnAlone()) return names;
  std::unordered_set<std::string_view> known(names.begin(), names.end());
  for (const std::string_view name : told.remote->groupNames())
    if (known.insert(name).second) names.push_back(name);
  return names;
}

std::string applicationLine(const Told& told) {
  const suite::Registration& first =
      told.own != nullptr ? told.own->registration : told.remote->first();
  std::string line = first.applName + ',' + first.applKey + ',' + first.type;
  char separator = ',';
  for (const std::string_view group : groupNamesOf(told)) {
    line += separator;
    line += group;
    separator = ' ';
  }
  return line + ',' + std::to_string(told.sourcesOnline()) + '\n';
}

std::string attributeLine(std::string_view group, const suite::RegisteredAttribute& attribute) {
  std::string help = attribute.help;
  std::replace_if(
      help.begin(), help.end(), [](char byte) { return byte == '\n' || byte == '\r'; }, ' ');
  return std::string(group) + ',' + attribute.name + ',' + attribute.letter + ',' +
         std::to_string(attribute.size) + ',' + help + '\n';
}

}  // namespace

std::string applicationLines(const AllProviders& providers, std::optional<std::string_view> name,
                             std::size_t maxBytes) {
  BoundedLines lines(maxBytes);
  if (name) {
    const Told told = toldOf(providers, *name);
    if (!told.isKnown()) return "";
    // What this server alone has is told as it is.
    std::string line = applicationLine(told);
    if (told.isOwnAlone()) return line;
    lines.add(line);
    return lines.take();
  }
  const std::vector<const Application*> all = providers.own.applications();
  auto own = all.begin();
  const RemoteApplication* remote = providers.remote.next({});
  while (own != all.end() || remote != nullptr) {
    const bool isOwn = own != all.end() && (remote == nullptr || (*own)->name <= remote->name());
    const bool isRemote = remote != nullptr && (!isOwn || (*own)->name == remote->name());
    if (!lines.add(applicationLine({isOwn ? *own : nullptr, isRemote ? remote : nullptr}))) break;
    if (isOwn) ++own;
    if (isRemote) remote = providers.remote.next(remote->name());
  }
  return lines.take();
}

std::string attributeLines(const AllProviders& providers, std::string_view application,
                           std::size_t maxBytes) {
  const Told told = toldOf(providers, application);
  if (!told.isKnown()) return "";
  BoundedLines lines(maxBytes);
  for (const MergedGroup& group : mergedGroups(registrationsOf(told)))
    for (const suite::RegisteredAttribute* attribute : group.attributes)
      if (!lines.add(attributeLine(group.name, *attribute))) return lines.take();
  return lines.take();
}

std::string helpText(const AllProviders& providers, std::string_view application) {
  const Told told = toldOf(providers, application);
  return told.isKnown() ? std::string(mergedHelp(registrationsOf(told))) : "";
}

const std::string& Catalogue::allApplications() {
  return kept({}, [this] { return applicationLines(_providers, std::nullopt); });
}

const std::string& Catalogue::attributes(std::string_view application) {
  static const std::string nothing;
  if (!toldOf(_providers, application).isKnown()) return nothing;
  return kept(joinNames("attributes", application),
              [&] { return attributeLines(_providers, application); });
}

const std::string& Catalogue::kept(std::string&& key, const std::function<std::string()>& make) {
  const std::uint64_t own = _providers.own.revision(), remote = _providers.remote.revision();
  const bool isOwnOld = std::exchange(_ownRevision, own) != own;
  const bool isRemoteOld = std::exchange(_remoteRevision, remote) != remote;
  if (isOwnOld || isRemoteOld || _byteCount > mostKeptBytes) {
    _texts.clear();
    _byteCount = 0;
  }
  if (const auto known = _texts.find(key); known != _texts.end()) return known->second;
  const auto& [newKey, text] = *_texts.emplace(std::move(key), make()).first;
  _byteCount += newKey.size() + text.size();
  return text;
}

}  // namespace dch
