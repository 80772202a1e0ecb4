// jet_stream.h: what an administrator does to the stream of rows.
#ifndef DCH_TESTKIT_JET_STREAM_H
#define DCH_TESTKIT_JET_STREAM_H

#include <string>

namespace dch::testkit {

// Asks JetStream, at a server with this address, for "INFO", "CREATE", "UPDATE", "PURGE" or
// "DELETE" of the stream, until it does it, and returns its answer (JSON). `settings` (JSON) are
// those in which the stream is to differ from one that takes rows, its name among them. Throws
// std::runtime_error when it is not done in time.
std::string askJetStream(const std::string& url, const std::string& question,
                         const std::string& settings = "{}");

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_JET_STREAM_H
