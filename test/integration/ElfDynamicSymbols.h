#ifndef TEST_ELF_DYNAMIC_SYMBOLS_H
#define TEST_ELF_DYNAMIC_SYMBOLS_H

#include <set>
#include <string>

// What a 64-bit ELF shared object offers the dynamic loader: its soname and the global
// symbols it defines. Throws std::runtime_error for a file that is not such an object.
class ElfDynamicSymbols {
 public:
  explicit ElfDynamicSymbols(const std::string& path);

  const std::string& soname() const { return _soname; }
  // Defined global and weak symbols of the dynamic symbol table.
  const std::set<std::string>& defined() const { return _defined; }

 private:
  std::string _soname;
  std::set<std::string> _defined;
};

#endif
