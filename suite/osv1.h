// osv1.h: base services of the suite, the operating system's side.
#ifndef SUITE_OSV1_H
#define SUITE_OSV1_H

// The value of an environment variable, or null when it is not set. `reserved` is 0. The text
// belongs to the environment: a later change of the environment may end its life.
const char* OSV1_GetEnv(const char* name, int reserved);

// Sleeps for `seconds` whole seconds; a signal does not shorten it. 0 or less returns at once.
void OSV1_Sleep(int seconds);

// Ends the process with exit status 1 after flushing standard error and standard output: for a
// condition that a library function cannot come back from. Sleeps `pauseSeconds` in between, so
// that a supervisor that restarts the process at once does not spin.
[[noreturn]] void OSV1_EndProcess(int pauseSeconds);

#endif  // SUITE_OSV1_H
