// web_request.h: what is asked for over HTTP.
#ifndef DCH_WEB_WEB_REQUEST_H
#define DCH_WEB_WEB_REQUEST_H

#include <optional>
#include <string>

namespace dch {

struct WebRequest {
  bool isRead = false;  // GET or HEAD
  std::string target;
  std::optional<std::string> host = {};  // none in an old request
  std::string authorization;
  std::string cookies;
  std::string accept;
  // What a browser says of the page for which it asks.
  std::string origin;
  std::string fetchSite;
  std::string fetchMode;
};

}  // namespace dch

#endif  // DCH_WEB_WEB_REQUEST_H
