#ifndef QIV_ACCESS_MANAGEMENT_SESSION_GUARD_H
#define QIV_ACCESS_MANAGEMENT_SESSION_GUARD_H

#include <ldap.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace Ldap {

// Bounds what one LDAP session can cost, whatever the directory does. It is registered with
// libldap as the handle's connection callback and slips an I/O layer over the socket of every
// connection the handle opens (referrals included): a read or write that would block waits for
// the socket until the session's deadline at most, so a silent server or a stalled TLS handshake
// ends at the deadline and no wait spins; and it counts what the directory sends, cutting the connection past a cap.
// It also notes which server a connection reached and whether an operation met silence, a
// closed or reset connection, or the cap. Used by one thread at a time: the wrapper's, under
// the wrapper's lock (libldap calls back on the thread that runs the operation).
class SessionGuard {
 public:
  SessionGuard();
  SessionGuard(const SessionGuard&) = delete;
  SessionGuard& operator=(const SessionGuard&) = delete;

  // A new session: the deadline is seconds from now (none for seconds <= 0), nothing counted.
  void start(int seconds);
  // Registers the connection callbacks on ld; the guard must outlive the handle.
  void attach(LDAP* ld);

  // An operation begins: forgets what the previous one met.
  void beginOperation();
  // True when the deadline has passed.
  bool expired() const;
  // configured, shortened to what is left before the deadline (at least 1 ms while any is left).
  timeval bounded(const timeval& configured) const;
  // True when the running operation met the deadline, a closed or reset connection, or the cap.
  bool silenceMet() const { return _silenceMet; }
  // "address:port" of the last connection made; empty when none was.
  const std::string& server() const { return _server; }

  // What the directory may send over one session, and in one message.
  static const std::size_t MAX_SESSION_BYTES = 16u * 1024u * 1024u;

 private:
  static int connectionAdded(LDAP* ld, Sockbuf* sb, LDAPURLDesc* srv, sockaddr* addr, ldap_conncb* callbacks);
  static void connectionRemoved(LDAP* ld, Sockbuf* sb, ldap_conncb* callbacks);
  static int setupLayer(Sockbuf_IO_Desc* layer, void* guard);
  static int controlLayer(Sockbuf_IO_Desc* layer, int option, void* argument);
  static ber_slen_t readLayer(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t length);
  static ber_slen_t writeLayer(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t length);

  // Waits until fd is ready for events or the deadline passes; false (silence noted) then.
  bool waitFor(ber_socket_t fd, short events);
  // Milliseconds left before the deadline, -1 without one.
  int remainingMilliseconds() const;

  static Sockbuf_IO _layer;

  ldap_conncb _callbacks;
  bool _hasDeadline;
  std::chrono::steady_clock::time_point _deadline;
  std::size_t _received;
  bool _silenceMet;
  std::string _server;
};

}  // namespace Ldap

#endif
