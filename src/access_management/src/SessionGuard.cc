#include "SessionGuard.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

namespace Ldap {

namespace {

// Between the socket (provider) and TLS (transport), so that TLS reads through it.
const int GUARD_LEVEL = LBER_SBIOD_LEVEL_PROVIDER + 1;

// "address:port", an IPv6 address in brackets, as the configuration composes a server.
std::string serverOf(const LDAPURLDesc* srv) {
  if (srv == nullptr || srv->lud_host == nullptr) return std::string();
  const std::string host = srv->lud_host;
  const std::string address = host.find(':') != std::string::npos ? "[" + host + "]" : host;
  return address + ":" + std::to_string(srv->lud_port);
}

bool wouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

ber_socket_t socketOf(Sockbuf_IO_Desc* layer) {
  ber_socket_t fd = -1;
  ber_sockbuf_ctrl(layer->sbiod_sb, LBER_SB_OPT_GET_FD, &fd);
  return fd;
}

}  // namespace

Sockbuf_IO SessionGuard::_layer = {&SessionGuard::setupLayer, nullptr, &SessionGuard::controlLayer,
                                   &SessionGuard::readLayer,  &SessionGuard::writeLayer, nullptr};

SessionGuard::SessionGuard() : _hasDeadline(false), _received(0), _silenceMet(false) {
  _callbacks.lc_add = &SessionGuard::connectionAdded;
  _callbacks.lc_del = &SessionGuard::connectionRemoved;
  _callbacks.lc_arg = this;
}

void SessionGuard::start(int seconds) {
  _hasDeadline = seconds > 0;
  _deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  _received = 0;
  _silenceMet = false;
  _server.clear();
}

void SessionGuard::attach(LDAP* ld) { ldap_set_option(ld, LDAP_OPT_CONNECT_CB, &_callbacks); }

void SessionGuard::beginOperation() { _silenceMet = false; }

bool SessionGuard::expired() const { return _hasDeadline && remainingMilliseconds() == 0; }

timeval SessionGuard::bounded(const timeval& configured) const {
  if (!_hasDeadline) return configured;
  const long long left = remainingMilliseconds();
  const long long wanted = static_cast<long long>(configured.tv_sec) * 1000 + configured.tv_usec / 1000;
  if (configured.tv_sec >= 0 && wanted <= left) return configured;
  const long long milliseconds = left > 0 ? left : 1;
  timeval result;
  result.tv_sec = static_cast<time_t>(milliseconds / 1000);
  result.tv_usec = static_cast<suseconds_t>((milliseconds % 1000) * 1000);
  return result;
}

int SessionGuard::remainingMilliseconds() const {
  if (!_hasDeadline) return -1;
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(_deadline - std::chrono::steady_clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

int SessionGuard::connectionAdded(LDAP*, Sockbuf* sb, LDAPURLDesc* srv, sockaddr*, ldap_conncb* callbacks) {
  SessionGuard* guard = static_cast<SessionGuard*>(callbacks->lc_arg);
  guard->_server = serverOf(srv);
  ber_len_t maxIncoming = MAX_SESSION_BYTES;
  ber_sockbuf_ctrl(sb, LBER_SB_OPT_SET_MAX_INCOMING, &maxIncoming);
  return ber_sockbuf_add_io(sb, &_layer, GUARD_LEVEL, guard) == 0 ? 0 : -1;
}

// The layer goes with the connection's Sockbuf; nothing of the guard's refers to it.
void SessionGuard::connectionRemoved(LDAP*, Sockbuf*, ldap_conncb*) {}

int SessionGuard::setupLayer(Sockbuf_IO_Desc* layer, void* guard) {
  layer->sbiod_pvt = guard;
  return 0;
}

int SessionGuard::controlLayer(Sockbuf_IO_Desc* layer, int option, void* argument) {
  return LBER_SBIOD_CTRL_NEXT(layer, option, argument);
}

// The socket is read here rather than through the layer below, without blocking: a read that
// would block waits in poll, until the deadline at most.
ber_slen_t SessionGuard::readLayer(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t length) {
  SessionGuard* guard = static_cast<SessionGuard*>(layer->sbiod_pvt);
  const ber_socket_t fd = socketOf(layer);
  ber_slen_t result;
  do {
    result = ::recv(fd, buffer, length, MSG_DONTWAIT);
  } while (result < 0 && (errno == EINTR || (wouldBlock(errno) && guard->waitFor(fd, POLLIN))));
  const int error = errno;
  if (result > 0) guard->_received += static_cast<std::size_t>(result);
  // A server that closed or reset the connection answers no more.
  if ((result == 0 && length > 0) || (result < 0 && !wouldBlock(error))) guard->_silenceMet = true;
  if (result > 0 && guard->_received > MAX_SESSION_BYTES) {
    guard->_silenceMet = true;
    errno = EMSGSIZE;
    return -1;
  }
  errno = error;
  return result;
}

ber_slen_t SessionGuard::writeLayer(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t length) {
  SessionGuard* guard = static_cast<SessionGuard*>(layer->sbiod_pvt);
  const ber_socket_t fd = socketOf(layer);
  ber_slen_t result;
  do {
    result = ::send(fd, buffer, length, MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (result < 0 && (errno == EINTR || (wouldBlock(errno) && guard->waitFor(fd, POLLOUT))));
  const int error = errno;
  if (result < 0 && !wouldBlock(error)) guard->_silenceMet = true;
  errno = error;
  return result;
}

// libldap leaves the socket non-blocking during a TLS handshake and then retries at once on
// EAGAIN; waiting here turns that loop into a wait, and the deadline ends it. False, with errno
// ETIMEDOUT, once the deadline has passed.
bool SessionGuard::waitFor(ber_socket_t fd, short events) {
  pollfd socket;
  socket.fd = fd;
  socket.events = events;
  for (;;) {
    socket.revents = 0;
    const int ready = ::poll(&socket, 1, remainingMilliseconds());
    if (ready > 0) return true;
    if (ready < 0 && errno == EINTR) continue;
    // A failing poll leaves the next read or write to report what is wrong.
    if (ready < 0) return true;
    _silenceMet = true;
    errno = ETIMEDOUT;
    return false;
  }
}

}  // namespace Ldap
