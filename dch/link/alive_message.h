// alive_message.h: what a server says of its site, so that the others know that it is there.
//
// Each site says it to all others on zord.alive.SITE, again and again.
#ifndef DCH_LINK_ALIVE_MESSAGE_H
#define DCH_LINK_ALIVE_MESSAGE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"

namespace dch {

struct AliveMessage {
  // newcomer: it has connected not long ago, and asks whether its name is free. aside: another
  // server has the name. stopping: its last one.
  enum class State { newcomer, here, aside, stopping };

  Epoch run;                           // of the server that says it
  std::uint64_t count = 0;             // rises with each one of a run
  std::chrono::milliseconds period{};  // not negative; until the next one, at most
  State state = State::here;
  std::optional<Epoch> hears = {};  // the run of another server that says to be this site
  // How far its store and its rows in the stream are; nothing without a file. Not negative.
  std::optional<std::int64_t> newest = {};
  std::optional<std::int64_t> published = {};
  // What it says of its providers leads from one revision of that to the next, which is as high
  // when it says no changes now. It says nothing of them yet: 0.
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  std::string version = {};  // of the program, longestVersion bytes at most
  // The lines that lead there, see provider_line.h, each with its '\n'; longestChanges bytes at
  // most. Some exactly when `to` is higher than `from`.
  std::string changes = {};

  friend bool operator==(const AliveMessage&, const AliveMessage&) = default;
};

inline constexpr std::size_t longestVersion = 64;
inline constexpr std::size_t longestChanges = std::size_t{64} * 1024;

// zord.alive.SITE; of all sites: "zord.alive.*".
std::string aliveSubject(std::string_view site);
// The site; nothing unless aliveSubject wrote it, of a name of 1 to longestSiteName bytes.
std::optional<std::string> parseAliveSubject(std::string_view subject);

// "1 RUN COUNT PERIOD STATE HEARS NEWEST PUBLISHED FROM TO VERSION": the version of this form;
// milliseconds; new, here, aside or stopping; "-" for nothing; the program's version with all but
// A-Z a-z 0-9 . - _ as %XX, "%" when it is empty. Behind it, where there are some, '\n' and the
// changes.
std::string aliveText(const AliveMessage& message);

// Takes any bytes. Nothing unless aliveText wrote them, of a message as it is to be; what the
// changes say is not looked at.
std::optional<AliveMessage> parseAlive(std::string_view text);

}  // namespace dch

#endif  // DCH_LINK_ALIVE_MESSAGE_H
