// cores.h: which core a side of a comparison runs on. Left to itself the system now runs both ends
// of a round trip on one core, and now on two; where an idle core has to be woken for every message
// that is ten times slower, so a comparison says which of the two it is.
#ifndef BENCH_CORES_H
#define BENCH_CORES_H

// Cores are counted among those that the process may use at its start.

// The core of those who answer, and of a client beside them.
constexpr int answeringCore = 1;
// The core of a client apart from them.
constexpr int askingCore = 0;

// Keeps this process, and those it starts from now on, on that core. Throws where there is none.
void runOnCore(int number);

// The same for the calling thread while it lives; then it may use the cores of the start again.
class OnCore {
 public:
  explicit OnCore(int number) { runOnCore(number); }
  ~OnCore();
  OnCore(const OnCore&) = delete;
  OnCore& operator=(const OnCore&) = delete;
};

#endif  // BENCH_CORES_H
