// catalogue.h: the texts that answer what consumers ask about applications.
#ifndef DCH_CORE_CATALOGUE_H
#define DCH_CORE_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/registry.h"
#include "dch/core/remote_providers.h"
#include "dch/core/text_map.h"
#include "suite/fields.h"
#include "zordsock/zordsock.h"

namespace dch {

// Longest text whose answer, a message of this one field, a client still reads.
constexpr std::size_t maxCatalogueTextBytes =
    std::size_t{MAX_READ_CHUNKS} * UDP_CHUNK_SIZE - ZOR0_LENGTH_WORD_SIZE - ZOR0_FIELD_HEADER_SIZE;

// Whom consumers are told of. An application that several have is told of once: as this server's
// own have registered it, with what only others have behind that, see merged_registration.h, and
// with the sources of all of them.
struct AllProviders {
  const Registry& own;
  const RemoteProviders& remote;
};

// Each answers lines that end in '\n', and nothing for an unknown application. A text that would be
// longer than `maxBytes` is cut at a line end, and its last line is "#truncated". They may throw
// std::bad_alloc.

// "name,key,type,groups separated by blanks,number of sources on line", sorted by name; of the one
// application when there is a name.
std::string applicationLines(const AllProviders& providers, std::optional<std::string_view> name,
                             std::size_t maxBytes = maxCatalogueTextBytes);

// "group,name,letter,size,help", in the order of the registration. Line ends in a help become
// blanks.
std::string attributeLines(const AllProviders& providers, std::string_view application,
                           std::size_t maxBytes = maxCatalogueTextBytes);

// The help text as it was registered, the first when there are several; it is shorter than any cut.
std::string helpText(const AllProviders& providers, std::string_view application);

// The texts that take long to make, each kept until what it tells may have changed: to make that of
// thousands of applications takes as long as hundreds of rows, and whoever asks can ask often. One
// thread.
class Catalogue {
 public:
  // What `providers` refers to outlives it.
  explicit Catalogue(const AllProviders& providers) : _providers(providers) {}

  // As the functions above, of all applications and of the attributes of one. They are valid until
  // the next call or change. Each throws std::bad_alloc.
  const std::string& allApplications();
  const std::string& attributes(std::string_view application);

  // At most some of the longest texts.
  std::size_t keptBytes() const { return _byteCount; }

 private:
  // The text of this key, which `make` makes when there is none.
  const std::string& kept(std::string&& key, const std::function<std::string()>& make);

  const AllProviders _providers;
  TextMap<std::string> _texts;
  std::size_t _byteCount = 0;      // of keys and texts
  std::uint64_t _ownRevision = 0;  // that they tell
  std::uint64_t _remoteRevision = 0;
};

}  // namespace dch

#endif  // DCH_CORE_CATALOGUE_H
