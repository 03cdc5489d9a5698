#include "FrameworkTest.h"

#include <Framework/CurrentTransaction.h>
#include <Framework/ThreadContext.h>
#include <PymMgmtSpiThreadContext.h>

#include <gtest/gtest.h>

#include <thread>

using Framework::CurrentTransaction;

class ThreadContextTable : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    context = lookup<PymMgmtSpiThreadContext_2>("PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2");
    ASSERT_NE(nullptr, context);
  }

  PymMgmtSpiThreadContext_2* context = nullptr;
};

TEST(CurrentTransaction, ScopesNestAndRestore) {
  EXPECT_EQ(0u, CurrentTransaction::get());
  {
    CurrentTransaction outer(4);
    EXPECT_EQ(4u, CurrentTransaction::get());
    {
      CurrentTransaction inner(9);
      EXPECT_EQ(9u, CurrentTransaction::get());
    }
    EXPECT_EQ(4u, CurrentTransaction::get());
  }
  EXPECT_EQ(0u, CurrentTransaction::get());
}

TEST(CurrentTransaction, IsPerThread) {
  CurrentTransaction scope(5);
  unsigned long seen = 99;
  std::thread other([&] { seen = CurrentTransaction::get(); });
  other.join();
  EXPECT_EQ(0u, seen);
  EXPECT_EQ(5u, CurrentTransaction::get());
}

TEST_F(ThreadContextTable, MessagesGoToTheServedTransaction) {
  {
    CurrentTransaction scope(3);
    EXPECT_EQ(PymOk, context->addMessage(PymThreadContextMessageOperator, "LDAP server unreachable"));
  }
  {
    CurrentTransaction scope(4);
    EXPECT_EQ(PymOk, context->addMessage(2, "other kind"));
  }
  EXPECT_EQ(PymOk, context->addMessage(PymThreadContextMessageOperator, "outside"));

  const auto three = framework->threadContext().messages(3);
  ASSERT_EQ(1u, three.size());
  EXPECT_EQ(3u, three[0].txHandle);
  EXPECT_EQ(PymThreadContextMessageOperator, three[0].kind);
  EXPECT_EQ("LDAP server unreachable", three[0].text);
  ASSERT_EQ(1u, framework->threadContext().messages(4).size());
  EXPECT_EQ(2, framework->threadContext().messages(4)[0].kind);
  ASSERT_EQ(1u, framework->threadContext().messages(0).size());
  EXPECT_EQ("outside", framework->threadContext().messages(0)[0].text);
  EXPECT_EQ(3u, framework->threadContext().allMessages().size());
  EXPECT_EQ(std::vector<std::string>{"LDAP server unreachable"}, framework->transactions().operatorMessages(3));
  EXPECT_TRUE(framework->transactions().operatorMessages(4).empty());

  framework->threadContext().clear();
  EXPECT_TRUE(framework->threadContext().allMessages().empty());
}

TEST_F(ThreadContextTable, AnotherThreadServesNoTransaction) {
  CurrentTransaction scope(7);
  std::thread other([&] { context->addMessage(PymThreadContextMessageOperator, "from elsewhere"); });
  other.join();
  EXPECT_TRUE(framework->threadContext().messages(7).empty());
  EXPECT_EQ(1u, framework->threadContext().messages(0).size());
}

TEST_F(ThreadContextTable, NullMessageIsRefused) {
  EXPECT_EQ(PymInvalidParameter, context->addMessage(PymThreadContextMessageOperator, nullptr));
  EXPECT_TRUE(framework->threadContext().allMessages().empty());
}

TEST_F(ThreadContextTable, ARefusedMessageIsNotFiled) {
  framework->threadContext().answerNextAddMessage(-7);
  EXPECT_EQ(-7, context->addMessage(PymThreadContextMessageOperator, "refused"));
  EXPECT_TRUE(framework->threadContext().allMessages().empty());
  // One answer per call.
  EXPECT_EQ(PymOk, context->addMessage(PymThreadContextMessageOperator, "filed"));
  ASSERT_EQ(1u, framework->threadContext().allMessages().size());
  EXPECT_EQ("filed", framework->threadContext().allMessages()[0].text);
}

TEST_F(ThreadContextTable, WithoutFrameworkItFails) {
  framework.reset();
  EXPECT_EQ(PymFailure, context->addMessage(PymThreadContextMessageOperator, "lost"));
}
