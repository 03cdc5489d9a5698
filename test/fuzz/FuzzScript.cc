#include "FuzzScript.h"

FuzzScript::FuzzScript(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string::size_type position = 0;
  while (position < text.size()) {
    std::string::size_type end = text.find('\n', position);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(position, end - position);
    position = end + 1;
    const std::string::size_type blank = line.find(' ');
    const std::string::size_type colon = line.rfind(':', blank);
    if (blank == std::string::npos && colon != std::string::npos && colon + 1 < line.size() &&
        line.find_first_not_of("0123456789", colon + 1) == std::string::npos) {
      // A counted value: its bytes follow the line whatever they hold.
      const std::size_t length = static_cast<std::size_t>(number(line.substr(colon + 1)));
      const std::size_t available = position < text.size() ? text.size() - position : 0;
      const std::size_t taken = length < available ? length : available;
      _records.emplace_back(line.substr(0, colon), position < text.size() ? text.substr(position, taken) : "");
      position += taken;
      continue;
    }
    if (blank == std::string::npos) {
      _records.emplace_back(line, std::string());
    } else {
      _records.emplace_back(line.substr(0, blank), line.substr(blank + 1));
    }
  }
}

int64_t FuzzScript::number(const std::string& text) {
  std::string::size_type position = 0;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative || (!text.empty() && text[0] == '+')) ++position;
  uint64_t value = 0;
  for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position)
    value = value * 10 + static_cast<uint64_t>(text[position] - '0');
  // Wrapping, not overflow: any digits give some number.
  return static_cast<int64_t>(negative ? 0 - value : value);
}

bool FuzzScript::flag(const std::string& text) {
  return text == "1" || text == "true" || text == "yes" || text == "on";
}
