#ifndef BENCH_DIRECTORY_MODEL_H
#define BENCH_DIRECTORY_MODEL_H

#include "SlapdInstance.h"

#include <Framework/ModelStore.h>

namespace Bench {

// The model on which the component's built-in lookup asks the throw-away directory: LDAP
// unlocked, filter type 2, anonymous, and no certificates from the security framework (which is
// not here): the directory's CA file is the only trust.
class DirectoryModel {
 public:
  // useTls with tlsMode "LDAPS" reaches the directory's LDAPS port, anything else its plain port
  // (StartTLS there when useTls). Without useTls, keep "STARTTLS": LDAPS would be warned about.
  static void configure(Framework::ModelStore& model, const TestDirectory::SlapdInstance& directory, bool useTls,
                        const char* tlsMode);
};

}  // namespace Bench

#endif
