// The real program and the server that it is linked with are killed, held up and cut off from each
// other again and again while many send: all that is kept is in the stream, under its own name.
// ZORD410_LINK_DEATHS sets how often, ZORD410_SEED when.
#include <gtest/gtest.h>
#include <signal.h>

#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "dch/link/row_header.h"
#include "dch/testkit/dying_server_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/stream_reader.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/temporary_files.h"
#include "tests/support/text_count.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

class ZordchdLinkDeathTest : public DyingServerTest {
 protected:
  // What becomes of the link meanwhile. Its server's port may become that of another test's server,
  // so the gate leads nowhere when that is gone.
  void harmLink() {
    switch (_random() % 4) {
      case 0:
        return _gate.hold();
      case 1:
        return _gate.cut();
      case 2:
        _gate.cut();
        _nats.kill();
        return;
      default:
        return;
    }
  }
  void mendLink() {
    _gate.cut();
    _nats.restart();
    _gate.leadTo(_nats.port());
    _gate.pass();
  }

  void sleepUpTo(std::chrono::milliseconds longest) {
    std::this_thread::sleep_for(longest * (_random() % 1'000) / 1'000);
  }

  // Of the newest report, whole; empty when there is none.
  std::string changesBehind() const {
    const std::string reports = _server->standardError();
    const std::string name = "\n  link_changes_behind ";
    const std::size_t end = reports.rfind('\n');
    if (end == 0 || end == std::string::npos) return {};
    const std::size_t at = reports.rfind(name, end - 1);
    if (at == std::string::npos) return {};
    const std::size_t first = at + name.size();
    return reports.substr(first, reports.find('\n', first) - first);
  }

  // There may be very much left: it has a minute for each step.
  bool isAllPublished() {
    std::string behind;
    while (behind != "0") {
      const auto isAnother = [&, before = behind] {
        kill(_server->processId(), SIGUSR1);
        return (behind = changesBehind()) != before;
      };
      if (!waitUntil(isAnother, std::chrono::seconds(60))) return false;
    }
    return true;
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  NatsServer _nats;
  TcpGate _gate{_nats.port()};
  const TemporaryFile _configuration{"[link]\nservers = ['" + _gate.natsUrl() +
                                     "']\nsite = 'west'\n"};
};

struct NamedRow {
  std::string epoch;
  std::string message;
  bool operator==(const NamedRow&) const = default;
};
using NamedRows = std::map<std::int64_t, NamedRow>;

std::string hexadecimal(const std::string& bytes) {
  std::ostringstream text;
  for (const unsigned char each : bytes)
    text << "0123456789ABCDEF"[each >> 4] << "0123456789ABCDEF"[each & 15];
  return text.str();
}

NamedRows rowsInFile(const std::string& path) {
  NamedRows rows;
  for (const std::string& table : rowTables(path)) {
    std::istringstream lines(query(path,
                                   "SELECT number, (SELECT lower(hex(epoch)) FROM epochs WHERE "
                                   "first_position <= number ORDER BY first_position DESC LIMIT "
                                   "1), hex(message) FROM " +
                                       table));
    std::string number, epoch, message;
    while (std::getline(lines, number, '|') && std::getline(lines, epoch, '|') &&
           std::getline(lines, message))
      rows[std::stoll(number)] = {epoch, message};
  }
  return rows;
}

// Those that are there twice are the same.
NamedRows rowsInStream(const std::vector<StreamedRow>& streamed) {
  NamedRows rows;
  for (const StreamedRow& each : streamed) {
    const RowHeader header = parseRowHeader(each.header).value();
    const NamedRow row{epochText(header.name.epoch), hexadecimal(each.message)};
    const auto [known, isNew] = rows.emplace(header.name.number, row);
    EXPECT_TRUE(isNew || known->second == row) << header.name.number;
  }
  return rows;
}

TEST_F(ZordchdLinkDeathTest, EachRowThatIsKeptIsInTheStream) {
  const unsigned deaths = numberFrom("ZORD410_LINK_DEATHS", 6);
  const ServerProcess::Arguments arguments{"--config", _configuration.path()};
  begin(_path, arguments);
  startSenders();
  for (unsigned death = 1; death <= deaths; ++death) {
    sleepUpTo(std::chrono::milliseconds(500));
    harmLink();
    // The position up to which all is published is kept every second.
    sleepUpTo(std::chrono::milliseconds(2'000));
    if (death % 2 == 0) mendLink();
    sleepUpTo(std::chrono::milliseconds(500));
    die();
    begin(_path, arguments);
  }
  mendLink();
  EXPECT_TRUE(allSend());
  const std::uint64_t sent = stopSenders();
  EXPECT_TRUE(isAllPublished());
  const NamedRows kept = rowsInFile(_path);
  const std::vector<StreamedRow> streamed = readStream(_nats.url(), kept.size());
  EXPECT_GE(kept.size(), sent);
  EXPECT_EQ(rowsInStream(streamed), kept) << "seed " << _seed;
  std::cout << deaths << " deaths: " << kept.size() << " rows kept, " << streamed.size()
            << " messages in the stream\n";
}

}  // namespace
}  // namespace dch::testkit
