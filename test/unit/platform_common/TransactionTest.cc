#include <Qiv/QivException.h>
#include <Qiv/Transaction.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeFramework.h"

namespace {

using ::testing::ElementsAre;

class TransactionTest : public FakeFrameworkTest {};

TEST_F(TransactionTest, BeginsOnFirstHandleOnly) {
  Qiv::Transaction transaction(PymLockPolicyExclusive, 30);
  EXPECT_FALSE(transaction.isOpen());
  EXPECT_TRUE(transactionCalls.empty());
  EXPECT_EQ(100u, transaction.getHandle());
  EXPECT_TRUE(transaction.isOpen());
  EXPECT_EQ(100u, transaction.getHandle());
  EXPECT_THAT(transactionCalls, ElementsAre("new 1 30 100"));
}

TEST_F(TransactionTest, LooksUpTheTransactionService) {
  Qiv::Transaction transaction(PymLockPolicyNone, 5);
  lookups.clear();
  transaction.getHandle();
  EXPECT_THAT(lookups, ElementsAre("PymOamSpiTransactionService|PymOamSpiTransaction|2"));
}

TEST_F(TransactionTest, CommitEndsTheTransaction) {
  {
    Qiv::Transaction transaction(PymLockPolicyNone, 10);
    transaction.getHandle();
    transaction.commit();
    EXPECT_FALSE(transaction.isOpen());
  }
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100", "commit 100"));
}

TEST_F(TransactionTest, NextHandleBeginsANewTransaction) {
  Qiv::Transaction transaction(PymLockPolicyNone, 10);
  transaction.getHandle();
  transaction.commit();
  EXPECT_EQ(101u, transaction.getHandle());
  transaction.abort();
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100", "commit 100", "new 0 10 101", "abort 101"));
}

TEST_F(TransactionTest, CommitWithoutTransactionDoesNothing) {
  Qiv::Transaction transaction(PymLockPolicyNone, 10);
  transaction.commit();
  transaction.abort();
  EXPECT_TRUE(transactionCalls.empty());
}

TEST_F(TransactionTest, RefusedCommitThrowsAndEnds) {
  commitResult = PymValidationFailed;
  {
    Qiv::Transaction transaction(PymLockPolicyNone, 10);
    transaction.getHandle();
    try {
      transaction.commit();
      FAIL() << "no exception";
    } catch (const Qiv::QivException& e) {
      EXPECT_STREQ("Failed to commit transaction (-9)", e.what());
      EXPECT_EQ(PymValidationFailed, e.code());
    }
    EXPECT_FALSE(transaction.isOpen());
  }
  // The refused transaction has ended: the destructor has nothing to abort.
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100", "commit 100"));
}

TEST_F(TransactionTest, DestructorAbortsOpenTransaction) {
  {
    Qiv::Transaction transaction(PymLockPolicyExclusive, 10);
    transaction.getHandle();
  }
  EXPECT_THAT(transactionCalls, ElementsAre("new 1 10 100", "abort 100"));
}

TEST_F(TransactionTest, DestructorSurvivesRefusedAbort) {
  abortResult = PymFailure;
  EXPECT_NO_THROW({
    Qiv::Transaction transaction(PymLockPolicyNone, 10);
    transaction.getHandle();
  });
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100", "abort 100"));
  EXPECT_EQ(1u, countLines(4, "Failed to abort transaction 100 (-1)"));
}

TEST_F(TransactionTest, DestructorSurvivesMissingService) {
  EXPECT_NO_THROW({
    Qiv::Transaction transaction(PymLockPolicyNone, 10);
    transaction.getHandle();
    offered.erase("PymOamSpiTransaction");
  });
  EXPECT_THAT(transactionCalls, ElementsAre("new 0 10 100"));
}

TEST_F(TransactionTest, RefusedBeginThrows) {
  newTransactionResult = PymFailure;
  Qiv::Transaction transaction(PymLockPolicyNone, 10);
  EXPECT_THROW(transaction.getHandle(), Qiv::QivException);
  EXPECT_FALSE(transaction.isOpen());
}

TEST_F(TransactionTest, MissingServiceThrows) {
  offered.erase("PymOamSpiTransaction");
  Qiv::Transaction transaction(PymLockPolicyNone, 10);
  EXPECT_THROW(transaction.getHandle(), Qiv::QivException);
  EXPECT_FALSE(transaction.isOpen());
}

}  // namespace
