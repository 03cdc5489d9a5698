#include <Framework/ValueText.h>

#include <Framework/ValueCodec.h>

#include <algorithm>
#include <map>
#include <stdexcept>

namespace Framework {

namespace {

// Characters a bare scalar inside a structure may not hold.
const char kSpecial[] = ",{}[]\"\\";

[[noreturn]] void fail(const std::string& text, std::size_t at, const std::string& what) {
  throw std::invalid_argument(what + (at < text.size() ? " at offset " + std::to_string(at) : " at the end"));
}

bool next(const std::string& text, std::size_t at, char wanted) { return at < text.size() && text[at] == wanted; }

void expect(const std::string& text, std::size_t& at, char wanted) {
  if (!next(text, at, wanted)) fail(text, at, std::string("expected '") + wanted + "'");
  ++at;
}

std::string readQuoted(const std::string& text, std::size_t& at) {
  std::string result;
  for (++at; at < text.size(); ++at) {
    if (text[at] == '"') {
      ++at;
      return result;
    }
    if (text[at] == '\\') {
      ++at;
      if (!next(text, at, '"') && !next(text, at, '\\')) fail(text, at, "expected \" or \\ after \\");
    }
    result += text[at];
  }
  fail(text, at, "unterminated quoted text");
}

std::string readScalar(const std::string& text, std::size_t& at) {
  if (next(text, at, '"')) return readQuoted(text, at);
  const std::size_t end = std::min(text.find_first_of(kSpecial, at), text.size());
  if (end == at) fail(text, at, "expected a value");
  std::string result = text.substr(at, end - at);
  at = end;
  return result;
}

AttributeValue readStructure(const AttributeDefinition& definition, const std::string& text, std::size_t& at);

AttributeValue readValue(const AttributeDefinition& definition, const std::string& text, std::size_t& at) {
  if (definition.type == PymMoValueType_Struct) return readStructure(definition, text, at);
  return ValueCodec::fromText(definition, readScalar(text, at));
}

// One value, or a bracketed list of them.
std::vector<AttributeValue> readMemberValues(const AttributeDefinition& definition, const std::string& text,
                                             std::size_t& at) {
  if (!next(text, at, '[')) return {readValue(definition, text, at)};
  std::vector<AttributeValue> values;
  ++at;
  if (next(text, at, ']')) {
    ++at;
    return values;
  }
  for (;;) {
    values.push_back(readValue(definition, text, at));
    if (!next(text, at, ',')) break;
    ++at;
  }
  expect(text, at, ']');
  return values;
}

AttributeValue readStructure(const AttributeDefinition& definition, const std::string& text, std::size_t& at) {
  expect(text, at, '{');
  std::map<std::string, std::vector<AttributeValue>> members;
  if (next(text, at, '}')) {
    ++at;
    return ValueCodec::structure(definition, members);
  }
  for (;;) {
    const std::size_t equals = text.find('=', at);
    if (equals == std::string::npos || equals == at || text.find_first_of(kSpecial, at) < equals) {
      fail(text, at, "expected member=value");
    }
    const std::string name = text.substr(at, equals - at);
    const AttributeDefinition* member = definition.member(name);
    if (member == nullptr) throw std::invalid_argument("\"" + definition.name + "\" has no member \"" + name + "\"");
    if (members.count(name) != 0) {
      throw std::invalid_argument("member \"" + name + "\" of \"" + definition.name + "\" given twice");
    }
    at = equals + 1;
    members[name] = readMemberValues(*member, text, at);
    if (!next(text, at, ',')) break;
    ++at;
  }
  expect(text, at, '}');
  return ValueCodec::structure(definition, members);
}

std::string quoted(const std::string& text) {
  if (!text.empty() && text.find_first_of(kSpecial) == std::string::npos) return text;
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') result += '\\';
    result += character;
  }
  return result + '"';
}

std::string writeStructure(const AttributeDefinition& definition, const AttributeValue& value);

std::string writeMemberValue(const AttributeDefinition& definition, const AttributeValue& value) {
  if (definition.type == PymMoValueType_Struct) return writeStructure(definition, value);
  return quoted(ValueCodec::toText(definition, value));
}

std::string writeStructure(const AttributeDefinition& definition, const AttributeValue& value) {
  std::string result = "{";
  for (const auto& member : value.members) {
    const AttributeDefinition* memberDefinition = definition.member(member.first);
    if (memberDefinition == nullptr) {
      throw std::invalid_argument("\"" + definition.name + "\" has no member \"" + member.first + "\"");
    }
    if (result.size() > 1) result += ',';
    result += member.first + '=';
    if (!memberDefinition->sequence && member.second.size() == 1) {
      result += writeMemberValue(*memberDefinition, member.second.front());
      continue;
    }
    result += '[';
    for (std::size_t i = 0; i < member.second.size(); ++i) {
      if (i != 0) result += ',';
      result += writeMemberValue(*memberDefinition, member.second[i]);
    }
    result += ']';
  }
  return result + '}';
}

}  // namespace

AttributeValue ValueText::parse(const AttributeDefinition& definition, const std::string& text) {
  if (definition.type != PymMoValueType_Struct) return ValueCodec::fromText(definition, text);
  try {
    std::size_t at = 0;
    AttributeValue value = readStructure(definition, text, at);
    if (at != text.size()) fail(text, at, "unexpected text");
    return value;
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument("bad value \"" + text + "\" for \"" + definition.name + "\": " + error.what());
  }
}

std::vector<AttributeValue> ValueText::parseAll(const AttributeDefinition& definition,
                                                const std::vector<std::string>& texts) {
  ValueCodec::checkCount(definition, texts.size());
  std::vector<AttributeValue> values;
  for (const std::string& text : texts) values.push_back(parse(definition, text));
  return values;
}

std::string ValueText::format(const AttributeDefinition& definition, const AttributeValue& value) {
  if (definition.type == PymMoValueType_Struct) return writeStructure(definition, value);
  return ValueCodec::toText(definition, value);
}

std::vector<std::string> ValueText::formatAll(const AttributeDefinition& definition,
                                              const std::vector<AttributeValue>& values) {
  std::vector<std::string> texts;
  for (const AttributeValue& value : values) texts.push_back(format(definition, value));
  return texts;
}

}  // namespace Framework
