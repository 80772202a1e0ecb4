// web_error.h: a request that is not answered as it was meant to be.
#ifndef DCH_WEB_WEB_ERROR_H
#define DCH_WEB_WEB_ERROR_H

#include <stdexcept>
#include <string>

namespace dch {

// What it says is a sentence for whoever sent the request.
class WebError : public std::runtime_error {
 public:
  WebError(int status, const std::string& sentence)
      : std::runtime_error(sentence), _status(status) {}

  int status() const { return _status; }

 private:
  int _status;  // of HTTP
};

}  // namespace dch

#endif  // DCH_WEB_WEB_ERROR_H
