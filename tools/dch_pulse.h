// dch_pulse.h: whether the DCH is there.
#ifndef TOOLS_DCH_PULSE_H
#define TOOLS_DCH_PULSE_H

#include "zordsock/zordsock.h"

namespace tools {

// Asks a question that costs the DCH nothing, on a socket of its own, and never waits unless told.
// One thread at a time.
class DchPulse {
 public:
  // Throws a Failure (EX_UNAVAILABLE) when there is no socket for it.
  DchPulse();

  // Sends the question; answers to earlier ones count no more.
  void ask();

  // Whether the answer has come, within so many milliseconds.
  bool answered(int milliseconds = 0);

 private:
  ipcSock _socket;
};

}  // namespace tools

#endif  // TOOLS_DCH_PULSE_H
