#ifndef AMHOST_CONFIGURATION_PRINTER_H
#define AMHOST_CONFIGURATION_PRINTER_H

#include <Framework/ManagementFramework.h>

#include <ostream>

namespace Amhost {

// Prints the LDAP configuration objects as an operator reads them (through the CM router, so the
// component answers for its classes while it is started), the bind password masked.
class ConfigurationPrinter {
 public:
  // The framework must outlive the printer.
  explicit ConfigurationPrinter(Framework::ManagementFramework& framework);

  // One header line per object the model holds, then "  name = value..." (values quoted as
  // commands take them) or "  name (unset)" per attribute its class has. False when a read
  // failed; the reason went to err.
  bool print(std::ostream& out, std::ostream& err) const;

 private:
  Framework::ManagementFramework& _framework;
};

}  // namespace Amhost

#endif
