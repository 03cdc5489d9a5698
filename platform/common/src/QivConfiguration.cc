#include <Poco/DOM/DOMParser.h>
#include <Poco/Exception.h>
#include <Poco/SAX/SAXException.h>
#include <Poco/String.h>
#include <Qiv/QivConfiguration.h>
#include <Qiv/QivException.h>

namespace Qiv {

QivConfiguration::QivConfiguration() = default;

QivConfiguration::~QivConfiguration() = default;

void QivConfiguration::load(const std::string& text) {
  unload();
  try {
    Poco::XML::DOMParser parser;
    _document = parser.parseString(text);
  } catch (const Poco::XML::SAXParseException& e) {
    throw QivException("%s (line %d, column %d)", e.message().c_str(), e.getLineNumber(), e.getColumnNumber());
  } catch (const Poco::Exception& e) {
    throw QivException("%s", e.displayText().c_str());
  }
}

Poco::XML::NodeList* QivConfiguration::getElementsByTagName(const std::string& name) const {
  if (_document.isNull()) return nullptr;
  return _document->getElementsByTagName(name);
}

bool QivConfiguration::getElementValue(const QivConfiguration& config, const Poco::XML::Element* element,
                                       const std::string& key, std::string& value) {
  if (element == nullptr) return false;
  if (const Poco::XML::Element* child = element->getChildElement(key)) {
    value = Poco::trim(child->innerText());
    return true;
  }
  if (element->hasAttribute(key)) {
    value = Poco::trim(element->getAttribute(key));
    return true;
  }
  return false;
}

void QivConfiguration::unload() { _document = nullptr; }

bool QivConfiguration::isLoaded() const { return !_document.isNull(); }

}  // namespace Qiv
