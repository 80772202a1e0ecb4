#include <hiredis/hiredis.h>

#include <stdexcept>

#include "bench/storing_peers.h"
#include "dch/testkit/clients.h"

RedisPeer::RedisPeer()
    : _port(dch::testkit::portToLeave()),
      _server("redis-server",
              {"--bind", "127.0.0.1", "--port", std::to_string(_port), "--dir", _folder.path(),
               "--save", "", "--appendonly", "yes", "--appendfsync", "everysec"}) {
  _server.waitForOutput("Ready to accept connections");
}

Exchange RedisPeer::connect() const {
  redisContext* const connection = redisConnect("127.0.0.1", _port);
  if (connection == nullptr || connection->err != 0)
    throw std::runtime_error("no connection to redis-server");
  return {[] { delete[] buildRow(); },
          [connection] {
            constexpr char row[requestSize] = {};
            auto* const reply = static_cast<redisReply*>(
                redisCommand(connection, "XADD rows * row %b", row, sizeof row));
            const bool isKept = reply != nullptr && reply->type == REDIS_REPLY_STRING;
            freeReplyObject(reply);
            return isKept;
          }};
}
