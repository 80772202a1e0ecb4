#include "dch/testkit/documented_site.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/store_test.h"
#include "zordchcl/status.h"

namespace dch::testkit {

DocumentedSite::DocumentedSite(const DocumentedNats& nats, int port, const std::string& site,
                               const std::string& credentials, Keeps keeps) {
  const std::string place = _folder.path() + "/";
  std::string text = documented("file: zordchd.toml");
  text = replaced(text, R"(["tls://host1:4222", "tls://host2:4222", "tls://host3:4222"])",
                  "[\"tls://127.0.0.1:" + std::to_string(port) + "\"]");
  text = replaced(text, "\"west\"", '"' + site + '"');
  text = replaced(text, "/etc/zord410/ca.pem", nats.authority());
  if (credentials.empty()) {
    text = replaced(text, "credentials =", "# credentials =");
  } else {
    text = replaced(text, "/etc/zord410/", place);
    std::ofstream(place + "credentials") << credentials << '\n';
    std::filesystem::permissions(place + "credentials", std::filesystem::perms::owner_read);
  }
  if (keeps == Keeps::rowsOfAllSites) text += "store_remote = true\n";
  std::ofstream(place + "zordchd.toml") << text;
  _arguments = {"--config", place + "zordchd.toml", "--store", place + "state.db"};
}

int DocumentedSite::end() {
  const int status = _process->stop(SIGTERM);
  _process.reset();
  return status;
}

void DocumentedSite::send(int count) {
  const TcpClient client(_process->port());
  ASSERT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  const ZORA_Long handle = handleOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
  for (const int end = _sent + count; _sent < end; ++_sent)
    ASSERT_EQ(statusOf(client.ask(dataMessage(handle, {{"load1", 'D', std::to_string(_sent)}}))),
              DCH_STATUS_OK);
}

std::string DocumentedSite::kept() const {
  return query(_arguments.back(),
               "SELECT site, count(*), count(DISTINCT load1) FROM \"HOSTMON.load\" GROUP BY site "
               "ORDER BY site");
}

}  // namespace dch::testkit
