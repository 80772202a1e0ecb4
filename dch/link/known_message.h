// known_message.h: how a site is asked for all that it says of its providers, and how it answers.
//
// It is asked on zord.known.SITE, piece by piece; nobody keeps anything between two questions.
#ifndef DCH_LINK_KNOWN_MESSAGE_H
#define DCH_LINK_KNOWN_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"

namespace dch {

std::string knownSubject(std::string_view site);

// The key of a line, see provider_line.h, takes so many bytes at most.
inline constexpr std::size_t longestProviderKey = 256;

// "1 KEY": the version of this form; what comes behind the line of that key is asked for, with an
// empty one all.
std::string knownQuestion(std::string_view key);

// The key, which may be that of no line. Takes any bytes. Nothing unless knownQuestion wrote them,
// for a key that is no longer than one may be.
std::optional<std::string> parseKnownQuestion(std::string_view text);

// What an answer says of itself, in its header Zord-Known.
struct KnownHeader {
  Epoch run;                   // of the server that answers
  std::uint64_t revision = 0;  // of what it says, as it was when it answered; never 0
  bool isAll = false;          // nothing comes behind the lines of this answer

  friend bool operator==(const KnownHeader&, const KnownHeader&) = default;
};

inline constexpr char knownHeaderName[] = "Zord-Known";

// "1 RUN REVISION more", or "all" in place of "more": the version of this form.
std::string knownHeaderText(const KnownHeader& header);

// Takes any bytes. Nothing unless knownHeaderText wrote them.
std::optional<KnownHeader> parseKnownHeader(std::string_view text);

}  // namespace dch

#endif  // DCH_LINK_KNOWN_MESSAGE_H
