#include "dch/testkit/link_test.h"

#include <stdexcept>

#include "tests/support/wait_until.h"

namespace dch::testkit {

LinkSettings settingsFor(const std::optional<LinkUser>& user,
                         const std::optional<std::string>& tlsCa) {
  return {.site = "site1", .user = user, .tlsCa = tlsCa};
}

OutgoingRow rowOf(std::int64_t number) {
  const std::string text = std::to_string(number);
  return {.number = number,
          .subject = "zord.rows.site1.APPL.group" + std::to_string(number % 3),
          .id = "site1:" + text,
          .header = "header " + text,
          .message = "row " + text};
}

std::unique_ptr<RowStream> connectTo(const std::string& server, const LinkSettings& settings) {
  const auto end = std::chrono::steady_clock::now() + linkPatience;
  while (true) {
    try {
      return std::make_unique<RowStream>(settings, server);
    } catch (const LinkError&) {
      if (std::chrono::steady_clock::now() > end) throw;
    }
  }
}

std::string connectFault(const std::string& server, const std::string& expected,
                         const LinkSettings& settings) {
  std::string fault;
  const auto isExpected = [&] {
    try {
      const RowStream stream(settings, server);
      fault = "none";
    } catch (const LinkError& error) {
      fault = error.what();
      if (fault.starts_with(server + ": ")) fault.erase(0, server.size() + 2);
    }
    return fault == expected;
  };
  waitUntil(isExpected, linkPatience);
  return fault;
}

RowStream::Answer answerFrom(RowStream& stream) {
  const auto end = std::chrono::steady_clock::now() + linkPatience;
  while (std::chrono::steady_clock::now() < end)
    if (auto answer = stream.nextAnswer(std::chrono::milliseconds(100))) return *answer;
  throw std::runtime_error("no answer comes");
}

RowStream::Answer answerTo(RowStream& stream, const OutgoingRow& row) {
  if (stream.send(row) != RowStream::Sent::yes) throw std::runtime_error("the row is too large");
  return answerFrom(stream);
}

std::string lossOf(RowStream& stream) {
  const auto end = std::chrono::steady_clock::now() + linkPatience;
  try {
    while (std::chrono::steady_clock::now() < end)
      stream.nextAnswer(std::chrono::milliseconds(100));
  } catch (const LinkError& error) {
    return error.what();
  }
  return "it is not lost";
}

}  // namespace dch::testkit
