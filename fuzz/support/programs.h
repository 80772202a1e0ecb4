// programs.h: programs that only seem to run: the calls that start, ask for and end a program lead
// here.
#ifndef FUZZ_SUPPORT_PROGRAMS_H
#define FUZZ_SUPPORT_PROGRAMS_H

namespace fuzz {

// This one cannot be started.
inline constexpr char brokenProgram[] = "/no/such/program";

// Begins anew, so that an input always does the same.
void forgetPrograms();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_PROGRAMS_H
