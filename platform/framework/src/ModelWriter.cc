#include <Framework/ModelWriter.h>

#include <Framework/ValueCodec.h>

#include <sstream>

namespace Framework {

namespace {

// Escapes for both text and attribute values; line breaks and tabs as character references so
// that they survive reading back unchanged.
std::string escape(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&': result += "&amp;"; break;
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      case '"': result += "&quot;"; break;
      case '\r': result += "&#13;"; break;
      case '\n': result += "&#10;"; break;
      case '\t': result += "&#9;"; break;
      default: result += c;
    }
  }
  return result;
}

std::string indentation(int depth) { return std::string(static_cast<std::string::size_type>(depth) * 2, ' '); }

void writeDefinition(std::ostream& out, const AttributeDefinition& definition, const char* element, int depth) {
  out << indentation(depth) << '<' << element << " name=\"" << escape(definition.name) << "\" type=\""
      << AttributeDefinition::typeName(definition.type) << '"' << (definition.sequence ? " sequence=\"true\"" : "");
  if (definition.literals.empty() && definition.members.empty()) {
    out << "/>\n";
    return;
  }
  out << ">\n";
  for (const auto& literal : definition.literals) {
    out << indentation(depth + 1) << "<literal name=\"" << escape(literal.first) << "\" value=\"" << literal.second
        << "\"/>\n";
  }
  for (const AttributeDefinition& member : definition.members) writeDefinition(out, member, "member", depth + 1);
  out << indentation(depth) << "</" << element << ">\n";
}

// One value as <element key="name">...</element>.
void writeValue(std::ostream& out, const AttributeDefinition& definition, const AttributeValue& value,
                const char* element, const char* key, int depth) {
  out << indentation(depth) << '<' << element << ' ' << key << "=\"" << escape(definition.name) << '"';
  if (definition.type != PymMoValueType_Struct) {
    out << '>' << escape(ValueCodec::toText(definition, value)) << "</" << element << ">\n";
    return;
  }
  if (value.members.empty()) {
    out << "/>\n";
    return;
  }
  out << ">\n";
  for (const auto& member : value.members) {
    for (const AttributeValue& memberValue : member.second) {
      writeValue(out, *definition.member(member.first), memberValue, "member", "name", depth + 1);
    }
  }
  out << indentation(depth) << "</" << element << ">\n";
}

}  // namespace

std::string ModelWriter::write(const ModelContent& content) {
  std::ostringstream out;
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model>\n";
  for (const ClassDefinition& definition : content.classes()) {
    out << indentation(1) << "<class path=\"" << escape(definition.path) << '"';
    if (definition.attributes.empty()) {
      out << "/>\n";
      continue;
    }
    out << ">\n";
    for (const AttributeDefinition& attribute : definition.attributes) writeDefinition(out, attribute, "attribute", 2);
    out << indentation(1) << "</class>\n";
  }
  for (const ModelObject& object : content.objects()) {
    out << indentation(1) << "<object dn=\"" << escape(object.dn) << '"';
    if (object.values.empty()) {
      out << "/>\n";
      continue;
    }
    out << ">\n";
    for (const AttributeDefinition& attribute : content.findClass(object.classPath)->attributes) {
      const auto values = object.values.find(attribute.name);
      if (values == object.values.end()) continue;
      for (const AttributeValue& value : values->second) writeValue(out, attribute, value, "value", "attribute", 2);
    }
    out << indentation(1) << "</object>\n";
  }
  out << "</model>\n";
  return out.str();
}

}  // namespace Framework
