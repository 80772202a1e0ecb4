#include "tools/subscription_sender.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/support/scripted_dch.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

using testing::ElementsAre;

TEST(SubscriptionSender, StartsTheSameSubscriptionAgainFromTheSamePort) {
  const ScriptedDch dch(never());
  DCH_api_init();
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  const std::string request = dch.waitForRequests(1).front();
  {
    const SubscriptionSender sender(handle);
    std::thread waiter([handle] {
      char row[64];
      EXPECT_EQ(dc_waitOnData(handle, row, sizeof row), 0);
    });
    sender.startRows("HOSTMON", "load");
    EXPECT_THAT(dch.waitForRequests(2), ElementsAre(request, request));
    dch.pushTo(1, statusAnswer(0));  // whoever sent it again gets the row
    waiter.join();
  }
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

TEST(SubscriptionSender, StartsASubscriptionToStatusAgain) {
  const ScriptedDch dch(never());
  DCH_api_init();
  void* const handle = dc_waitForDPStatusInitialize();
  const std::string request = dch.waitForRequests(1).front();
  SubscriptionSender(handle).startStatus();
  EXPECT_THAT(dch.waitForRequests(2), ElementsAre(request, request));
  EXPECT_EQ(dc_waitForDPStatusDestroy(handle), 0);
}

}  // namespace
}  // namespace tools
