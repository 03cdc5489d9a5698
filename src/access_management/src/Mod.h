#ifndef QIV_ACCESS_MANAGEMENT_MOD_H
#define QIV_ACCESS_MANAGEMENT_MOD_H

#include <list>
#include <ostream>
#include <string>

struct berval;

namespace Ldap {

// One attribute with its values, laid out as libldap's LDAPMod (op, type, values) followed by
// the number of value slots, so that it could be handed to libldap as such. The values of one
// Mod are either all text or all binary.
class Mod {
 public:
  // type is copied (null stays null); no values yet, capacity 0.
  Mod(int op, const char* type);
  ~Mod();
  Mod(const Mod&) = delete;
  Mod& operator=(const Mod&) = delete;

  // Releases every value, the value array and the type; op becomes 0, capacity 0.
  void clear();

  // True when the modification operation (the low three bits of op) is operation.
  bool isOperation(int operation) const;
  // True when the attribute name equals name.
  bool isType(const char* name) const;

  // Adds a copy of the text value, which must not be null.
  void append(const char* value);
  // Adds a copy of length bytes of data as a binary value and marks op binary (0x80); null
  // data or length 0 adds an empty value.
  void append(const char* data, unsigned length);

  // Appends "type: value" for each value in order, or "type:" when there is none.
  void getAttrsResult(std::list<std::string>& result) const;

  int getOp() const { return _op; }
  const char* getType() const { return _type; }
  // Null-terminated (or null before the first value); each element is a char* or, when op is
  // binary, a berval*.
  void* const* getValues() const { return _values; }
  // Slots in the value array, the terminating null slot included.
  unsigned getCapacity() const { return _capacity; }

 private:
  bool isBinary() const;
  // Stores value in the first free slot, growing the array so that its last slot stays null.
  // The values fill the slots from the front, so the first free one is found by count.
  void addValue(void* value);
  std::string valueText(const void* value) const;

  int _op;
  char* _type;
  void** _values;
  unsigned _capacity;
  // Values stored; after the layout libldap knows.
  unsigned _count;
};

// One line per value, "type: value\n", or "type:\n" without values.
std::ostream& operator<<(std::ostream& out, const Mod& mod);

}  // namespace Ldap

#endif
