#include "ElfDynamicSymbols.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace {

template <class T>
const T& at(const std::vector<char>& image, std::size_t offset) {
  if (offset + sizeof(T) > image.size()) throw std::runtime_error("truncated ELF file");
  return *reinterpret_cast<const T*>(image.data() + offset);
}

std::string stringAt(const std::vector<char>& image, std::size_t tableOffset, std::size_t index) {
  const std::size_t offset = tableOffset + index;
  if (offset >= image.size()) throw std::runtime_error("string outside the ELF file");
  return std::string(image.data() + offset, strnlen(image.data() + offset, image.size() - offset));
}

}  // namespace

ElfDynamicSymbols::ElfDynamicSymbols(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path);
  const std::vector<char> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());

  const Elf64_Ehdr& header = at<Elf64_Ehdr>(image, 0);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
    throw std::runtime_error(path + " is not a 64-bit ELF file");

  for (unsigned i = 0; i < header.e_shnum; ++i) {
    const Elf64_Shdr& section = at<Elf64_Shdr>(image, header.e_shoff + i * header.e_shentsize);
    if (section.sh_type != SHT_DYNSYM && section.sh_type != SHT_DYNAMIC) continue;
    const Elf64_Shdr& strings = at<Elf64_Shdr>(image, header.e_shoff + section.sh_link * header.e_shentsize);
    if (section.sh_type == SHT_DYNSYM) {
      for (std::size_t offset = sizeof(Elf64_Sym); offset < section.sh_size; offset += sizeof(Elf64_Sym)) {
        const Elf64_Sym& symbol = at<Elf64_Sym>(image, section.sh_offset + offset);
        const unsigned char binding = ELF64_ST_BIND(symbol.st_info);
        if (symbol.st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK))
          _defined.insert(stringAt(image, strings.sh_offset, symbol.st_name));
      }
    } else {
      for (std::size_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Dyn)) {
        const Elf64_Dyn& entry = at<Elf64_Dyn>(image, section.sh_offset + offset);
        if (entry.d_tag == DT_SONAME) _soname = stringAt(image, strings.sh_offset, entry.d_un.d_val);
      }
    }
  }
}
