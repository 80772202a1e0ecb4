// request_scope.h: what the exported functions have in common: a client of their own for one
// request, no exception that goes past them, and a thread that is cancelled nowhere but in a wait.
#ifndef ZORDCHCL_REQUEST_SCOPE_H
#define ZORDCHCL_REQUEST_SCOPE_H

#include <exception>
#include <memory>
#include <new>

#include "suite/text.h"
#include "zordchcl/DCHclient.h"

namespace zordchcl {

// Runs `request`, a call that takes no argument and returns a number; an exception becomes 1. All
// that the library throws is of the standard library. What unwinds a cancelled thread is not, and
// has to go on: nothing here is noexcept or catches everything.
template <class Request>
int guarded(Request request) {
  try {
    return static_cast<int>(request());
  } catch (const std::exception&) {
    return 1;
  }
}

// Runs `request` on a client made for it. Without memory for the client the result is that of
// `withoutClient`, which takes no argument.
template <class Request, class WithoutClient>
int withClient(Request request, WithoutClient withoutClient) {
  return guarded([&]() -> ZORA_Long {
    const std::unique_ptr<DCHclient> client(new (std::nothrow) DCHclient(0, 1));
    return client != nullptr ? request(*client) : withoutClient();
  });
}

// The same with the result 1.
template <class Request>
int withClient(Request request) {
  return withClient(request, [] { return 1; });
}

// The same for the functions whose work buffer crosses the call: their client is freed only while
// its address is still good, so that a caller's overrun does not turn into a second fault here.
// `beforeDelete` is called with a client that is about to be freed.
template <class Request, class BeforeDelete>
int withCheckedClient(const TRC1_Scope& trc1Scope, Request request, BeforeDelete beforeDelete) {
  return guarded([&]() -> ZORA_Long {
    std::unique_ptr<DCHclient> client(new (std::nothrow) DCHclient(0, 1));
    if (client == nullptr) return 1;
    const ZORA_Long result = request(*client);
    if (ZOR0_IsValidPointer(client.get()) != 0) {
      beforeDelete(*client);
    } else {
      const DCHclient* const abandoned = client.release();
      TRC1_ERROR("Error: client object @%p is no longer valid", TRC1_Pointer(abandoned));
    }
    return result;
  });
}

template <class Request>
int withCheckedClient(const TRC1_Scope& trc1Scope, Request request) {
  return withCheckedClient(trc1Scope, request, [](const DCHclient&) {});
}

// What the data consumers' functions say without a client; the result is the caller's.
inline ZORA_Long reportNoClient(const TRC1_Scope& trc1Scope, ZORA_Long result) {
  TRC1_ERROR("Error: allocating DCHclient.\n");
  return result;
}

}  // namespace zordchcl

#endif  // ZORDCHCL_REQUEST_SCOPE_H
