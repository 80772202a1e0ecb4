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

// Makes the endpoint's datagram socket deaf to what was sent to it so far: throws away what lies in
// it, and gives up its port, so that what is still on its way arrives nowhere. The next message
// goes out from another port. Not for a socket to which rows are pushed. Keeps errno.
void forgetOldAnswers(const TRC1_Scope& trc1Scope, const ipcSock& endpoint);

// Whether a datagram of `length` bytes from `sender` comes from the endpoint's peer; traces it when
// not, because it is thrown away then.
bool isFromPeer(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, const sockaddr_in& sender,
                ZORA_Long length);

}  // namespace zordsock

#endif  // ZORDSOCK_STRICT_ANSWERS_H
