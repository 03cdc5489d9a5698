#include "LdapRequestDecoder.h"

#include <ldap.h>

#include <cstdint>
#include <new>
#include <stdexcept>

namespace TestDirectory {

namespace {

// Far more than any request of a test; a length beyond it means the bytes are not LDAP.
constexpr std::uint32_t LARGEST_MESSAGE = 16U * 1024U * 1024U;
constexpr unsigned char SEQUENCE_TAG = 0x30;
constexpr int DEEPEST_FILTER = 100;

[[noreturn]] void malformed(const std::string& what) { throw std::runtime_error("malformed LDAP request: " + what); }

// A BerElement reading a copy of bytes.
class Reader {
 public:
  Reader(const char* data, ber_len_t length) {
    // liblber reads through a null buffer when given no bytes.
    if (length == 0) malformed("an empty element");
    berval bytes{length, const_cast<char*>(data)};
    _ber = ber_init(&bytes);
    if (_ber == nullptr) throw std::bad_alloc();
  }
  explicit Reader(const berval& bytes) : Reader(bytes.bv_val, bytes.bv_len) {}
  ~Reader() { ber_free(_ber, 1); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  operator BerElement*() const { return _ber; }

 private:
  BerElement* _ber;
};

std::string text(const berval& value) { return std::string(value.bv_val, value.bv_len); }

std::string readString(BerElement* ber, const char* what) {
  berval value{0, nullptr};
  if (ber_scanf(ber, "m", &value) == LBER_ERROR) malformed(what);
  return text(value);
}

// An assertion value as RFC 4515 writes it: only what would end or widen the filter is escaped.
std::string escaped(const std::string& value) {
  static const char* const HEX = "0123456789abcdef";
  std::string result;
  result.reserve(value.size());
  for (char c : value) {
    if (c == '*' || c == '(' || c == ')' || c == '\\' || c == '\0') {
      const unsigned char byte = static_cast<unsigned char>(c);
      result += '\\';
      result += HEX[byte >> 4];
      result += HEX[byte & 0x0f];
    } else {
      result += c;
    }
  }
  return result;
}

std::string filterText(BerElement* ber, int depth);

std::string filterList(BerElement* ber, const char* prefix, int depth) {
  std::string result = prefix;
  ber_len_t length = 0;
  char* last = nullptr;
  for (ber_tag_t tag = ber_first_element(ber, &length, &last); tag != LBER_DEFAULT;
       tag = ber_next_element(ber, &length, last)) {
    result += filterText(ber, depth + 1);
  }
  return result + ")";
}

std::string assertion(BerElement* ber, const char* operation) {
  berval type{0, nullptr};
  berval value{0, nullptr};
  if (ber_scanf(ber, "{mm}", &type, &value) == LBER_ERROR) malformed("attribute value assertion");
  return "(" + text(type) + operation + escaped(text(value)) + ")";
}

std::string substrings(BerElement* ber) {
  berval type{0, nullptr};
  if (ber_scanf(ber, "{m", &type) == LBER_ERROR) malformed("substrings filter");
  std::string initial;
  std::string middle;
  std::string final;
  ber_len_t length = 0;
  char* last = nullptr;
  for (ber_tag_t tag = ber_first_element(ber, &length, &last); tag != LBER_DEFAULT;
       tag = ber_next_element(ber, &length, last)) {
    const std::string part = escaped(readString(ber, "substring"));
    if (tag == LDAP_SUBSTRING_INITIAL) {
      initial = part;
    } else if (tag == LDAP_SUBSTRING_ANY) {
      middle += "*" + part;
    } else if (tag == LDAP_SUBSTRING_FINAL) {
      final = part;
    } else {
      malformed("substring choice");
    }
  }
  return "(" + text(type) + "=" + initial + middle + "*" + final + ")";
}

std::string extensibleMatch(BerElement* ber) {
  std::string rule;
  std::string type;
  std::string value;
  bool dnAttributes = false;
  ber_len_t length = 0;
  char* last = nullptr;
  for (ber_tag_t tag = ber_first_element(ber, &length, &last); tag != LBER_DEFAULT;
       tag = ber_next_element(ber, &length, last)) {
    if (tag == LDAP_FILTER_EXT_DNATTRS) {
      ber_int_t flag = 0;
      if (ber_scanf(ber, "b", &flag) == LBER_ERROR) malformed("dnAttributes");
      dnAttributes = flag != 0;
    } else {
      const std::string part = readString(ber, "extensible match");
      if (tag == LDAP_FILTER_EXT_OID) {
        rule = part;
      } else if (tag == LDAP_FILTER_EXT_TYPE) {
        type = part;
      } else if (tag == LDAP_FILTER_EXT_VALUE) {
        value = part;
      } else {
        malformed("extensible match field");
      }
    }
  }
  return "(" + type + (dnAttributes ? ":dn" : "") + (rule.empty() ? "" : ":" + rule) + ":=" + escaped(value) + ")";
}

std::string filterText(BerElement* ber, int depth) {
  if (depth > DEEPEST_FILTER) malformed("filter nested too deeply");
  ber_len_t length = 0;
  switch (ber_peek_tag(ber, &length)) {
    case LDAP_FILTER_AND:
      return filterList(ber, "(&", depth);
    case LDAP_FILTER_OR:
      return filterList(ber, "(|", depth);
    case LDAP_FILTER_NOT:
      if (ber_skip_tag(ber, &length) == LBER_ERROR) malformed("not filter");
      return "(!" + filterText(ber, depth + 1) + ")";
    case LDAP_FILTER_EQUALITY:
      return assertion(ber, "=");
    case LDAP_FILTER_GE:
      return assertion(ber, ">=");
    case LDAP_FILTER_LE:
      return assertion(ber, "<=");
    case LDAP_FILTER_APPROX:
      return assertion(ber, "~=");
    case LDAP_FILTER_PRESENT:
      return "(" + readString(ber, "present filter") + "=*)";
    case LDAP_FILTER_SUBSTRINGS:
      return substrings(ber);
    case LDAP_FILTER_EXT:
      return extensibleMatch(ber);
    default:
      malformed("filter choice");
  }
}

void decodeBind(BerElement* ber, LdapRequestDecoder::Request& request) {
  ber_int_t version = 0;
  berval name{0, nullptr};
  if (ber_scanf(ber, "im", &version, &name) == LBER_ERROR) malformed("bind request");
  request.bindDn = text(name);
  ber_len_t length = 0;
  if (ber_peek_tag(ber, &length) == LDAP_AUTH_SIMPLE) request.bindPassword = readString(ber, "simple bind password");
}

void decodeSearch(BerElement* ber, FakeDirectory::SearchRequest& search) {
  berval base{0, nullptr};
  ber_int_t scope = 0;
  ber_int_t dereferenceAliases = 0;
  ber_int_t sizeLimit = 0;
  ber_int_t timeLimit = 0;
  ber_int_t typesOnly = 0;
  if (ber_scanf(ber, "meeiib", &base, &scope, &dereferenceAliases, &sizeLimit, &timeLimit, &typesOnly) == LBER_ERROR) {
    malformed("search request");
  }
  search.base = text(base);
  search.scope = scope;
  search.sizeLimit = sizeLimit;
  search.timeLimit = timeLimit;
  search.typesOnly = typesOnly != 0;
  search.filter = filterText(ber, 0);
  ber_len_t length = 0;
  char* last = nullptr;
  for (ber_tag_t tag = ber_first_element(ber, &length, &last); tag != LBER_DEFAULT;
       tag = ber_next_element(ber, &length, last)) {
    search.attributes.push_back(readString(ber, "attribute selection"));
  }
}

std::vector<std::string> controlOids(BerElement* ber) {
  std::vector<std::string> oids;
  ber_len_t length = 0;
  char* last = nullptr;
  for (ber_tag_t tag = ber_first_element(ber, &length, &last); tag != LBER_DEFAULT;
       tag = ber_next_element(ber, &length, last)) {
    // Only the type is kept: the criticality and value that may follow are skipped with the control.
    berval control{0, nullptr};
    if (ber_skip_element(ber, &control) == LBER_ERROR) malformed("control");
    const Reader fields(control);
    oids.push_back(readString(fields, "control type"));
  }
  return oids;
}

}  // namespace

std::size_t LdapRequestDecoder::messageLength(const std::string& data, std::size_t from) {
  if (from > data.size() || data.size() - from < 2) return 0;
  const std::size_t available = data.size() - from;
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data.data() + from);
  if (bytes[0] != SEQUENCE_TAG) malformed("tag " + std::to_string(bytes[0]) + " where a message starts");
  std::size_t header = 2;
  std::uint32_t content = bytes[1];
  if (content >= 0x80) {
    const std::size_t lengthBytes = content & 0x7fU;
    // An indefinite length (no length bytes) is not allowed in LDAP.
    if (lengthBytes == 0 || lengthBytes > 4) malformed("length of " + std::to_string(lengthBytes) + " bytes");
    if (available < header + lengthBytes) return 0;
    content = 0;
    // At most four bytes: the value fits in 32 bits.
    for (std::size_t i = 0; i < lengthBytes; ++i) content = (content << 8) | bytes[header + i];
    header += lengthBytes;
  }
  if (content > LARGEST_MESSAGE) malformed("message longer than " + std::to_string(LARGEST_MESSAGE) + " bytes");
  const std::size_t total = header + content;
  return available >= total ? total : 0;
}

LdapRequestDecoder::Request LdapRequestDecoder::decode(const std::string& message) {
  Request request;
  const Reader ber(message.data(), message.size());
  ber_int_t messageId = 0;
  if (ber_scanf(ber, "{i", &messageId) == LBER_ERROR) malformed("message id");
  request.messageId = messageId;
  // Skipped whole, so that the controls after it are found however much of it is read below.
  berval operation{0, nullptr};
  request.operation = ber_skip_element(ber, &operation);
  if (request.operation == LBER_ERROR) malformed("protocol operation");
  ber_len_t length = 0;
  if (ber_peek_tag(ber, &length) == LDAP_TAG_CONTROLS) request.search.controls = controlOids(ber);

  if (request.operation == LDAP_REQ_BIND) {
    decodeBind(Reader(operation), request);
  } else if (request.operation == LDAP_REQ_SEARCH) {
    decodeSearch(Reader(operation), request.search);
  } else if (request.operation == LDAP_REQ_EXTENDED) {
    request.extendedOid = readString(Reader(operation), "extended request name");
  }
  return request;
}

}  // namespace TestDirectory
