#include "ElfDynamicSymbols.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

// The loader must see the component under its soname, and nothing of it but its C entry points:
// the library entry and the functions of its offered tables.
TEST(ExportedSymbolsTest, LibraryHasItsSonameAndExportsOnlyTheEntryPoints) {
  const ElfDynamicSymbols library(QIV_COMPONENT_LIBRARY);
  EXPECT_EQ("libqiv_access_mgmt.so", library.soname());

  std::set<std::string> component;
  for (const std::string& name : library.defined()) {
    // Symbols the toolchain adds to every shared object are not the component's.
    if (name == "_init" || name == "_fini" || name == "_edata" || name == "_end" || name == "__bss_start" ||
        name.rfind("__asan", 0) == 0 || name.rfind("__ubsan", 0) == 0 || name.rfind("__sanitizer", 0) == 0 ||
        name.rfind("__lsan", 0) == 0)
      continue;
    component.insert(name);
  }
  const std::set<std::string> entryPoints = {
      "pymLCMinit",           "pymLCMterminate",         "am_getRoles_2",        "am_freeRoles_2",
      "am_setMoAttribute_1",  "am_getMoAttribute_1",     "am_newMoIterator_1",   "am_nextMo_1",
      "am_createMo_1",        "am_deleteMo_1",           "am_action_1",          "am_setMoAttribute_3",
      "am_getMoAttribute_3",  "am_getMoAttributes_3",    "am_newMoIterator_3",   "am_nextMo_3",
      "am_createMo_3",        "am_deleteMo_3",           "am_action_3",          "am_finalizeMoIterator_3",
      "am_existsMo_3",        "am_countMoChildren_3",    "am_join_2",            "am_prepare_2",
      "am_commit_2",          "am_abort_2",              "am_finish_2",          "am_validate_2",
      "am_releaseGetMoAttribute", "am_releaseGetMoAttributes"};
  EXPECT_EQ(entryPoints, component);
}
