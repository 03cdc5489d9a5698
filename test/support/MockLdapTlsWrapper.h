#ifndef TEST_MOCK_LDAP_TLS_WRAPPER_H
#define TEST_MOCK_LDAP_TLS_WRAPPER_H

#include "ILdapTlsWrapper.h"

#include <gmock/gmock.h>

#include <list>
#include <string>

// The LDAP client as a GoogleMock double, for scripting what the directory answers and checking
// the order of the calls made on it.
class MockLdapTlsWrapper : public Ldap::ILdapTlsWrapper {
 public:
  MOCK_METHOD(bool, setCaCertificate, (const std::string& file), (override));
  MOCK_METHOD(bool, setCaCertDirectory, (const std::string& dir), (override));
  MOCK_METHOD(bool, setClientCertificate, (const std::string& file), (override));
  MOCK_METHOD(bool, setClientKey, (const std::string& file), (override));
  MOCK_METHOD(bool, setCipherSuite, (const std::string& ciphers), (override));
  MOCK_METHOD(bool, setRequireCert, (Ldap::ReqCertOptionT option), (override));
  MOCK_METHOD(bool, setSynchronousTimeout, (int seconds), (override));
  MOCK_METHOD(bool, setNetworkTimeout, (int seconds), (override));
  MOCK_METHOD(bool, setLdapOptReferrals, (bool on), (override));
  MOCK_METHOD(bool, setLdapOptServerControls, (), (override));
  MOCK_METHOD(bool, createNewCtx, (), (override));
  MOCK_METHOD(bool, connect,
              (Ldap::TlsModeConnection mode, const std::string& host, const std::string& fallbackHost), (override));
  MOCK_METHOD(void, disconnect, (), (override));
  MOCK_METHOD(bool, startTls, (), (override));
  MOCK_METHOD(bool, bind, (const std::string& dn, const std::string& password), (override));
  MOCK_METHOD(bool, ping, (), (override));
  MOCK_METHOD(bool, deleteEntry, (const std::string& dn), (override));
  MOCK_METHOD(std::list<std::string>, search,
              (const std::string& base, Ldap::ScopeT scope, const std::string& filter,
               const std::list<std::string>* attributes),
              (override));

  // Not mocked, so that strict tests need not expect it: what a test sets is what it answers.
  Ldap::OperationOutcome lastOutcome() const override { return outcome; }
  Ldap::OperationOutcome outcome;
};

#endif
