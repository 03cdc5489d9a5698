#ifndef QIV_ACCESS_MANAGEMENT_LDAP_ATTRIBUTE_WRITER_H
#define QIV_ACCESS_MANAGEMENT_LDAP_ATTRIBUTE_WRITER_H

#include "LdapConfiguration.h"

#include <PymOamSpiMoValue.h>

#include <string>

namespace QivAccessManagement {

class ConfigurationRunnable;

// Writes one attribute value of the LdapAuthenticationMethod, Ldap, Filter or OrbelinFilter
// object, as an operator's transaction sets it, into an edited LDAP configuration record.
class LdapAttributeWriter {
 public:
  enum Outcome {
    WRITTEN,     // the record (or a reference) took the value
    NOT_HELD,    // the record keeps no such attribute; nothing changed
    UNREADABLE,  // wrong type, or a password that cannot be decrypted
    REFUSED      // the value is not allowed; refusal holds the operator text
  };

  // The references the record does not hold itself, as the transaction sees them.
  struct References {
    std::string nodeCredential;
    std::string trustCategory;
  };

  explicit LdapAttributeWriter(ConfigurationRunnable& runnable);

  // The class is the last RDN's name of dn; value null or without values unsets the attribute.
  Outcome write(LdapConfiguration& config, References& references, const std::string& dn,
                const std::string& attributeName, const PymMoAttributeValueContainer_3* value);
  const std::string& refusal() const;

 private:
  Outcome writeAuthenticationMethod(LdapConfiguration& config, const std::string& name);
  Outcome writeLdap(LdapConfiguration& config, References& references, const std::string& name);
  Outcome writeFilter(LdapConfiguration& config, const std::string& name);
  Outcome writeOrbelinFilter(LdapConfiguration& config, const std::string& name);
  Outcome writeTlsMode(LdapConfiguration& config);
  Outcome writeBindPassword(LdapConfiguration& config);

  // The value being written, one reader per value type; each gives false for a value of
  // another type. An unset value reads as the default record's.
  bool readText(std::string& field, const std::string& unset) const;
  bool readBool(bool& field, bool unset) const;
  bool readUint16(uint16_t& field, uint16_t unset) const;
  template <class Field>
  bool readEnum(Field& field, Field unset) const;
  bool readReference(std::string& field) const;
  bool isUnset() const;
  bool hasType(PymMoValueType type) const;

  ConfigurationRunnable& _runnable;
  const PymMoAttributeValueContainer_3* _value;
  std::string _refusal;
};

}  // namespace QivAccessManagement

#endif
