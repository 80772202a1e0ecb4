#include "dch/incoming_message.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "zordlpc/zordlpc.h"

namespace dch {
namespace {

constexpr char clientName[] = "127.0.0.1";

// A server's queue without sockets. Never destroyed, as its receiver thread is not joined.
DCHipc& endpoint() {
  static DCHipc* const server = new ipcLPC(SERVICE_SERVER, nullptr, 0);
  return *server;
}

void put(const std::string& text, const char* name, unsigned int connection) {
  sockaddr_in sender{};
  sender.sin_family = AF_INET;
  sender.sin_port = htons(4711);
  sender.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  endpoint().ipc_put_data(static_cast<ZORA_Long>(text.size()), text.data(), &sender, sizeof sender,
                          name, connection);
}

Notice noticeFor(const std::string& text, const char* name, unsigned int connection) {
  Inbox inbox(endpoint());
  put(text, name, connection);
  return noticeOf(inbox.receive());
}

TEST(InboxTest, GivesAMessageWithItsSenderAndConnection) {
  Inbox inbox(endpoint());
  put("hello", clientName, 17);
  const IncomingMessage message = inbox.receive();
  EXPECT_EQ(message.text(), "hello");
  EXPECT_STREQ(message.sender.text().data(), "127.0.0.1:4711");
  EXPECT_EQ(message.connection, 17u);
  EXPECT_FALSE(message.isDatagram());
  EXPECT_TRUE(message.hasSenderName);
}

TEST(InboxTest, TellsHowManyBytesCameWhateverTheLengthWordSays) {
  Inbox inbox(endpoint());
  // More than the queue has slots, so that every slot is used and used again; zeros count too.
  for (std::size_t length = 1; length <= 12; ++length) {
    put(std::string(length, '\0'), clientName, 0);
    EXPECT_EQ(inbox.receive().received, length);
  }
}

TEST(InboxTest, TellsTheLengthOfEachOfSeveralMessagesThatWait) {
  Inbox inbox(endpoint());
  for (int round = 0; round < 3; ++round) {
    for (std::size_t length = 1; length <= 4; ++length)
      put(std::string(length, 'x'), clientName, 0);
    for (std::size_t length = 1; length <= 4; ++length) EXPECT_EQ(inbox.receive().received, length);
  }
}

TEST(InboxTest, PutsAStopBehindTheMessagesThatWait) {
  Inbox inbox(endpoint());
  put("hello", clientName, 0);
  requestStop(endpoint());
  EXPECT_EQ(noticeOf(inbox.receive()), Notice::none);
  EXPECT_EQ(noticeOf(inbox.receive()), Notice::stopRequested);
}

TEST(InboxTest, GetsTheNoticesOfTheThreadThatTakesSignals) {
  Inbox inbox(endpoint());
  announceEndOfProgram(endpoint());
  requestReport(endpoint());
  announceTime(endpoint());
  EXPECT_EQ(noticeOf(inbox.receive()), Notice::programEnded);
  EXPECT_EQ(noticeOf(inbox.receive()), Notice::reportWanted);
  EXPECT_EQ(noticeOf(inbox.receive()), Notice::timeIsUp);
}

TEST(NoticeTest, KnowsTheNoticesOfTheEndpoint) {
  EXPECT_EQ(noticeFor("IPC-SERVER_READY", nullptr, 0), Notice::ready);
  EXPECT_EQ(noticeFor("DP-DISCONNECT", nullptr, 5), Notice::disconnected);
  EXPECT_EQ(noticeFor("RESEND_MESSAGE", clientName, 5), Notice::brokenMessage);
}

TEST(NoticeTest, TakesNoDatagramForANotice) {
  for (const char* text : {"IPC-SERVER_READY", "DP-DISCONNECT", "RESEND_MESSAGE", "SERVER_STOP",
                           "PROGRAM_ENDED", "REPORT_WANTED", "TIME_IS_UP"})
    EXPECT_EQ(noticeFor(text, clientName, 0), Notice::none) << text;
}

TEST(NoticeTest, TakesNoNoticeWithoutItsExactTextOrItsKindOfSender) {
  EXPECT_EQ(noticeFor("IPC-SERVER_READY", nullptr, 5), Notice::none);
  EXPECT_EQ(noticeFor("IPC-SERVER_READY", clientName, 5), Notice::none);
  EXPECT_EQ(noticeFor("SERVER_STOP", nullptr, 5), Notice::none);
  EXPECT_EQ(noticeFor("DP-DISCONNECT", nullptr, 0), Notice::none);
  EXPECT_EQ(noticeFor("DP-DISCONNECT", clientName, 5), Notice::none);
  EXPECT_EQ(noticeFor("RESEND_MESSAGE_", clientName, 5), Notice::none);
}

}  // namespace
}  // namespace dch
