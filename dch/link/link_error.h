// link_error.h: why a NATS server cannot be used now.
#ifndef DCH_LINK_LINK_ERROR_H
#define DCH_LINK_LINK_ERROR_H

#include <stdexcept>

namespace dch {

// what() is a sentence for the operator, which begins with the server it is about.
class LinkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace dch

#endif  // DCH_LINK_LINK_ERROR_H
