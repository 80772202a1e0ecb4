// nats_server.h: a nats-server on a port that the system gives.
#ifndef BENCH_NATS_SERVER_H
#define BENCH_NATS_SERVER_H

#include <string>

#include "tests/support/process.h"

// It goes with the object.
class NatsServer {
 public:
  // With these arguments besides.
  explicit NatsServer(const Process::Arguments& arguments = {});

  const std::string& url() const { return _url; }

 private:
  Process _process;
  std::string _url;
};

#endif  // BENCH_NATS_SERVER_H
