// transport_check.h: finds settings with which the library would end the process.
#ifndef TOOLS_COMMON_TRANSPORT_CHECK_H
#define TOOLS_COMMON_TRANSPORT_CHECK_H

namespace tools {

// To be called before the first request. Throws a Failure (EX_UNAVAILABLE) when ZORA_DCH_ADDR names
// an unknown host or ZORA_DCH_IPCTYPE asks for anything but sockets: the library ends the process
// without a word to its user then, or can only fail.
void checkTransport();

}  // namespace tools

#endif  // TOOLS_COMMON_TRANSPORT_CHECK_H
