// port_channel.h: how a process that a benchmark started tells the port that it serves.
#ifndef BENCH_PORT_CHANNEL_H
#define BENCH_PORT_CHANNEL_H

#include <functional>
#include <optional>

#include "bench/child_process.h"

// Starts `serve` in a process of its own; it is given a function to call with its port. Returns
// that port; throws when the process ends without one.
int startOnPort(std::optional<ChildProcess>* process,
                const std::function<void(const std::function<void(int)>& tellPort)>& serve);

#endif  // BENCH_PORT_CHANNEL_H
