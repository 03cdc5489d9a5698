#include "CmEventConsumer.h"

#include "FrameworkTestBase.h"
#include "LdapModel.h"
#include "MoAccessor.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using QivAccessManagement::LdapModel::TLS_SUBSCRIPTION_PATTERN;

namespace {

const char TLS_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1";

// Records what each notification held: "dn attribute=first value" per attribute.
class Subscriber {
 public:
  void onChange(const PymOamSpiCmEvent_Notification_1& notification) {
    for (PymOamSpiCmEvent_1** event = notification.events; *event != nullptr; ++event) {
      for (PymMoNamedAttributeValueContainer_3** attribute = (*event)->attributes; *attribute != nullptr; ++attribute) {
        const PymMoAttributeValueContainer_3& value = (*attribute)->value;
        std::string first = value.nrOfValues > 0 && value.type == PymMoValueType_String ? value.values[0].theString : "";
        seen.push_back(std::string((*event)->dn) + " " + (*attribute)->name + "=" + first);
      }
    }
  }
  void throwStandard(const PymOamSpiCmEvent_Notification_1&) { throw std::runtime_error("boom"); }
  void throwOther(const PymOamSpiCmEvent_Notification_1&) { throw 42; }

  std::vector<std::string> seen;
};

using Consumer = Qiv::CmEventConsumer<Subscriber, 1>;

}  // namespace

class CmEventConsumerTest : public FrameworkTestBase {
 protected:
  CmEventConsumerTest() : FrameworkTestBase("tls.xml") {}

  // Commits a new cipher filter, as an operator would.
  void commitCipherFilter(const std::string& filter) {
    Qiv::MoAccessor accessor(1, 60);
    accessor.setAttr<std::string>(TLS_DN, "cipherFilter", filter);
    accessor.commit();
  }

  Subscriber subscriber;
};

TEST_F(CmEventConsumerTest, CommittedChangeOfAMatchingObjectReachesTheSubscriber) {
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  ASSERT_TRUE(consumer.isStarted());
  EXPECT_EQ(1u, framework().eventRouter().consumerCount());

  commitCipherFilter("HIGH");
  EXPECT_EQ(std::vector<std::string>{std::string(TLS_DN) + " cipherFilter=HIGH"}, subscriber.seen);
}

TEST_F(CmEventConsumerTest, ChangesOfOtherObjectsAreNotDelivered) {
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  Qiv::MoAccessor accessor(1, 60);
  accessor.setAttr<std::string>(QivAccessManagement::LdapModel::LDAP_DN, "baseDn", "dc=other");
  accessor.commit();
  EXPECT_TRUE(subscriber.seen.empty());
}

TEST_F(CmEventConsumerTest, EveryPatternOfTheListSelects) {
  Consumer consumer;
  consumer.start(std::vector<std::string>{"^nothing$", "Tls=1$"}, &Subscriber::onChange, &subscriber);
  commitCipherFilter("MEDIUM");
  EXPECT_EQ(1u, subscriber.seen.size());
}

TEST_F(CmEventConsumerTest, StopEndsTheSubscription) {
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  consumer.stop();
  EXPECT_FALSE(consumer.isStarted());
  EXPECT_EQ(0u, framework().eventRouter().consumerCount());
  commitCipherFilter("LOW");
  EXPECT_TRUE(subscriber.seen.empty());
}

TEST_F(CmEventConsumerTest, StopOfAConsumerNeverStartedDoesNothing) {
  Consumer consumer;
  consumer.stop();
  EXPECT_FALSE(consumer.isStarted());
  EXPECT_EQ(0u, log().countAtLevel(3) + log().countAtLevel(4));
}

TEST_F(CmEventConsumerTest, MissingRouterLeavesTheConsumerStopped) {
  ASSERT_TRUE(framework().portal().removeInterface("QivOamSpiEventService", "QivOamSpiEventRouter", "1"));
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  EXPECT_FALSE(consumer.isStarted());
  EXPECT_EQ(1u, log().count(3, "Could not register consumer"));
}

TEST_F(CmEventConsumerTest, RefusedSubscriptionTakesTheConsumerBackOffTheRouter) {
  framework().eventRouter().answerNextAddSubscription(PymFailure);
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  EXPECT_FALSE(consumer.isStarted());
  EXPECT_EQ(1u, log().count(3, "Could not add subscription"));
  EXPECT_EQ(0u, framework().eventRouter().consumerCount());
}

TEST_F(CmEventConsumerTest, StartAfterARefusedSubscriptionLeavesExactlyOneConsumer) {
  framework().eventRouter().answerNextAddSubscription(PymFailure);
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  ASSERT_FALSE(consumer.isStarted());
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::onChange, &subscriber);
  ASSERT_TRUE(consumer.isStarted());
  EXPECT_EQ(1u, framework().eventRouter().consumerCount());
  commitCipherFilter("HIGH");
  EXPECT_EQ(std::vector<std::string>{std::string(TLS_DN) + " cipherFilter=HIGH"}, subscriber.seen);
  consumer.stop();
  EXPECT_EQ(0u, framework().eventRouter().consumerCount());
}

TEST_F(CmEventConsumerTest, ExceptionsOfTheSubscriberStayInTheConsumer) {
  {
    Consumer consumer;
    consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::throwStandard, &subscriber);
    commitCipherFilter("A");
    EXPECT_EQ(1u, log().count(4, "Exception thrown from event consumer :boom"));
  }
  Consumer consumer;
  consumer.start(TLS_SUBSCRIPTION_PATTERN, &Subscriber::throwOther, &subscriber);
  commitCipherFilter("B");
  EXPECT_EQ(1u, log().count(4, "Unknown exception thrown from event consumer"));
}

TEST_F(CmEventConsumerTest, FilterIsANullTerminatedArrayOwnedByTheArena) {
  Qiv::AutoMemory memory;
  PymNameValuePair** filter = Consumer::toCFilter(
      {Qiv::NameValuePair("PymOamSpiCmEvent_FilterTypeRegExp_1", "^a$"), Qiv::NameValuePair("n", "v")}, memory);
  EXPECT_STREQ("PymOamSpiCmEvent_FilterTypeRegExp_1", filter[0]->name);
  EXPECT_STREQ("^a$", filter[0]->value);
  EXPECT_STREQ("v", filter[1]->value);
  EXPECT_EQ(nullptr, filter[2]);
  EXPECT_EQ(7u, memory.blockCount());  // the array, two pairs, four strings
}

TEST_F(CmEventConsumerTest, SecondConsumerOfTheSameKindTripsTheAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Consumer first;
  EXPECT_DEATH({ Consumer second; }, "_instance == __null");
}
