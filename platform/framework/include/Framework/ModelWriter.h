#ifndef FRAMEWORK_MODEL_WRITER_H
#define FRAMEWORK_MODEL_WRITER_H

#include <Framework/ModelContent.h>

#include <string>

namespace Framework {

// Writes a model as the document ModelParser reads (format in ModelStore.h); the same content
// always gives the same text (document order; values in their class's attribute order).
class ModelWriter {
 public:
  static std::string write(const ModelContent& content);
};

}  // namespace Framework

#endif
