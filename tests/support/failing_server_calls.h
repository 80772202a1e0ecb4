// failing_server_calls.h: makes one of the receive loop's system calls fail. For tests that WRAP
// select, listen and accept4 and have failing_server_calls.cpp among their sources.
#ifndef TESTS_SUPPORT_FAILING_SERVER_CALLS_H
#define TESTS_SUPPORT_FAILING_SERVER_CALLS_H

enum class ServerCall { select, listen, accept };

// Starts to count calls anew. From now on the `number`th `call` (1 is the next one) answers -1 with
// errno `systemError` without being made. All others are made; they leave errno at 0 when they
// succeed, so that the trace, which shows it even then, is the same every time.
void failServerCall(ServerCall call, int number, int systemError);

// The calls since failServerCall, those included that are still waiting.
int serverCallsMade(ServerCall call);

#endif  // TESTS_SUPPORT_FAILING_SERVER_CALLS_H
