// What is made of a stream, and what is said when it cannot be used.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"

namespace dch::testkit {

namespace {

using nlohmann::json;

json settingsOfStream(const NatsServer& server) {
  return json::parse(askJetStream(server.url(), "INFO")).at("config");
}

// For a server whose users are `admin`, who may do all, and `link`, who may publish on these
// subjects; their passwords are "p".
NatsServer::Settings linkMayPublish(const std::string& subjects) {
  return {.more = R"(authorization { users: [
      { user: admin, password: p }
      { user: link, password: p, permissions { subscribe: "_INBOX.>", publish: [)" +
                  subjects + "] } } ] }"};
}

std::string adminUrl(const NatsServer& server) {
  return "nats://admin:p@127.0.0.1:" + std::to_string(server.port());
}

const LinkSettings asLink = settingsFor(LinkUser{"link", "p"});

void expectRefused(const std::string& otherSettings, const std::string& fault) {
  const NatsServer server;
  askJetStream(server.url(), "CREATE", otherSettings);
  const std::string expected =
      "the stream ZORD_ROWS has settings that rows cannot do with: " + fault;
  EXPECT_EQ(connectFault(server.url(), expected), expected);
}

void expectAccepted(const std::string& otherSettings) {
  const NatsServer server;
  askJetStream(server.url(), "CREATE", otherSettings);
  const auto stream = connectTo(server.url());
  EXPECT_EQ(answerTo(*stream, rowOf(1)).kind, RowStream::Answer::Kind::taken) << otherSettings;
}

}  // namespace

TEST(StreamSettingsTest, IsMadeWhenItIsMissing) {
  const NatsServer server;
  connectTo(server.url());
  const json settings = settingsOfStream(server);
  EXPECT_EQ(settings.at("subjects"), json({"zord.rows.>"}));
  EXPECT_EQ(settings.at("retention"), "limits");
  EXPECT_EQ(settings.at("storage"), "file");
  EXPECT_EQ(settings.at("num_replicas"), 1);
  EXPECT_EQ(settings.at("discard"), "old");
  EXPECT_EQ(settings.at("max_age"), 7 * 24 * 3'600 * 1'000'000'000L);
  EXPECT_EQ(settings.at("duplicate_window"), 30'000'000'000);
  for (const char* const limit : {"max_msgs", "max_bytes", "max_msg_size", "max_consumers"})
    EXPECT_EQ(settings.at(limit), -1) << limit;
  EXPECT_EQ(settings.at("deny_delete"), true);
  EXPECT_EQ(settings.at("deny_purge"), true);
}

TEST(StreamSettingsTest, StaysAsItIs) {
  const NatsServer server;
  askJetStream(server.url(), "CREATE", R"({"max_age": 3600000000000})");
  const json before = settingsOfStream(server);
  connectTo(server.url());
  connectTo(server.url());
  EXPECT_EQ(settingsOfStream(server), before);
}

TEST(StreamSettingsTest, OthersThatDoNoHarmAreAccepted) {
  expectAccepted(R"({"subjects": ["zord.>"]})");
  expectAccepted(R"({"subjects": ["other.thing", "zord.rows.*.*.*"]})");
  expectAccepted(R"({"subjects": ["*.rows.*.>"]})");
  expectAccepted(R"({"max_bytes": 100000000, "discard": "new", "max_msg_size": 1048576})");
}

TEST(StreamSettingsTest, OthersBySubjects) {
  for (const std::string subjects :
       {"zord.rows.site1.>", "zord.rows.*.*", "zord.rows.*.*.*.*", "zord.rows", "zord.events.>"})
    expectRefused(R"({"subjects": [")" + subjects + R"("]})",
                  "subjects is [\"" + subjects + "\"], has to be \"zord.rows.>\"");
}

TEST(StreamSettingsTest, OthersByWhichRowsWouldBeLost) {
  expectRefused(R"({"retention": "interest"})", R"(retention is "interest", has to be "limits")");
  expectRefused(R"({"storage": "memory"})", R"(storage is "memory", has to be "file")");
  expectRefused(R"({"max_msgs_per_subject": 5})", "max_msgs_per_subject is 5, has to be -1");
  expectRefused(R"({"max_msg_size": 1000})",
                "max_msg_size is 1000, has to be -1, or at least 1048576");
  expectRefused(R"({"no_ack": true})", "no_ack is true, has to be false");
  expectRefused(R"({"allow_rollup_hdrs": true, "deny_purge": false})",
                "allow_rollup_hdrs is true, has to be false");
}

TEST(StreamSettingsTest, EachFaultIsNamed) {
  expectRefused(R"({"storage": "memory", "no_ack": true})",
                R"(storage is "memory", has to be "file"; no_ack is true, has to be false)");
}

TEST(StreamSettingsTest, ASealedOne) {
  const NatsServer server;
  connectTo(server.url());
  askJetStream(server.url(), "UPDATE", R"({"sealed": true})");
  const std::string expected =
      "the stream ZORD_ROWS has settings that rows cannot do with: sealed is true, has to be false";
  EXPECT_EQ(connectFault(server.url(), expected), expected);
}

TEST(StreamSettingsTest, AMirror) {
  const NatsServer server;
  askJetStream(server.url(), "CREATE", R"({"name": "OTHER", "subjects": ["other.>"]})");
  askJetStream(server.url(), "CREATE", R"({"subjects": null, "mirror": {"name": "OTHER"}})");
  const std::string expected =
      "the stream ZORD_ROWS has settings that rows cannot do with: subjects is null, has to be "
      "\"zord.rows.>\"; mirror is {\"name\":\"OTHER\"}, has to be nothing";
  EXPECT_EQ(connectFault(server.url(), expected), expected);
}

TEST(StreamSettingsTest, AnotherStreamHasTheSubjects) {
  const NatsServer server;
  askJetStream(server.url(), "CREATE", R"({"name": "OTHER"})");
  const std::string expected =
      "the stream ZORD_ROWS is not to be had: subjects overlap with an existing stream";
  EXPECT_EQ(connectFault(server.url(), expected), expected);
}

TEST(StreamSettingsTest, JetStreamIsNotEnabled) {
  const NatsServer server({.hasJetStream = false});
  const std::string expected = "JetStream, which is to keep the rows, is not enabled";
  EXPECT_EQ(connectFault(server.url(), expected), expected);
}

TEST(StreamSettingsTest, JetStreamIsNotEnabledForTheAccount) {
  const NatsServer server({.more = R"(accounts {
      A { users: [ { user: link, password: p } ] }
      B { jetstream: enabled, users: [ { user: other, password: p } ] } })"});
  const std::string expected =
      "the stream ZORD_ROWS is not to be had: JetStream not enabled for account";
  EXPECT_EQ(connectFault(server.url(), expected, asLink), expected);
}

TEST(StreamSettingsTest, IsMissingAndMayNotBeMade) {
  const NatsServer server(
      linkMayPublish(R"("zord.rows.site1.>", "$JS.API.STREAM.INFO.ZORD_ROWS")"));
  const std::string expected =
      "there is no stream ZORD_ROWS, and this user may not make it: somebody who may has to, for "
      "the subjects zord.rows.>";
  EXPECT_EQ(connectFault(server.url(), expected, asLink), expected);

  askJetStream(adminUrl(server), "CREATE");
  const auto stream = connectTo(server.url(), asLink);
  EXPECT_EQ(answerTo(*stream, rowOf(1)).kind, RowStream::Answer::Kind::taken);
}

TEST(StreamSettingsTest, MayNotBeAskedFor) {
  const NatsServer server(linkMayPublish(R"("zord.rows.site1.>")"));
  const std::string expected =
      "this user may not do what is needed: Permissions Violation for Publish to "
      "\"$JS.API.STREAM.INFO.ZORD_ROWS\"";
  EXPECT_EQ(connectFault(server.url(), expected, asLink), expected);
}

TEST(StreamSettingsTest, RowsMayNotBePublished) {
  const NatsServer server(linkMayPublish(R"("zord.rows.site2.>", "$JS.API.STREAM.*.ZORD_ROWS")"));
  const auto stream = connectTo(server.url(), asLink);
  stream->send(rowOf(3));
  EXPECT_EQ(lossOf(*stream),
            server.url() +
                ": this user may not do what is needed: Permissions Violation for Publish to "
                "\"zord.rows.site1.APPL.group0\"");
}

}  // namespace dch::testkit
