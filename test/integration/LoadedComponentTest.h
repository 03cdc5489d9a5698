#ifndef TEST_INTEGRATION_LOADED_COMPONENT_TEST_H
#define TEST_INTEGRATION_LOADED_COMPONENT_TEST_H

#include "FrameworkTestBase.h"
#include "QiveaStandIn.h"

#include <Framework/ComponentLibrary.h>
#include <PymMwSpiAccessManagement.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

// The built library loaded with dlopen and initialised on the framework stand-in, with its
// offered tables at hand as the framework calls them; the qivea stand-in applies what it sends.
// Stopped before it is unloaded, as the framework does.
class LoadedComponentTest : public FrameworkTestBase {
 protected:
  explicit LoadedComponentTest(const std::string& model = "ldap20.xml")
      : FrameworkTestBase(model), library(new Framework::ComponentLibrary(QIV_COMPONENT_LIBRARY)) {}

  ~LoadedComponentTest() override {
    if (descriptor != nullptr) descriptor->stop(PymStateChangeShutdown);
  }

  // pymLCMinit with the component file, then the descriptor and tables the framework holds.
  void initialize(const std::string& config) {
    ASSERT_EQ(0, library->init(framework().accessor(), config.c_str()));
    ASSERT_EQ(1u, framework().portal().components().size());
    descriptor = framework().portal().components().front();
    accessManagement = reinterpret_cast<PymMwSpiAccessManagement_2*>(descriptor->interfaceArray[0]);
    managedObject1 = reinterpret_cast<PymOamSpiManagedObject_1*>(descriptor->interfaceArray[1]);
    managedObject = reinterpret_cast<PymOamSpiManagedObject_3*>(descriptor->interfaceArray[2]);
    resource = reinterpret_cast<PymOamSpiTransactionalResource_2*>(descriptor->interfaceArray[3]);
  }

  QiveaStandIn qivea{QIVEA_DIR};
  std::unique_ptr<Framework::ComponentLibrary> library;
  PymMgmtSpiComponent_2* descriptor = nullptr;
  PymMwSpiAccessManagement_2* accessManagement = nullptr;
  PymOamSpiManagedObject_1* managedObject1 = nullptr;
  PymOamSpiManagedObject_3* managedObject = nullptr;
  PymOamSpiTransactionalResource_2* resource = nullptr;
};

#endif
