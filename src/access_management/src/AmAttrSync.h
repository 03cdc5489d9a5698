#ifndef QIV_ACCESS_MANAGEMENT_AM_ATTR_SYNC_H
#define QIV_ACCESS_MANAGEMENT_AM_ATTR_SYNC_H

#include <QivExtCmRouterService/MoInterceptorBase.h>

#include <atomic>
#include <vector>

namespace QivAccessManagement {
class ConfigurationRunnable;
}

// What the three attribute-synchronisation interceptors share: registration for one MO class,
// the "Ldap 2.0 attributes exist" gate, and writing the partner of a written attribute before
// the write itself is carried on. Partner writes go through the next interface in the caller's
// transaction, so they are never intercepted again. Writes arrive on framework threads.
class AmAttrSync : public QivExtCmRouterService::MoInterceptorBase {
 public:
  ~AmAttrSync() override;

  // Keeps runnable, which must outlive the registration, finds the framework's interfaces and
  // registers for the class; a refused registration is only logged (level 3). Control thread.
  void init(QivAccessManagement::ConfigurationRunnable& runnable);
  // Withdraws the registration when init found a repository: the repository's result, else 0.
  PymReturnT deregisterInterceptor();

  // Carried on unchanged while the Ldap 2.0 attributes do not exist (or before init).
  // Otherwise the partner of attributeName is written first; when that is refused, its result
  // is returned and the write is not carried on.
  PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                            const QivMoAttributeValueContainer_3* value) override;
  // As setMoAttribute for each attribute of the list, in order, once checkRequest let the list
  // through; then the list is carried on as it is.
  PymReturnT setMoAttributes(unsigned long txHandle, const char* dn,
                             PymMoNamedAttributeValueContainer_3** attributes) override;

 protected:
  // An attribute whose values are copied as they are to an attribute of another object.
  struct CopiedAttribute {
    const char* name;
    const char* partnerDn;
    const char* partnerName;
    const char* failureText;  // logged at level 3 when the partner write is refused
  };

  // The strings must be static.
  AmAttrSync(const char* className, const char* registrationFailureText, std::vector<CopiedAttribute> copied);

  // Writes the partner of attributeName, if it has one and value is not null: 0 when written
  // or when there is nothing to write, else the result to return (already logged).
  // singleWrite: the request is a setMoAttribute (one failure text depends on it).
  virtual PymReturnT writePartner(unsigned long txHandle, const char* dn, const char* attributeName,
                                  const QivMoAttributeValueContainer_3* value, bool singleWrite);
  // Runs before anything of a setMoAttributes request is written: 0 lets it through, any other
  // result is returned as it is.
  virtual PymReturnT checkRequest(PymMoNamedAttributeValueContainer_3** attributes);

  // Writes value to attribute name of dn through the next interface; a refusal is logged at
  // level 3 as failureText and returned.
  PymReturnT writeThroughNext(unsigned long txHandle, const char* dn, const char* name,
                              const QivMoAttributeValueContainer_3& value, const char* failureText);

  // Null before init.
  QivAccessManagement::ConfigurationRunnable* getRunnable() const;

 private:
  bool isSynchronising() const;

  const char* const _className;
  const char* const _registrationFailureText;
  const std::vector<CopiedAttribute> _copied;
  std::atomic<QivAccessManagement::ConfigurationRunnable*> _runnable;
};

#endif
