#ifndef FRAMEWORK_TESTS_FAKE_IMPLEMENTER_H
#define FRAMEWORK_TESTS_FAKE_IMPLEMENTER_H

#include "FakeComponent.h"

#include <Framework/AttributeDefinition.h>
#include <Framework/AttributeValue.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// An object implementer as a component writes one: a FakeComponent whose managed-object and
// transactional-resource tables call into this object. It records every call, joins by
// registering with the transaction master as a component does, and answers as scripted. Calls
// may come from several threads; one live instance per FakeComponent slot.
class FakeImplementer {
 public:
  enum Step { Join, SetMoAttribute, GetMoAttribute, Validate, Prepare, Commit, Abort, Finish };

  struct Call {
    Step step;
    unsigned long txHandle;
    unsigned long currentTransaction;  // CurrentTransaction::get() during the call
    std::string dn;
    std::string attribute;
    const PymMoAttributeValueContainer_3* container;  // as handed to setMoAttribute
    std::string value;                                 // describe(container) during the call
  };

  FakeImplementer(int slot, const std::string& name);
  ~FakeImplementer();
  FakeImplementer(const FakeImplementer&) = delete;
  FakeImplementer& operator=(const FakeImplementer&) = delete;

  PymMgmtSpiComponent_2* descriptor();
  const PymOamSpiTransactionalResource_2* resource() const;

  // Every later call of step answers code (PymOk by default). getMoAttribute answers the values
  // given by answerRead for its attribute, else this code, else PymNotExist.
  void answer(Step step, PymReturnT code);
  void answerValidation(bool valid);
  // getMoAttribute of attribute answers these values, in a container it releases itself.
  void answerRead(const std::string& attribute, const Framework::AttributeDefinition& definition,
                  const std::vector<Framework::AttributeValue>& values);
  // Whether join registers as participant (it does unless told otherwise).
  void registerOnJoin(bool enabled);
  // During every call of step, add text as an operator message through the thread context.
  void addMessageAt(Step step, const std::string& text);
  // During every call of step, run action (with the lock released) before answering.
  void at(Step step, std::function<void(unsigned long txHandle)> action);
  // The component's MO lock: the first transaction that writes holds it until its abort or
  // finish; writes of another transaction meanwhile are refused with PymFailure and the
  // operator message "locked by transaction <n>".
  void lockForEditing(bool enabled);

  // The next call of step, once it has decided its answer, waits inside the implementer until
  // release(); waitUntilBlocked gives false when no call got there within 10 s.
  void blockNext(Step step);
  bool waitUntilBlocked();
  void release();

  std::vector<Call> calls() const;
  // "join 3", "setMoAttribute 3 baseDn", "validate 3", ... in call order.
  std::vector<std::string> steps() const;
  int releasedReads() const;

  // A container as "<type>:[v1,v2]"; structures as "{member=<container>,...}".
  static std::string describe(const PymMoAttributeValueContainer_3* container);
  static const char* stepName(Step step);

  // What the C functions of the slot's tables run.
  PymReturnT serve(Step step, unsigned long txHandle, const char* dn, const char* attribute,
                   const PymMoAttributeValueContainer_3* container, PymMoAttributeValueResult_3* result,
                   bool* valid);
  void releaseRead(PymMoAttributeValueContainer_3* container);

 private:
  struct ReadAnswer {
    Framework::AttributeDefinition definition;
    std::vector<Framework::AttributeValue> values;
  };

  // The step's answer: takes or gives back the MO lock, fills a validation or a read; under the lock.
  PymReturnT act(Step step, unsigned long txHandle, const std::string& attribute, PymMoAttributeValueResult_3* result,
                 bool* valid, std::vector<std::string>& messages);
  void waitIfBlocked(Step step, std::unique_lock<std::mutex>& lock);

  int _slot;
  FakeComponent _component;
  PymOamSpiManagedObject_3* _managedObject;
  PymOamSpiTransactionalResource_2* _resource;

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<Call> _calls;
  std::map<Step, PymReturnT> _answers;
  bool _valid;
  std::map<std::string, ReadAnswer> _reads;
  bool _registerOnJoin;
  std::map<Step, std::vector<std::string>> _messages;
  std::map<Step, std::function<void(unsigned long)>> _actions;
  bool _lockForEditing;
  std::optional<unsigned long> _lockHolder;
  std::optional<Step> _blockNext;
  bool _blocked;
  bool _released;
  int _releasedReads;
};

#endif
