#ifndef PLATFORM_COMMON_TEST_FAKE_FRAMEWORK_H
#define PLATFORM_COMMON_TEST_FAKE_FRAMEWORK_H

#include <PymMgmtSpiPortal.h>
#include <PymMwSpiCrypto.h>
#include <PymMwSpiLogTrace.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

// An attribute value as an object implementer would hand it out; owns all its storage.
class FakeContainer {
 public:
  explicit FakeContainer(PymMoValueType type);
  FakeContainer(const FakeContainer&) = delete;
  FakeContainer& operator=(const FakeContainer&) = delete;

  FakeContainer& addString(const std::string& text);  // String and Reference
  FakeContainer& addU16(uint16_t value);
  FakeContainer& addBool(bool value);
  FakeContainer& addEnum(int32_t value);
  // One structure value; members in the order given, a null container for a member without value.
  FakeContainer& addStruct(const std::vector<std::pair<std::string, std::shared_ptr<FakeContainer>>>& members);

  PymMoAttributeValueContainer_3* get() { return &_container; }

  // Overwrites every string and cuts every link, as an implementer reusing its memory would.
  void scribble();

 private:
  PymMoAttributeValue_3& addValue();

  PymMoAttributeValueContainer_3 _container;
  std::vector<PymMoAttributeValue_3> _values;
  std::deque<std::string> _strings;
  std::deque<std::vector<PymMoAttrStructMember_3>> _memberLists;
  std::vector<std::shared_ptr<FakeContainer>> _nested;
};

struct LogLine {
  int level;  // 8 for traces
  std::string method;
  std::string text;
  bool traced;  // reached the trace interface rather than the log
};

// A scriptable framework behind Qiv::Portal: log, trace, transaction service, CM router and
// crypto. The C tables reach the running test through a static instance pointer, so one test
// at a time.
class FakeFrameworkTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Attaches (again) through Qiv::Portal.
  void attach();
  void detach();

  // What the portal offers.
  bool offerPortal3 = true;
  std::set<std::string> offered = {"PymMwSpiLog", "PymMwSpiTrace", "PymOamSpiTransaction", "PymOamSpiManagedObject",
                                   "PymMwSpiCrypto"};
  std::vector<std::string> portalVersionsAsked;
  std::vector<std::string> lookups;  // "component|interface|version", "-" for null

  // Log and trace. The log, trace and portal callbacks may come from several threads at once.
  int logLevel = PymLogInfo;
  bool traceEnabled = false;
  std::vector<LogLine> lines;
  std::size_t countLines(int level, const std::string& text) const;

  // Transaction service.
  PymReturnT newTransactionResult = PymOk;
  PymReturnT commitResult = PymOk;
  PymReturnT abortResult = PymOk;
  unsigned long nextHandle = 100;
  std::vector<std::string> transactionCalls;  // "new <policy> <timeout> <handle>", "commit <h>", "abort <h>"

  // CM router. children[{parentDn, className}] lists the DNs in iteration order.
  std::map<std::pair<std::string, std::string>, std::vector<std::string>> children;
  std::vector<std::string> iteratorCalls;  // "<tx>|<parentDn>|<class>"
  int openIterators = 0;

  struct Attribute {
    PymReturnT result = PymOk;
    // Builds what is handed out; may be empty to hand out nothing (also with a failure result).
    std::function<std::unique_ptr<FakeContainer>()> make;
  };
  std::map<std::pair<std::string, std::string>, Attribute> attributes;  // {dn, name}
  std::vector<unsigned long> readHandles;
  int releases = 0;
  int unknownReleases = 0;  // releases of containers never handed out, or released twice
  std::size_t outstandingContainers() const { return _handedOut.size(); }

  struct Write {
    unsigned long txHandle;
    std::string dn;
    std::string name;
    PymMoValueType type;
    uint32_t nrOfValues;
  };
  PymReturnT setResult = PymOk;
  std::vector<Write> writes;

  // Crypto: encrypt gives "enc(<clear>)", decrypt "dec(<encrypted>)".
  PymReturnT cryptoResult = PymOk;
  PymMwSpiCrypto_1* cryptoTable();

 private:
  static FakeFrameworkTest* current();
  static void* getPortal(const char* version);
  static PymReturnT getInterface(const char* component, const char* name, const char* version,
                                 PymMgmtSpiInterface_1** result);
  static void log(int level, const char* method, const char* text);
  static int getLevel();
  static void trace(const char* method, const char* text);
  static bool isTraceEnabled();
  static PymReturnT newTransaction(PymLockPolicy policy, uint32_t timeout, unsigned long* handle);
  static PymReturnT commitTransaction(unsigned long handle);
  static PymReturnT abortTransaction(unsigned long handle);
  static PymReturnT getMoAttribute(unsigned long tx, const char* dn, const char* name,
                                   PymMoAttributeValueResult_3* result);
  static void releaseContainer(PymMoAttributeValueContainer_3* container);
  static PymReturnT setMoAttribute(unsigned long tx, const char* dn, const char* name,
                                   const PymMoAttributeValueContainer_3* value);
  static PymReturnT newMoIterator(unsigned long tx, const char* dn, const char* className,
                                  unsigned long long* iterator);
  static PymReturnT nextMo(unsigned long long iterator, char** result);
  static PymReturnT finalizeMoIterator(unsigned long long iterator);
  static PymReturnT encrypt(const char* clear, char** result);
  static PymReturnT decrypt(const char* encrypted, char** result);

  static FakeFrameworkTest* _current;

  std::mutex _callbackMutex;

  PymMgmtSpiInterfacePortalAccessor _accessor;
  PymMgmtSpiInterfacePortal_3 _portal;
  PymMwSpiLog_1 _log;
  PymMwSpiTrace_1 _trace;
  PymOamSpiTransaction_2 _transactions;
  PymOamSpiManagedObject_3 _router;
  PymMwSpiCrypto_1 _crypto;

  std::map<PymMoAttributeValueContainer_3*, std::unique_ptr<FakeContainer>> _handedOut;
  std::vector<std::unique_ptr<FakeContainer>> _released;  // kept, scribbled, until the test ends
  struct Iteration {
    std::vector<std::string> dns;
    std::size_t next;
  };
  std::map<unsigned long long, Iteration> _iterations;
  unsigned long long _nextIterator = 1;
};

#endif
