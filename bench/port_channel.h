// port_channel.h: how the processes of a benchmark talk to each other.
#ifndef BENCH_PORT_CHANNEL_H
#define BENCH_PORT_CHANNEL_H

#include <functional>
#include <optional>

#include "bench/worker.h"

// Starts `serve` in a process of its own; it is given a function to call with its port. Returns
// that port; throws when the process ends without one.
int startOnPort(std::optional<Worker>* process,
                const std::function<void(const std::function<void(int)>& tellPort)>& serve);

// Sends every byte through `descriptor`, or gets them; throws when the other end is gone.
void sendAll(int descriptor, const void* bytes, std::size_t size);
void receiveAll(int descriptor, void* bytes, std::size_t size);

#endif  // BENCH_PORT_CHANNEL_H
