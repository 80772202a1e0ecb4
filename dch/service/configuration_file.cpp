#include "dch/service/configuration_file.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "dch/core/log.h"
#include "dch/service/configuration_error.h"
#include "dch/service/configuration_keys.h"
#include "dch/service/file_content.h"
#include "dch/service/toml.h"

namespace dch {

namespace {

constexpr std::size_t mostShown = 60;  // characters of a wrong value

// Reads the sections one by one, and gathers all that is wrong.
class Reader {
 public:
  explicit Reader(const std::string& path) : _path(path) {}

  Configuration read(const toml::table& file) {
    for (const auto& [name, section] : file) readSection(name, section);
    if (_problems.empty()) return std::move(_configuration);
    std::string text;
    for (const auto& [line, problem] : _problems) text += (text.empty() ? "" : "\n") + problem;
    throw ConfigurationError(text);
  }

 private:
  void readSection(const toml::key& name, const toml::node& section) {
    const toml::table* const table = section.as_table();
    if (table == nullptr)
      return add(name.source(),
                 shown(name.str()) + " has to be in a section, one of " + namesOfSections());
    if (!isSection(name.str()))
      return add(name.source(),
                 "there is no section [" + shown(name.str()) + "]; there are " + namesOfSections());
    for (const auto& [key, value] : *table) readKey(name.str(), key, value);
  }

  void readKey(std::string_view section, const toml::key& name, const toml::node& value) {
    for (const ConfigurationKey& key : configurationKeys())
      if (key.section == section && key.name == name.str()) return readValue(key, value);
    add(name.source(), "there is no key " + shown(name.str()) + " in [" + std::string(section) +
                           "]; there are " + namesOfKeys(section));
  }

  void readValue(const ConfigurationKey& key, const toml::node& value) {
    try {
      key.read(value, &_configuration);
    } catch (const WrongValue& wrong) {
      add(wrong.value.source(), std::string(key.name) + " in [" + key.section + "] has to be " +
                                    wrong.whatItHasToBe + ", not " + textOf(wrong.value));
    }
  }

  void add(const toml::source_region& where, const std::string& problem) {
    const unsigned line = where.begin.line;
    _problems.emplace(line, _path + ':' + std::to_string(line) + ": " + problem);
  }

  static bool isSection(std::string_view name) {
    const auto keys = configurationKeys();
    return std::any_of(keys.begin(), keys.end(),
                       [name](const ConfigurationKey& key) { return key.section == name; });
  }

  static std::string namesOfSections() {
    std::set<std::string> names;
    for (const ConfigurationKey& key : configurationKeys()) names.insert(key.section);
    return joined(names);
  }

  static std::string namesOfKeys(std::string_view section) {
    std::set<std::string> names;
    for (const ConfigurationKey& key : configurationKeys())
      if (key.section == section) names.insert(key.name);
    return joined(names);
  }

  static std::string joined(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& each : names) text += (text.empty() ? "" : ", ") + each;
    return text;
  }

  // As it may stand in the file, on one line.
  static std::string textOf(const toml::node& value) {
    if (value.is_table()) return "a table";
    if (value.is_array()) return "an array";
    std::ostringstream text;
    value.visit([&text](const auto& each) { text << each; });
    return shown(text.str());
  }

  static std::string shown(std::string_view text) {
    const std::string start = printable(text.substr(0, mostShown));
    return text.size() > mostShown ? start + "..." : start;
  }

  const std::string& _path;
  Configuration _configuration;
  std::multimap<unsigned, std::string> _problems;  // by line
};

}  // namespace

Configuration readConfigurationFile(const std::string& path) {
  return readConfigurationText(contentOfFile(path), path);
}

Configuration readConfigurationText(std::string_view text, const std::string& path) {
  return Reader(path).read(parseToml(text, path));
}

}  // namespace dch
