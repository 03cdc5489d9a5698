#ifndef QIV_SEC_API_H
#define QIV_SEC_API_H

#include <memory>
#include <string>

namespace Qiv {

// The security framework's credential-update service, "libsec_credu_api.so.1", opened by that
// name at construction (the loader's search path decides where from) and closed at
// destruction: subscriptions to a node credential and a trust category, the names of their
// files and an event descriptor that tells when those change.
// One thread subscribes, waits on the descriptor and handles events; any thread may ask
// isAvailable().
class SecApi {
 public:
  // A missing library, or one without the expected entry points, leaves the object not
  // available; a trace says why.
  SecApi();
  ~SecApi();
  SecApi(const SecApi&) = delete;
  SecApi& operator=(const SecApi&) = delete;

  // True while the library is loaded and its service answers.
  bool isAvailable() const;

  // Subscribes to the node credential and the trust category (MO references), replacing an
  // earlier subscription. 0 on success, -1 otherwise.
  int subscribe(const std::string& nodeCredentialMoRef, const std::string& trustCategoryMoRef);

  // Readable while an event is pending; -1 before the first successful subscription or
  // without the library. Owned by this object.
  int getEventFd() const;

  // Reads the pending event without blocking; true when certificates or keys changed.
  bool handleEvent();

  // Current names for the subscription; empty when not subscribed or not known.
  std::string getNodeCertFileName();
  std::string getNodeKeyFileName();
  std::string getTrustCatDirName();

 private:
  struct Library;

  // Loads the library and opens a session; null, after a trace, when either fails.
  static std::unique_ptr<Library> openLibrary();
  // which: a sec_credu_file.
  std::string getFileName(int which);

  // Null when the library could not be used.
  const std::unique_ptr<Library> _library;
};

}  // namespace Qiv

#endif
