#ifndef TEST_INTEGRATION_WITH_SECURITY_API_H
#define TEST_INTEGRATION_WITH_SECURITY_API_H

#include "SecCreduStandIn.h"

#include <PymMgmtSpiComponent.h>

#include <dlfcn.h>

// Fixture, with the security API's library loaded while the component runs, so that its
// configuration thread waits in select. Fixture holds the component's descriptor and library.
template <class Fixture>
class WithSecurityApi : public Fixture {
 protected:
  WithSecurityApi() : _library(dlopen(SEC_CREDU_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}

  // The component stops and goes before the library it uses.
  ~WithSecurityApi() override {
    if (this->descriptor != nullptr) this->descriptor->stop(PymStateChangeShutdown);
    this->descriptor = nullptr;
    this->library.reset();
    if (_library != nullptr) dlclose(_library);
  }

  SecCreduStandIn security;

 private:
  void* _library;
};

#endif
