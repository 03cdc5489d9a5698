#ifndef TEST_DESCRIPTOR_IDENTITIES_H
#define TEST_DESCRIPTOR_IDENTITIES_H

#include <PymSpiTypes.h>

#include <string>
#include <vector>

// The component descriptor's arrays as "component / interface / version" texts, and what the
// access-management component must list in them.
namespace DescriptorIdentities {

inline std::string text(const char* value) { return value != nullptr ? value : "(null)"; }

inline std::string identity(const PymMgmtSpiInterface_1* id) {
  return text(id->componentName) + " / " + text(id->interfaceName) + " / " + text(id->interfaceVersion);
}

// The identities of a null-terminated array.
inline std::vector<std::string> identities(PymMgmtSpiInterface_1* const* array) {
  std::vector<std::string> result;
  for (; *array != nullptr; ++array) result.push_back(identity(*array));
  return result;
}

inline std::vector<std::string> offeredInterfaces() {
  return {"QivAccessManagementComponent / PymMwSpiAccessManagement / 2",
          "QivAccessManagementComponent / PymOamSpiManagedObject / 1",
          "QivAccessManagementComponent / PymOamSpiManagedObject / 3",
          "QivAccessManagementComponent / PymOamSpiTransactionalResource / 2"};
}

inline std::vector<std::string> requiredDependencies() {
  return {"QivMgmtSpiPortalService / QivMgmtSpiInterfacePortal / 1",
          "(null) / PymMwSpiTrace / (null)",
          "(null) / PymMwSpiLog / 1",
          "PymMgmtSpiThreadContextService / PymMgmtSpiThreadContext / 2",
          "PymOamSpiCmRouterService / PymOamSpiManagedObject / 1",
          "QivOamSpiExtCmRouterService / QivOamSpiManagedObject / 3",
          "PymOamSpiCmRouterService / PymOamSpiManagedObject / 3",
          "PymOamSpiCmRouterService / PymOamSpiManagedObject / 3_1",
          "PymOamSpiTransactionService / PymOamSpiTransactionMaster / 2",
          "PymOamSpiTransactionService / PymOamSpiTransaction / 2"};
}

inline std::vector<std::string> optionalDependencies() {
  return {"(null) / PymOamSpiRegisterObjectImplementer / 2", "(null) / PymOamSpiRegisterObjectImplementer / 3"};
}

}  // namespace DescriptorIdentities

#endif
