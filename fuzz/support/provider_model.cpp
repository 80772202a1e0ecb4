#include "fuzz/support/provider_model.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "dch/core/remote_application.h"

namespace fuzz {

namespace {

// What is registered as this application: this server's own, then the others in their order.
std::vector<const RegistrationModel*> registrationsOf(const ProviderEntries& entries,
                                                      const std::string& name) {
  std::map<std::string, const RegistrationModel*> others;
  std::vector<const RegistrationModel*> all;
  for (const auto& [key, entry] : entries) {
    if (key.application != name || key.isSource()) continue;
    if (key.site.empty())
      all.push_back(&*entry.registration);
    else
      others.emplace(entry.registration->text(), &*entry.registration);
  }
  std::size_t count = 0;
  for (const auto& [text, variant] : others)
    if (count++ < dch::RemoteApplication::mostToMerge) all.push_back(variant);
  return all;
}

// Sources count where the application is registered: here, or at any other site.
std::size_t sourcesOf(const ProviderEntries& entries, const std::string& name) {
  bool isOwn = false, isRemote = false;
  std::size_t own = 0, remote = 0;
  for (const auto& [key, entry] : entries) {
    if (key.application != name) continue;
    if (key.isSource())
      ++(key.site.empty() ? own : remote);
    else
      (key.site.empty() ? isOwn : isRemote) = true;
  }
  return (isOwn ? own : 0) + (isRemote ? remote : 0);
}

}  // namespace

RegistrationModel::RegistrationModel(const std::string& applicationIs, unsigned number)
    : application(applicationIs) {
  key = std::string("K") + static_cast<char>('0' + number % 3) + 'Y';
  type = number & 0x20 ? "SOCK" : "NODP";
  if (number & 0x40) help = "help " + std::to_string(number);
  for (unsigned i = 0; i < 4; ++i) {
    // Their order is different in different ones.
    const unsigned group = (i + number) % 4;
    if (i == 0 || number >> group & 1) addGroup(group, number);
  }
}

void RegistrationModel::addGroup(unsigned group, unsigned number) {
  const std::string name = "g" + std::to_string(group);
  groups.push_back({name, {}});
  for (unsigned i = 0; i < 3; ++i)
    if (i == group % 3 || number >> (i + 2) & 1)
      groups.back().second.push_back(
          {"a" + std::to_string(i), name + ",a" + std::to_string(i) + ",D," +
                                        std::to_string(number / 8 + 1) + ",h" +
                                        std::to_string(number) + '\n'});
}

std::string RegistrationModel::text() const {
  std::string text = "appl:" + application + ',' + key + ";type:" + type + ';';
  if (!help.empty()) text += "help:" + help + ';';
  for (const auto& [name, attributes] : groups) {
    text += "group:" + name + ';';
    for (const auto& [attribute, line] : attributes)
      text += "attr:" + line.substr(name.size() + 1, line.size() - name.size() - 2) + ';';
  }
  return text;
}

ProviderTexts textsOf(const ProviderEntries& entries, const std::string& name) {
  const std::vector<const RegistrationModel*> all = registrationsOf(entries, name);
  if (all.empty()) return {};
  std::vector<std::pair<std::string, std::string>> groups;  // with their attributes' lines
  std::set<std::pair<std::string, std::string>> attributesThere;
  std::string help;
  for (const RegistrationModel* variant : all) {
    if (help.empty()) help = variant->help;
    for (const auto& [group, attributes] : variant->groups) {
      auto known = std::find_if(groups.begin(), groups.end(),
                                [&name = group](const auto& each) { return each.first == name; });
      if (known == groups.end()) known = groups.insert(known, {group, ""});
      for (const auto& [attribute, line] : attributes)
        if (attributesThere.insert({group, attribute}).second) known->second += line;
    }
  }
  ProviderTexts texts{name + ',' + all[0]->key + ',' + all[0]->type, "", help};
  char separator = ',';
  for (const auto& [group, lines] : groups) {
    texts.line += separator + group;
    texts.attributes += lines;
    separator = ' ';
  }
  texts.line += ',' + std::to_string(sourcesOf(entries, name)) + '\n';
  return texts;
}

}  // namespace fuzz
