#include "Mod.h"

#include "StrDup.h"

#include <ldap.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace Ldap {

namespace {

const unsigned FIRST_CAPACITY = 4;

}  // namespace

Mod::Mod(int op, const char* type) : _op(op), _type(StrDup(type)), _values(nullptr), _capacity(0), _count(0) {
  static_assert(std::is_standard_layout<Mod>::value, "Mod must keep LDAPMod's layout");
  static_assert(offsetof(Mod, _op) == offsetof(LDAPMod, mod_op), "op must sit where LDAPMod has it");
  static_assert(offsetof(Mod, _type) == offsetof(LDAPMod, mod_type), "type must sit where LDAPMod has it");
  static_assert(offsetof(Mod, _values) == offsetof(LDAPMod, mod_vals), "values must sit where LDAPMod has them");
}

Mod::~Mod() { clear(); }

void Mod::clear() {
  if (_values != nullptr) {
    for (unsigned index = 0; _values[index] != nullptr; ++index) {
      if (isBinary()) {
        berval* value = static_cast<berval*>(_values[index]);
        delete[] value->bv_val;
        delete value;
      } else {
        delete[] static_cast<char*>(_values[index]);
      }
    }
    delete[] _values;
  }
  delete[] _type;
  _values = nullptr;
  _type = nullptr;
  _op = 0;
  _capacity = 0;
  _count = 0;
}

bool Mod::isOperation(int operation) const { return (_op & LDAP_MOD_OP) == operation; }

bool Mod::isType(const char* name) const {
  return _type != nullptr && name != nullptr && std::strcmp(_type, name) == 0;
}

void Mod::append(const char* value) { addValue(StrDup(value)); }

void Mod::append(const char* data, unsigned length) {
  _op |= LDAP_MOD_BVALUES;
  berval* value = new berval;
  value->bv_len = 0;
  value->bv_val = nullptr;
  if (data != nullptr && length != 0) {
    value->bv_len = length;
    value->bv_val = new char[length];
    std::memcpy(value->bv_val, data, length);
  }
  addValue(value);
}

void Mod::getAttrsResult(std::list<std::string>& result) const {
  const std::string name = _type != nullptr ? _type : "";
  if (_values == nullptr || _values[0] == nullptr) {
    result.push_back(name + ":");
    return;
  }
  for (unsigned index = 0; _values[index] != nullptr; ++index)
    result.push_back(name + ": " + valueText(_values[index]));
}

bool Mod::isBinary() const { return (_op & LDAP_MOD_BVALUES) != 0; }

void Mod::addValue(void* value) {
  if (_values == nullptr) {
    _values = new void*[FIRST_CAPACITY]();
    _capacity = FIRST_CAPACITY;
  } else if (_count + 1 == _capacity) {
    void** grown = new void*[2 * _capacity]();
    std::memcpy(grown, _values, _count * sizeof(void*));
    delete[] _values;
    _values = grown;
    _capacity *= 2;
  }
  _values[_count++] = value;
}

std::string Mod::valueText(const void* value) const {
  if (!isBinary()) return static_cast<const char*>(value);
  const berval* binary = static_cast<const berval*>(value);
  return binary->bv_len == 0 ? std::string() : std::string(binary->bv_val, binary->bv_len);
}

std::ostream& operator<<(std::ostream& out, const Mod& mod) {
  std::list<std::string> lines;
  mod.getAttrsResult(lines);
  for (const std::string& line : lines) out << line << '\n';
  return out;
}

}  // namespace Ldap
