#include <stdexcept>

#include "bench/nats_connection.h"
#include "bench/storing_peers.h"

namespace {

constexpr char subject[] = "rows";

jsCtx* openStreams(const std::string& url) {
  jsCtx* streams = nullptr;
  require(natsConnection_JetStream(&streams, openConnection(url), nullptr));
  return streams;
}

}  // namespace

JetStreamPeer::JetStreamPeer() : _server({"--jetstream", "--store_dir", _folder.path()}) {
  jsStreamConfig stream;
  require(jsStreamConfig_Init(&stream));
  const char* subjects[] = {subject};
  stream.Name = "ROWS";
  stream.Subjects = subjects;
  stream.SubjectsLen = 1;
  stream.Storage = js_FileStorage;
  require(js_AddStream(nullptr, openStreams(_server.url()), &stream, nullptr, nullptr));
}

Exchange JetStreamPeer::connect() const {
  jsCtx* const streams = openStreams(_server.url());
  return {[] { delete[] buildRow(); },
          [streams] {
            constexpr char row[requestSize] = {};
            jsPubAck* kept = nullptr;
            require(js_Publish(&kept, streams, subject, row, requestSize, nullptr, nullptr));
            jsPubAck_Destroy(kept);
            return true;
          }};
}
