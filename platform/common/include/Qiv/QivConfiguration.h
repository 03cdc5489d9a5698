#ifndef QIV_QIV_CONFIGURATION_H
#define QIV_QIV_CONFIGURATION_H

#include <Poco/AutoPtr.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/Element.h>
#include <Poco/DOM/NodeList.h>

#include <string>

namespace Qiv {

// An XML configuration document, parsed with Poco XML.
class QivConfiguration {
 public:
  QivConfiguration();
  ~QivConfiguration();
  QivConfiguration(const QivConfiguration&) = delete;
  QivConfiguration& operator=(const QivConfiguration&) = delete;

  // Parses text, replacing what was loaded. A document that is not well-formed throws
  // QivException "<parser message> (line L, column C)" and leaves nothing loaded.
  void load(const std::string& text);

  // Elements of that name anywhere in the document, in document order; null when nothing is
  // loaded. The caller releases the list with release().
  Poco::XML::NodeList* getElementsByTagName(const std::string& name) const;

  // The value of key inside element: the text of its first child element named key, trimmed;
  // when there is no such child, the value of its attribute named key, trimmed. False when the
  // element has neither.
  static bool getElementValue(const QivConfiguration& config, const Poco::XML::Element* element,
                              const std::string& key, std::string& value);

  // Drops the document.
  void unload();

  bool isLoaded() const;

 private:
  Poco::AutoPtr<Poco::XML::Document> _document;
};

}  // namespace Qiv

#endif
