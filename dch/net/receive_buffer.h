// receive_buffer.h: how much the system keeps for a socket that is not read at once.
#ifndef DCH_NET_RECEIVE_BUFFER_H
#define DCH_NET_RECEIVE_BUFFER_H

namespace dch {

// Makes room for some thousands of small datagrams in the buffer of `socket`, as far as the system
// lets this process: sources that all send on the full second would lose what does not fit. A
// buffer that is larger already stays so.
void enlargeReceiveBuffer(int socket);

}  // namespace dch

#endif  // DCH_NET_RECEIVE_BUFFER_H
