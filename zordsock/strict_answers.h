// strict_answers.h: what keeps an answer from being taken for that of another request. Messages
// carry no number, so all that tells one answer from another is where it comes from and which port
// it goes to.
#ifndef ZORDSOCK_STRICT_ANSWERS_H
#define ZORDSOCK_STRICT_ANSWERS_H

#include "zordsock/zordsock.h"

namespace zordsock {

// Whether answers to this endpoint's requests have to be its own: it has a pooled socket, and
// ZOR0_STRICT_ANSWERS asks for it.
bool isStrict(const ipcSock& endpoint);

// Puts a new socket in the place of a pooled one: what lies in that is thrown away, and what is
// still on its way arrives nowhere. The next message goes out from another port. Without a
// descriptor for the new one it empties the old one and gives up its port. Keeps errno.
void forgetOldAnswers(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, ZORA_Long descriptor);

// Whether a datagram of `length` bytes from `sender` comes from the endpoint's peer; traces it when
// not, because it is thrown away then.
bool isFromPeer(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, const sockaddr_in& sender,
                ZORA_Long length);

}  // namespace zordsock

#endif  // ZORDSOCK_STRICT_ANSWERS_H
