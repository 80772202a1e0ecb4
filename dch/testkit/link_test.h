// link_test.h: sends rows to a stream, and waits for what comes of it.
#ifndef DCH_TESTKIT_LINK_TEST_H
#define DCH_TESTKIT_LINK_TEST_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dch/link/row_stream.h"

namespace dch::testkit {

// How long is waited for what has to come.
inline constexpr std::chrono::seconds linkPatience{60};

LinkSettings settingsFor(const std::optional<LinkUser>& user = {},
                         const std::optional<std::string>& tlsCa = {});

// A row of the site "site1", which the number makes unlike all others.
OutgoingRow rowOf(std::int64_t number);

// Tries again while a server starts or is slow. Throws the last error when it cannot be had in
// time.
std::unique_ptr<RowStream> connectTo(const std::string& server,
                                     const LinkSettings& settings = settingsFor());

// Why there can be no stream, without the server's name: waits for that fault, as a slow machine
// may bring others, and returns the last one.
std::string connectFault(const std::string& server, const std::string& expected,
                         const LinkSettings& settings = settingsFor());

// Throws std::runtime_error when none comes in time.
RowStream::Answer answerFrom(RowStream& stream);
RowStream::Answer answerTo(RowStream& stream, const OutgoingRow& row);

// Waits until the connection is lost, and returns what is said of it.
std::string lossOf(RowStream& stream);

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LINK_TEST_H
