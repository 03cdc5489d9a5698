#include "LdapAnswerEncoder.h"

#include <ldap.h>
#include <strings.h>

#include <algorithm>
#include <new>

namespace TestDirectory {

namespace {

// A BerElement being written; each append is one ber_printf.
class Writer {
 public:
  Writer() : _ber(ber_alloc_t(LBER_USE_DER)) {
    if (_ber == nullptr) throw std::bad_alloc();
  }
  ~Writer() { ber_free(_ber, 1); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // The arguments must have the types ber_printf reads for format (ber_int_t, ber_tag_t,
  // ber_len_t, char*): they pass through varargs, where int and long differ on some platforms.
  template <typename... Arguments>
  void append(const char* format, Arguments... arguments) {
    if (ber_printf(_ber, format, arguments...) == -1) throw std::bad_alloc();
  }

  void appendOctets(const std::string& value) {
    append("o", const_cast<char*>(value.data()), static_cast<ber_len_t>(value.size()));
  }

  std::string bytes() const {
    berval flat{0, nullptr};
    if (ber_flatten2(_ber, &flat, 0) != 0) throw std::bad_alloc();
    return std::string(flat.bv_val, flat.bv_len);
  }

 private:
  BerElement* _ber;
};

ber_int_t integer(int value) { return static_cast<ber_int_t>(value); }

bool isRequested(const std::string& attribute, const std::vector<std::string>& requested) {
  if (requested.empty()) return true;
  return std::any_of(requested.begin(), requested.end(), [&attribute](const std::string& name) {
    return name == "*" || ::strcasecmp(name.c_str(), attribute.c_str()) == 0;
  });
}

// messageID and protocolOp's tag, opening the protocolOp.
void start(Writer& message, int messageId, ber_tag_t response) { message.append("{it{", integer(messageId), response); }

void appendResultFields(Writer& message, int resultCode, const std::string& diagnosticMessage) {
  message.append("e", integer(resultCode));
  message.appendOctets("");
  message.appendOctets(diagnosticMessage);
}

}  // namespace

std::string LdapAnswerEncoder::result(int messageId, ber_tag_t response, int resultCode,
                                      const std::string& diagnosticMessage,
                                      const std::vector<std::string>& referralUris) {
  Writer message;
  start(message, messageId, response);
  appendResultFields(message, resultCode, diagnosticMessage);
  if (!referralUris.empty()) {
    message.append("t{", LDAP_TAG_REFERRAL);
    for (const std::string& uri : referralUris) message.appendOctets(uri);
    message.append("}");
  }
  message.append("}}");
  return message.bytes();
}

std::string LdapAnswerEncoder::extendedResult(int messageId, int resultCode, const std::string& responseName) {
  Writer message;
  start(message, messageId, LDAP_RES_EXTENDED);
  appendResultFields(message, resultCode, "");
  if (!responseName.empty()) {
    // The tag goes in the same call as the value it applies to.
    message.append("to", LDAP_TAG_EXOP_RES_OID, const_cast<char*>(responseName.data()),
                   static_cast<ber_len_t>(responseName.size()));
  }
  message.append("}}");
  return message.bytes();
}

std::string LdapAnswerEncoder::searchEntry(int messageId, const FakeDirectory::Entry& entry,
                                           const std::vector<std::string>& requested, bool typesOnly) {
  Writer message;
  start(message, messageId, LDAP_RES_SEARCH_ENTRY);
  message.appendOctets(entry.dn);
  message.append("{");
  for (const auto& attribute : entry.attributes) {
    if (!isRequested(attribute.first, requested)) continue;
    message.append("{");
    message.appendOctets(attribute.first);
    message.append("[");
    if (!typesOnly) {
      for (const std::string& value : attribute.second) message.appendOctets(value);
    }
    message.append("]}");
  }
  message.append("}}}");
  return message.bytes();
}

std::string LdapAnswerEncoder::searchReference(int messageId, const std::string& uri) {
  Writer message;
  start(message, messageId, LDAP_RES_SEARCH_REFERENCE);
  message.appendOctets(uri);
  message.append("}}");
  return message.bytes();
}

}  // namespace TestDirectory
