#include "FrameworkTest.h"

#include <Framework/EventRouter.h>
#include <PymOamSpiCmEvent.h>

#include <gtest/gtest.h>

#include <atomic>

namespace {

std::atomic<int> notifications{0};

PymReturnT countNotification(unsigned long, const char*, PymNameValuePair**, void*) {
  ++notifications;
  return PymOk;
}

}  // namespace

// The event router's table as a component finds it, with a consumer that counts what reaches it.
class EventRouterTest : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    notifications = 0;
    table = lookup<QivOamSpiEventRouter_1>("QivOamSpiEventService", "QivOamSpiEventRouter", "1");
    ASSERT_NE(nullptr, table);
    ASSERT_EQ(PymOk, table->registerConsumer(&consumer, &handle));
  }

  PymReturnT subscribeToEverything() {
    return table->addSubscription(handle, Framework::EventRouter::CM_NOTIFICATION, filter);
  }

  // One attribute change of the Ldap object, handed to the router.
  void deliverChange() {
    PymOamSpiCmEvent_1 event = {LDAP_DN, PymOamSpiCmEvent_AttributeValueChange, nullptr};
    PymOamSpiCmEvent_1* events[] = {&event, nullptr};
    framework->eventRouter().deliver(PymOamSpiCmEvent_Notification_1{7, events});
  }

  QivOamSpiEventRouter_1* table = nullptr;
  QivOamSpiEventConsumer_1 consumer = {countNotification};
  unsigned long handle = 0;
  char filterName[36] = "PymOamSpiCmEvent_FilterTypeRegExp_1";
  char everything[3] = ".*";
  PymNameValuePair pair = {filterName, everything};
  PymNameValuePair* filter[2] = {&pair, nullptr};
};

TEST_F(EventRouterTest, SubscribedConsumerIsNotified) {
  ASSERT_EQ(PymOk, subscribeToEverything());
  deliverChange();
  EXPECT_EQ(1, notifications.load());
}

TEST_F(EventRouterTest, ScriptedAnswersRefuseOneSubscriptionEachAndSubscribeNothing) {
  framework->eventRouter().answerNextAddSubscription(PymFailure);
  framework->eventRouter().answerNextAddSubscription(-12);
  EXPECT_EQ(PymFailure, subscribeToEverything());
  EXPECT_EQ(-12, subscribeToEverything());
  deliverChange();
  EXPECT_EQ(0, notifications.load());
  // The consumer stays registered: taking it back is the caller's business.
  EXPECT_EQ(1u, framework->eventRouter().consumerCount());

  EXPECT_EQ(PymOk, subscribeToEverything());
  deliverChange();
  EXPECT_EQ(1, notifications.load());
}

TEST_F(EventRouterTest, UnregisteringAfterARefusedSubscriptionRemovesTheConsumer) {
  framework->eventRouter().answerNextAddSubscription(PymFailure);
  ASSERT_EQ(PymFailure, subscribeToEverything());
  EXPECT_EQ(PymOk, table->unregisterConsumer(handle, &consumer, filter));
  EXPECT_EQ(0u, framework->eventRouter().consumerCount());
}
