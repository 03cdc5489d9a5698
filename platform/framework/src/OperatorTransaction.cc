#include <Framework/OperatorTransaction.h>

#include <Framework/Dn.h>
#include <Framework/ValueText.h>

#include <optional>
#include <stdexcept>

namespace Framework {

OperatorTransaction::OperatorTransaction(ManagementFramework& framework)
    : _framework(framework), _handle(framework.transactions().begin()) {}

OperatorTransaction::~OperatorTransaction() {
  try {
    if (isOpen()) _framework.transactions().abort(_handle);
  } catch (const std::exception&) {
    // Nothing may leave a destructor; the framework has logged what the participants answered.
  }
}

unsigned long OperatorTransaction::handle() const { return _handle; }

bool OperatorTransaction::isOpen() const { return _framework.transactions().isOpen(_handle); }

PymReturnT OperatorTransaction::set(const std::string& dn, const std::string& attribute,
                                    const PymMoAttributeValueContainer_3& value) {
  requireOpen();
  const AttributeDefinition definition = requireDefinition(dn, attribute);
  try {
    ValueCodec::fromContainer(definition, value);
  } catch (const std::invalid_argument& error) {
    throw OperatorError(PymInvalidParameter, error.what());
  }
  return _framework.cmRouter().setAttributeForOperator(_handle, dn, attribute, value);
}

PymReturnT OperatorTransaction::setText(const std::string& dn, const std::string& attribute,
                                        const std::vector<std::string>& values) {
  requireOpen();
  const ValueCodec::ContainerPtr container = encode(requireDefinition(dn, attribute), values);
  return _framework.cmRouter().setAttributeForOperator(_handle, dn, attribute, *container);
}

std::vector<std::string> OperatorTransaction::getText(const std::string& dn, const std::string& attribute) const {
  requireOpen();
  const AttributeDefinition definition = requireDefinition(dn, attribute);
  PymMoAttributeValueResult_3 result{};
  const PymReturnT code = _framework.cmRouter().getAttributeForOperator(_handle, dn, attribute, result);
  if (code != PymOk) {
    throw OperatorError(code, "cannot read \"" + attribute + "\" of \"" + dn + "\" (" + std::to_string(code) + ")");
  }
  const ValueCodec::ContainerPtr container(result.container, result.release);
  return ValueText::formatAll(definition, ValueCodec::fromContainer(definition, *container));
}

PymReturnT OperatorTransaction::commit() {
  requireOpen();
  return _framework.transactions().commit(_handle);
}

void OperatorTransaction::abort() {
  requireOpen();
  _framework.transactions().abort(_handle);
}

std::vector<std::string> OperatorTransaction::operatorMessages() const {
  return _framework.transactions().operatorMessages(_handle);
}

void OperatorTransaction::requireOpen() const {
  if (!isOpen()) throw OperatorError(PymInvalidParameter, "transaction " + std::to_string(_handle) + " has ended");
}

AttributeDefinition OperatorTransaction::requireDefinition(const std::string& dn, const std::string& attribute) const {
  try {
    Dn::classPath(dn);
  } catch (const std::invalid_argument& error) {
    throw OperatorError(PymInvalidParameter, error.what());
  }
  if (!_framework.model().exists(dn)) throw OperatorError(PymNotExist, "no object \"" + dn + "\"");
  const std::optional<AttributeDefinition> definition = _framework.model().attributeDefinition(dn, attribute);
  if (!definition.has_value()) {
    throw OperatorError(PymNotExist, "\"" + dn + "\" has no attribute \"" + attribute + "\"");
  }
  return *definition;
}

ValueCodec::ContainerPtr OperatorTransaction::encode(const AttributeDefinition& definition,
                                                     const std::vector<std::string>& values) {
  try {
    return ValueCodec::toContainer(definition, ValueText::parseAll(definition, values));
  } catch (const std::invalid_argument& error) {
    throw OperatorError(PymInvalidParameter, error.what());
  }
}

}  // namespace Framework
