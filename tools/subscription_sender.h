// subscription_sender.h: sends a subscription again while another thread waits on it.
#ifndef TOOLS_SUBSCRIPTION_SENDER_H
#define TOOLS_SUBSCRIPTION_SENDER_H

#include <netinet/in.h>

#include <string>

namespace tools {

// A handle belongs to the thread that waits on it. This has a descriptor of its own of the handle's
// socket, so that the DCH sees the same subscriber, and the DCH's address. Any thread; it lives no
// longer than the handle, whose port it would keep.
class SubscriptionSender {
 public:
  // `handle` comes from dc_waitOnDataInitialize or dc_waitForDPStatusInitialize, and nobody waits
  // on it yet. Throws a Failure (EX_OSERR).
  explicit SubscriptionSender(void* handle);
  ~SubscriptionSender();
  SubscriptionSender(const SubscriptionSender&) = delete;
  SubscriptionSender& operator=(const SubscriptionSender&) = delete;

  // Start the subscription again. What cannot be sent now is sent at the next time.
  void startRows(const std::string& applName, const std::string& attrGroup) const;
  void startStatus() const;

 private:
  const int _socket;
  const sockaddr_in _dch;
};

}  // namespace tools

#endif  // TOOLS_SUBSCRIPTION_SENDER_H
