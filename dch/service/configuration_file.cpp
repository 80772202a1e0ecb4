#include "dch/service/configuration_file.h"

#include <algorithm>
#include <set>

#include "dch/core/log.h"
#include "dch/service/configuration_error.h"
#include "dch/service/configuration_keys.h"
#include "dch/service/file_content.h"
#include "files/faults.h"

namespace dch {

namespace {

constexpr std::size_t mostShown = 60;  // characters of a wrong value

// Reads the sections one by one, and gathers all that is wrong.
class Reader {
 public:
  explicit Reader(const std::string& path) : _faults(path) {}

  Configuration read(std::string_view text) {
    try {
      const toml::table file = files::parseToml(text);
      for (const auto& [name, section] : file) readSection(name, section);
      if (!_faults.areThere()) checkHub(file);
    } catch (const files::NoToml& fault) {
      _faults.add(fault.line, printable(fault.reason));
    }
    if (_faults.areThere()) throw ConfigurationError(_faults.text());
    return std::move(_configuration);
  }

 private:
  void readSection(const toml::key& name, const toml::node& section) {
    const toml::table* const table = section.as_table();
    if (table == nullptr)
      return _faults.add(name.source(), shown(name.str()) + " has to be in a section, one of " +
                                            namesOfSections());
    if (!isSection(name.str()))
      return _faults.add(name.source(), "there is no section [" + shown(name.str()) +
                                            "]; there are " + namesOfSections());
    for (const auto& [key, value] : *table) readKey(name.str(), key, value);
  }

  void readKey(std::string_view section, const toml::key& name, const toml::node& value) {
    for (const ConfigurationKey& key : configurationKeys())
      if (key.section == section && key.name == name.str()) return readValue(key, value);
    _faults.add(name.source(), "there is no key " + shown(name.str()) + " in [" +
                                   std::string(section) + "]; there are " + namesOfKeys(section));
  }

  void readValue(const ConfigurationKey& key, const toml::node& value) {
    try {
      key.read(value, &_configuration);
    } catch (const files::WrongValue& wrong) {
      const std::string shownValue =
          wrong.isSecret ? "" : ", not " + shown(files::describeValue(wrong.value));
      _faults.add(wrong.value.source(), std::string(key.name) + " in [" + key.section +
                                            "] has to be " + wrong.whatItHasToBe + shownValue);
    }
  }

  // Who asks for the rows of other sites is to notice that none will come.
  void checkHub(const toml::table& file) {
    const LinkSettings& link = _configuration.link;
    if (link.storeRemote && link.servers.empty())
      _faults.add(file["link"]["store_remote"].node()->source(),
                  "store_remote in [link] needs servers in [link], from which the rows come");
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

  static std::string shown(std::string_view text) {
    const std::string start = printable(text.substr(0, mostShown));
    return text.size() > mostShown ? start + "..." : start;
  }

  files::Faults _faults;
  Configuration _configuration;
};

}  // namespace

Configuration readConfigurationFile(const std::string& path) {
  return readConfigurationText(contentOfFile(path), path);
}

Configuration readConfigurationText(std::string_view text, const std::string& path) {
  return Reader(path).read(text);
}

}  // namespace dch
