#include "ElfDynamicSymbols.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

// The loader must see the component under its soname, and nothing of it but its C entry points.
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
  EXPECT_EQ((std::set<std::string>{"pymLCMinit", "pymLCMterminate"}), component);
}
