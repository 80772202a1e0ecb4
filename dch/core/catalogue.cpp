#include "dch/core/catalogue.h"

#include <algorithm>
#include <utility>

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

std::string applicationLine(const Application& application) {
  const suite::Registration& registration = application.registration;
  std::string line = registration.applName + ',' + registration.applKey + ',' + registration.type;
  char separator = ',';
  for (const suite::RegisteredGroup& group : registration.groups) {
    line += separator;
    line += group.name;
    separator = ' ';
  }
  return line + ',' + std::to_string(application.sourcesOnline) + '\n';
}

std::string attributeLine(const suite::RegisteredGroup& group,
                          const suite::RegisteredAttribute& attribute) {
  std::string help = attribute.help;
  std::replace_if(
      help.begin(), help.end(), [](char byte) { return byte == '\n' || byte == '\r'; }, ' ');
  return group.name + ',' + attribute.name + ',' + attribute.letter + ',' +
         std::to_string(attribute.size) + ',' + help + '\n';
}

}  // namespace

std::string applicationLines(const Registry& registry, std::optional<std::string_view> name,
                             std::size_t maxBytes) {
  if (name) {
    const Application* const application = registry.findApplication(*name);
    return application != nullptr ? applicationLine(*application) : "";
  }
  BoundedLines lines(maxBytes);
  for (const Application* application : registry.applications())
    if (!lines.add(applicationLine(*application))) break;
  return lines.take();
}

std::string attributeLines(const Registry& registry, std::string_view application,
                           std::size_t maxBytes) {
  const Application* const known = registry.findApplication(application);
  if (known == nullptr) return "";
  BoundedLines lines(maxBytes);
  for (const suite::RegisteredGroup& group : known->registration.groups)
    for (const suite::RegisteredAttribute& attribute : group.attributes)
      if (!lines.add(attributeLine(group, attribute))) return lines.take();
  return lines.take();
}

std::string helpText(const Registry& registry, std::string_view application) {
  const Application* const known = registry.findApplication(application);
  return known != nullptr ? known->registration.help : "";
}

const std::string& Catalogue::allApplications() {
  return kept({}, [this] { return applicationLines(_registry, std::nullopt); });
}

const std::string& Catalogue::attributes(std::string_view application) {
  static const std::string nothing;
  if (_registry.findApplication(application) == nullptr) return nothing;
  return kept(joinNames("attributes", application),
              [&] { return attributeLines(_registry, application); });
}

const std::string& Catalogue::kept(std::string&& key, const std::function<std::string()>& make) {
  const bool isOld = std::exchange(_revision, _registry.revision()) != _registry.revision();
  if (isOld || _byteCount > mostKeptBytes) {
    _texts.clear();
    _byteCount = 0;
  }
  if (const auto known = _texts.find(key); known != _texts.end()) return known->second;
  const auto& [newKey, text] = *_texts.emplace(std::move(key), make()).first;
  _byteCount += newKey.size() + text.size();
  return text;
}

}  // namespace dch
