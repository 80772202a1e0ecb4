// provider_site.h: a server whose providers come and go, and what it tells other sites of them.
#ifndef FUZZ_SUPPORT_PROVIDER_SITE_H
#define FUZZ_SUPPORT_PROVIDER_SITE_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "dch/core/epoch.h"
#include "dch/core/provider_fact.h"
#include "dch/link/known_message.h"
#include "dch/link/own_providers.h"
#include "dch/link/shared_registrations.h"
#include "dch/link/site_changes.h"

namespace fuzz {

// What is there: a line for each key.
using ProviderLines = std::map<std::string, std::string>;

class ProviderSite {
 public:
  ProviderSite(std::string name, const dch::Epoch& run) : _name(std::move(name)), _run(run) {}

  const std::string& name() const { return _name; }
  const dch::Epoch& run() const { return _run; }
  // Whether there was a change.
  bool knowsItself() const { return _own.revision() > 0; }
  const ProviderLines& lines() const { return _lines; }

  // Something that the choice names comes, goes or becomes another. With the highest bit, and at
  // first, it is told all that it has, else the change alone.
  void change(unsigned choice);

  // tellsMuch: it is too much to be told at once.
  dch::SiteChanges speak(bool tellsMuch);

  struct Reply {
    dch::KnownHeader header;
    std::string text;
  };
  // Of so many lines at most; nothing when it has said nothing yet.
  std::optional<Reply> answer(const std::string& key, std::size_t most) const;

 private:
  dch::ProviderFact factOf(const std::string& line);
  void tellItselfAll();

  std::string _name;
  dch::Epoch _run;
  ProviderLines _lines;
  dch::SharedRegistrations _registrations;
  dch::OwnProviders _own;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_PROVIDER_SITE_H
