// provider_model.h: what sites have of providers, and what consumers are told of it, in a simple
// way.
#ifndef FUZZ_SUPPORT_PROVIDER_MODEL_H
#define FUZZ_SUPPORT_PROVIDER_MODEL_H

#include <compare>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

// One of some registrations of an application, of which it is known what is in it.
struct RegistrationModel {
  RegistrationModel(const std::string& applicationIs, unsigned number);

  // In its shortest form.
  std::string text() const;

  std::string application, key, type, help;
  // Each with its attributes: their names and lines.
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> groups;

 private:
  void addGroup(unsigned group, unsigned number);
};

// A registration or a source. Those of this server have a site without a name.
struct ProviderKey {
  auto operator<=>(const ProviderKey&) const = default;
  bool isSource() const { return !group.empty(); }

  std::string site, application, group, source;
};

struct ProviderEntry {
  std::optional<RegistrationModel> registration;  // none of a source
  bool isTold = false;                            // since a copy has begun
  bool isGone = false;                            // it may be there until all is settled
};

using ProviderEntries = std::map<ProviderKey, ProviderEntry>;

// What consumers are told of an application.
struct ProviderTexts {
  std::string line, attributes, help;
};

ProviderTexts textsOf(const ProviderEntries& entries, const std::string& application);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_PROVIDER_MODEL_H
