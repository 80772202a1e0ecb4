// names.h: from host names to addresses.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_NAMES_H
#define SUITE_NAMES_H

#include <netinet/in.h>

// Fills `address` with the IPv4 address of `name` and with `port` (host order). Dotted addresses
// and "localhost" need no resolver, and what was resolved is kept for 10 seconds. Returns 1, or 0
// when the name is null, empty or unknown.
int ZOR0_ConvertNameToAddr(const char* name, int port, sockaddr_in* address);

// The name under which this host reaches its own loopback interface: always "localhost".
const char* ZOR0_LocalHostNameString();

#endif  // SUITE_NAMES_H
