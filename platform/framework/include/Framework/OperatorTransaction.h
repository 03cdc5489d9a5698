#ifndef FRAMEWORK_OPERATOR_TRANSACTION_H
#define FRAMEWORK_OPERATOR_TRANSACTION_H

#include <Framework/AttributeDefinition.h>
#include <Framework/ManagementFramework.h>
#include <Framework/OperatorError.h>
#include <Framework/ValueCodec.h>
#include <PymOamSpiMoValue.h>

#include <string>
#include <vector>

namespace Framework {

// An operator's configuration transaction, as the northbound side (a command line, a test) runs
// it: writes and reads go through the CM router's operator path, so classes with an object
// implementer are served by it (see CmRouter). Begun on construction; aborted on destruction
// unless committed or aborted before. Values are given as containers or in ValueText's form. One
// operator drives an instance (not thread-safe); several may run on several threads.
class OperatorTransaction {
 public:
  // The framework must outlive the transaction.
  explicit OperatorTransaction(ManagementFramework& framework);
  ~OperatorTransaction();
  OperatorTransaction(const OperatorTransaction&) = delete;
  OperatorTransaction& operator=(const OperatorTransaction&) = delete;

  unsigned long handle() const;
  // Until commit or abort.
  bool isOpen() const;

  // Writes one attribute. Throws OperatorError when the transaction has ended, the DN is
  // malformed or names no object, its class lacks the attribute or the value does not fit it.
  // Otherwise the framework's answer: PymOk, or the code with which the object implementer
  // refused the write (not kept; the transaction stays open).
  [[nodiscard]] PymReturnT set(const std::string& dn, const std::string& attribute,
                               const PymMoAttributeValueContainer_3& value);
  // The same from texts, one per value; an empty list unsets the attribute.
  [[nodiscard]] PymReturnT setText(const std::string& dn, const std::string& attribute,
                                   const std::vector<std::string>& values);
  // The attribute's values as this transaction sees them, one text per value. Throws
  // OperatorError as set does, and with the router's code when the read fails.
  std::vector<std::string> getText(const std::string& dn, const std::string& attribute) const;

  // Validates, prepares and commits over the participants; PymOk or the refusing participant's
  // code. Ends the transaction either way; throws OperatorError when it had ended already.
  PymReturnT commit();
  // Throws OperatorError when the transaction had ended already.
  void abort();

  // Texts of the operator messages components added while serving this transaction, in order;
  // kept after it has ended.
  std::vector<std::string> operatorMessages() const;

 private:
  void requireOpen() const;
  // The definition of the attribute of dn's class; throws OperatorError.
  AttributeDefinition requireDefinition(const std::string& dn, const std::string& attribute) const;
  static ValueCodec::ContainerPtr encode(const AttributeDefinition& definition, const std::vector<std::string>& values);

  ManagementFramework& _framework;
  const unsigned long _handle;
};

}  // namespace Framework

#endif
