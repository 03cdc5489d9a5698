#ifndef SEC_CREDU_CONTROL_DIRECTORY_H
#define SEC_CREDU_CONTROL_DIRECTORY_H

#include <sec_credu_api.h>

#include <string>

namespace SecCredu {

// The stand-in's script: the directory that SEC_CREDU_HOME names, read afresh at every call so
// that a test or a person can change the answers while a client runs. Its files:
//   unavailable         present: the service does not answer
//   subscribe-fails     present: subscriptions fail
//   subscription        written at each subscription: the node-credential reference and the
//                       trust-category reference, one per line
//   node-cert-file, node-key-file, trust-category-dir
//                       first line: the name a subscription reports
//   events              a FIFO made at the first subscription; each line written to it is one
//                       event, "changed" or "unchanged"
//   event-channel-broken
//                       present: the next dispatch finds the channel broken, closes the
//                       session's event descriptor and reports an unreadable event, while
//                       sec_credu_event_fd keeps handing out the closed number (a client that
//                       waits on it gets EBADF)
// Without the variable the service answers as a healthy node with nothing to report.
class ControlDirectory {
 public:
  ControlDirectory();

  bool isSet() const;
  bool isServiceAvailable() const;
  bool isSubscriptionRefused() const;
  bool isEventChannelBroken() const;
  // Best effort: a directory that cannot be written only loses the record.
  void recordSubscription(const std::string& nodeCredential, const std::string& trustCategory) const;
  // False when the name is not scripted.
  bool fileName(sec_credu_file which, std::string& name) const;
  std::string eventsPath() const;

 private:
  bool has(const char* name) const;
  std::string path(const char* name) const;

  std::string _home;
};

}  // namespace SecCredu

#endif
