// failing_server_calls.h: counts the receive loop's system calls and makes one of them fail. For
// tests that WRAP select, listen and accept4 and have failing_server_calls.cpp among their sources.
#ifndef TESTS_SUPPORT_FAILING_SERVER_CALLS_H
#define TESTS_SUPPORT_FAILING_SERVER_CALLS_H

enum class ServerCall { select, listen, accept };

// Starts to count calls anew; none fails. Calls that are made leave errno at 0 when they succeed,
// so that the trace, which shows it even then, is the same every time.
void countServerCalls();

// The `number`th `call` of those counted answers -1 with errno `systemError` without being made.
// One for each kind of call.
void failServerCall(ServerCall call, int number, int systemError);

// The calls counted, those included that are still waiting.
int serverCallsMade(ServerCall call);

// Waits up to twenty seconds for that many calls.
bool waitForServerCalls(ServerCall call, int number);

#endif  // TESTS_SUPPORT_FAILING_SERVER_CALLS_H
