// input_watch.h: waits for input, and notices that the user ends the tool.
#ifndef TOOLS_INPUT_WATCH_H
#define TOOLS_INPUT_WATCH_H

#include <atomic>
#include <exception>
#include <optional>

#include "tools/common/control_thread.h"

namespace tools {

// The user ended the tool with this signal.
class StoppedBySignal : public std::exception {
 public:
  explicit StoppedBySignal(int signal) : _signal(signal) {}
  int signal() const { return _signal; }
  const char* what() const noexcept override { return "stopped by a signal"; }

 private:
  int _signal;
};

class InputWatch {
 public:
  InputWatch();
  ~InputWatch();
  InputWatch(const InputWatch&) = delete;
  InputWatch& operator=(const InputWatch&) = delete;

  // From here on a signal no longer ends the process, but the next wait or check.
  void takeSignals();

  // Waits until the descriptor can be read, for at most `limitMilliseconds` (-1: no limit). Returns
  // whether it can. Throws StoppedBySignal, whether or not there is input too.
  bool wait(int descriptor, int limitMilliseconds);

  // Throws StoppedBySignal when a signal has come.
  void checkSignals() const;

 private:
  int _wakeDescriptor;  // readable once a signal has come
  std::atomic<int> _signal{0};
  std::optional<ControlThread> _controlThread;
};

}  // namespace tools

#endif  // TOOLS_INPUT_WATCH_H
