#ifndef SEC_CREDU_CREDENTIAL_SESSION_H
#define SEC_CREDU_CREDENTIAL_SESSION_H

#include <sec_credu_api.h>

#include <string>

namespace SecCredu {

class ControlDirectory;

// One client's subscription and its event channel, answered from the control directory.
// Used by one thread at a time.
class CredentialSession {
 public:
  CredentialSession();
  ~CredentialSession();
  CredentialSession(const CredentialSession&) = delete;
  CredentialSession& operator=(const CredentialSession&) = delete;

  // 0, or -1 with an earlier subscription left as it was.
  int subscribe(const char* nodeCredential, const char* trustCategory);
  int eventFd() const;
  // 1 changed, 0 unchanged or nothing pending, -1 for any other event text and for a channel
  // the control directory declares broken (closed then; its number is still handed out).
  int dispatch();
  // Owned by the session, valid until the next call; null when not subscribed or not scripted.
  const char* fileName(sec_credu_file which);

 private:
  // Opened once, at the first subscription that gets that far.
  bool openEventChannel(const ControlDirectory& control);
  // Closes both ends once; the read end's number stays what eventFd hands out.
  void closeEventChannel();

  int _eventReadFd;
  // Kept open so that the reader never sees end-of-file when an outside writer closes.
  int _eventWriteFd;
  // Both ends closed by a broken channel; the numbers are not closed or read again.
  bool _eventChannelClosed;
  bool _subscribed;
  std::string _fileName;
};

}  // namespace SecCredu

#endif
