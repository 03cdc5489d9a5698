#ifndef QIV_FUZZ_FUZZ_SCRIPT_H
#define QIV_FUZZ_FUZZ_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A fuzz input read as a script of "key value" records, so that seeds are readable and
// libFuzzer still mutates plain bytes:
//   key value      one record per line; the value is the rest of the line (any byte but a line feed)
//   key:N          the N bytes after this line's line feed are the value (line feeds and NULs
//                  included); cut short at the end of the input
class FuzzScript {
 public:
  using Record = std::pair<std::string, std::string>;

  FuzzScript(const uint8_t* data, std::size_t size);

  const std::vector<Record>& records() const { return _records; }

  // The decimal number at the start of text (sign allowed), wrapped to 64 bits; 0 when there is none.
  static int64_t number(const std::string& text);
  // "1", "true", "yes" and "on" are true; anything else is false.
  static bool flag(const std::string& text);

 private:
  std::vector<Record> _records;
};

#endif
