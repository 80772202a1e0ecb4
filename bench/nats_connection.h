// nats_connection.h: a client's connection to a nats-server.
#ifndef BENCH_NATS_CONNECTION_H
#define BENCH_NATS_CONNECTION_H

#include <nats/nats.h>

#include <string>

// Throws std::runtime_error with what went wrong.
void require(natsStatus status);

// Sends every message at once. It lasts as long as the process.
natsConnection* openConnection(const std::string& url);

#endif  // BENCH_NATS_CONNECTION_H
