// access.h: who may read the page and what is behind it.
#ifndef DCH_WEB_ACCESS_H
#define DCH_WEB_ACCESS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dch {

// What the page sets to the token, with all bytes that a cookie may not have as % and two digits.
constexpr std::string_view tokenCookie = "zord410_token";

struct Access {
  std::vector<std::string> hosts;    // names under which it may be asked for, besides addresses
  std::optional<std::string> token;  // that has to be shown; nothing: everybody may read

  // Whether a request for this Host, with or without a port, is meant for this server. A page of
  // somebody else's that has its own name lead here is not to read what is here.
  bool allowsHost(std::string_view host) const;

  // Whether the header Authorization or the header Cookie shows the token. How long it takes says
  // nothing about the token but its length.
  bool allowsToken(std::string_view authorization, std::string_view cookies) const;

  // Whether they show one, whichever.
  static bool showsToken(std::string_view authorization, std::string_view cookies);

  bool operator==(const Access&) const = default;
};

}  // namespace dch

#endif  // DCH_WEB_ACCESS_H
