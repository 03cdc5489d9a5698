#ifndef QIV_MO_ACCESSOR_CORE_H
#define QIV_MO_ACCESSOR_CORE_H

#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>
#include <Qiv/QivException.h>
#include <Qiv/Transaction.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Qiv {

// Typed access to managed-object attributes through the CM router's "PymOamSpiManagedObject"
// "3" interface. This header is the platform's core; the typed operations getAttr,
// getOptionalAttrStrict, getSeqAttr, setAttr and setSeqAttr are templates whose definitions a
// user includes from its own MoAccessor.h. Reads outside a write see committed values; writes go
// into the accessor's own transaction, which the caller commits with commit(). Not thread-safe.
class MoAccessor {
 public:
  // An enumeration value as the model holds it.
  struct Enum {
    Enum() : value(0) {}
    explicit Enum(int16_t v) : value(v) {}
    int16_t value;
  };

  // A reference: the DN of the referenced object.
  struct MoRef {
    MoRef() = default;
    explicit MoRef(const std::string& d) : dn(d) {}
    std::string dn;
  };

  // A value that may be absent.
  template <class T>
  class Optional {
   public:
    Optional() : _hasValue(false), _value() {}
    explicit Optional(const T& value) : _hasValue(true), _value(value) {}
    bool hasValue() const { return _hasValue; }
    // Throws QivException "Attribute is not set" when there is no value.
    const T& get() const {
      if (!_hasValue) throw QivException("Attribute is not set");
      return _value;
    }

   private:
    bool _hasValue;
    T _value;
  };

  // A container handed out by the framework, released with the framework's function on
  // destruction.
  class MoAttributeValueResult {
   public:
    MoAttributeValueResult();
    ~MoAttributeValueResult();
    MoAttributeValueResult(const MoAttributeValueResult&) = delete;
    MoAttributeValueResult& operator=(const MoAttributeValueResult&) = delete;

    PymMoAttributeValueResult_3* raw();
    const PymMoAttributeValueContainer_3* container() const;
    // Number of values; 0 when there is no container or no value array.
    uint32_t count() const;

   private:
    PymMoAttributeValueResult_3 _result;
  };

  // A structure value; keeps its own copy of the members.
  class Struct {
   public:
    Struct();
    explicit Struct(const PymMoAttrStructMember_3* members);

    // The member's value; a member without value gives a warning "Struct member not set: '%s'"
    // and QivException with code -1 and the same text. Defined in the user's MoAccessor.h.
    template <class T>
    T get(const std::string& memberName) const;

    // The member's values, or null when the structure has no such member.
    const PymMoAttributeValueContainer_3* getMemberValueContainer(const std::string& memberName) const;

   private:
    class Member;
    std::vector<std::shared_ptr<const Member>> _members;
  };

  // lockPolicy and the transaction time-out in seconds.
  MoAccessor(int lockPolicy, int timeoutSeconds);
  ~MoAccessor();
  MoAccessor(const MoAccessor&) = delete;
  MoAccessor& operator=(const MoAccessor&) = delete;

  // Fills result with the values of dn's attribute. Throws QivException
  // "Failed to read attribute :'%s' in MO :%s, reason (%d )!" when the object or attribute
  // does not exist or the router is missing.
  void getAttrContainer(const std::string& dn, const std::string& attrName, MoAttributeValueResult& result);

  // DN of the first instance of a class given in comma form ("A,B,C"), or "" when there is none.
  std::string getFirstMoInstance(const std::string& classPath);

  // The framework type code for T.
  template <class T>
  static PymMoValueType getSpiType();

  // Throws QivException "Attribute type mismatch: expected %d, stored %d" when the types differ.
  static void validateType(const PymMoAttributeValueContainer_3* container, PymMoValueType expectedType);

  // Converts one stored value to T.
  template <class T>
  static T extractAttr(const PymMoAttributeValue_3& value);

  // Stores value at index of container; string values keep pointing into value.
  template <class T>
  static void setValue(PymMoAttributeValueContainer_3& container, uint32_t index, const T& value);

  // Writes the container in the accessor's transaction. A refusal is logged as error
  // "Failed to write '%s' from MO ( error:%d )!" and thrown as QivException
  // "Failed to set attribute :'%s' in MO :%s, reason (%d )!".
  void setSeqAttr(const std::string& dn, const std::string& attrName, const PymMoAttributeValueContainer_3& container);

  // Commits the accessor's transaction (nothing to do when nothing was written).
  void commit();

  // Typed operations; definitions in the user's MoAccessor.h.
  template <class T>
  T getAttr(const std::string& dn, const std::string& attrName);
  template <class T>
  Optional<T> getOptionalAttrStrict(const std::string& dn, const std::string& attrName);
  template <class T>
  std::vector<T> getSeqAttr(const std::string& dn, const std::string& attrName);
  template <class T>
  void setAttr(const std::string& dn, const std::string& attrName, const T& value);
  template <class T>
  void setSeqAttr(const std::string& dn, const std::string& attrName, const std::vector<T>& values);

 private:
  PymOamSpiManagedObject_3* router() const;
  unsigned long readHandle();

  Transaction _transaction;
};

template <> PymMoValueType MoAccessor::getSpiType<std::string>();
template <> PymMoValueType MoAccessor::getSpiType<bool>();
template <> PymMoValueType MoAccessor::getSpiType<unsigned short>();
template <> PymMoValueType MoAccessor::getSpiType<MoAccessor::Enum>();
template <> PymMoValueType MoAccessor::getSpiType<MoAccessor::MoRef>();
template <> PymMoValueType MoAccessor::getSpiType<MoAccessor::Struct>();

template <> std::string MoAccessor::extractAttr<std::string>(const PymMoAttributeValue_3& value);
template <> bool MoAccessor::extractAttr<bool>(const PymMoAttributeValue_3& value);
template <> unsigned short MoAccessor::extractAttr<unsigned short>(const PymMoAttributeValue_3& value);
template <> MoAccessor::Enum MoAccessor::extractAttr<MoAccessor::Enum>(const PymMoAttributeValue_3& value);
template <> MoAccessor::MoRef MoAccessor::extractAttr<MoAccessor::MoRef>(const PymMoAttributeValue_3& value);
template <> MoAccessor::Struct MoAccessor::extractAttr<MoAccessor::Struct>(const PymMoAttributeValue_3& value);

template <> void MoAccessor::setValue<std::string>(PymMoAttributeValueContainer_3&, uint32_t, const std::string&);
template <> void MoAccessor::setValue<MoAccessor::Enum>(PymMoAttributeValueContainer_3&, uint32_t, const Enum&);
template <> void MoAccessor::setValue<unsigned short>(PymMoAttributeValueContainer_3&, uint32_t, const unsigned short&);

}  // namespace Qiv

#endif
