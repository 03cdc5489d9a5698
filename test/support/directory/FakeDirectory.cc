#include "FakeDirectory.h"

#include "LdapAnswerEncoder.h"
#include "LdapRequestDecoder.h"
#include "LoopbackListener.h"

#include <ldap.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace TestDirectory {

namespace {

using Clock = std::chrono::steady_clock;
using Behaviour = FakeDirectory::Behaviour;

// The longest the serving thread waits before it looks at the stop flag again.
constexpr std::chrono::milliseconds LONGEST_WAIT{20};
constexpr std::size_t READ_SIZE = 64 * 1024;
// Reads and accepts per connection and turn, so that one busy client cannot starve the others.
constexpr int READS_PER_TURN = 16;
constexpr int ACCEPTS_PER_TURN = 16;
const char* const ROOT_DSE = "";

// Bytes of answers that may go out once due.
struct Chunk {
  Clock::time_point due;
  std::string bytes;
};

// One accepted connection; only the serving thread touches it.
struct Connection {
  Connection(int descriptor, Behaviour behaviour, int nth)
      : descriptor(descriptor),
        behaviour(behaviour),
        nth(nth),
        reading(behaviour != Behaviour::SILENT_AFTER_ACCEPT),
        silent(behaviour == Behaviour::SILENT_AFTER_FIRST_READ) {}

  bool isOpen() const { return descriptor >= 0; }
  bool answers() const { return !silent && !closing; }

  int descriptor;
  const Behaviour behaviour;
  const int nth;
  bool reading;
  // Reads and drops what comes, never answers, and stays open.
  bool silent;
  std::string input;
  int requests = 0;
  int messages = 0;
  std::deque<Chunk> output;
  // Of output.front().
  std::size_t written = 0;
  // After an unbind or the cut message: nothing more is answered, and the connection closes once
  // what is queued is out.
  bool closing = false;
};

void closeConnection(Connection& connection) {
  if (!connection.isOpen()) return;
  ::close(connection.descriptor);
  connection.descriptor = -1;
  connection.output.clear();
}

// SO_LINGER {1, 0} makes close send a reset instead of a FIN.
void resetConnection(Connection& connection) {
  const linger abort{1, 0};
  ::setsockopt(connection.descriptor, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  closeConnection(connection);
}

// A FIN after the last answer, not a reset that could discard it before the client reads it.
void closeOnceWritten(Connection& connection) {
  if (!connection.isOpen() || !connection.closing || !connection.output.empty()) return;
  ::shutdown(connection.descriptor, SHUT_WR);
  closeConnection(connection);
}

int millisecondsUntil(Clock::time_point due, Clock::time_point now) {
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - now);
  return static_cast<int>(
      std::clamp<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0), LONGEST_WAIT).count());
}

}  // namespace

class FakeDirectory::Impl {
 public:
  Impl(Behaviour behaviour, int nth, const std::string& host, int port)
      : listener(host, port), host(host), behaviour(behaviour), nth(nth) {}
  ~Impl() { stop(); }

  void start() { _thread = std::thread(&Impl::serve, this); }
  void stop() {
    _stopping = true;
    if (_thread.joinable()) _thread.join();
  }

  const LoopbackListener listener;
  const std::string host;

  mutable std::mutex mutex;
  // Guarded by mutex.
  Behaviour behaviour;
  int nth;
  int bindResultCode = LDAP_SUCCESS;
  int extendedResultCode = LDAP_PROTOCOL_ERROR;
  SearchScript script = defaultAnswer;
  int connectionsAccepted = 0;
  int requestsReceived = 0;
  std::uint64_t bytesReceived = 0;
  std::vector<std::string> bindDns;
  std::vector<std::string> bindPasswords;
  std::vector<std::string> extendedRequests;
  std::vector<SearchRequest> searches;

 private:
  void serve();
  void acceptWaiting();
  // Reads what is there and handles the complete requests in it.
  void readFrom(Connection& connection);
  void handleInput(Connection& connection);
  void handle(Connection& connection, const LdapRequestDecoder::Request& request);
  void answerSearch(Connection& connection, const LdapRequestDecoder::Request& request);
  // Counts the message and queues it, cut in half when it is the one to cut.
  void queue(Connection& connection, std::string message, Clock::time_point due);
  // Writes what is due until the socket takes no more.
  void writeTo(Connection& connection);
  void record(const LdapRequestDecoder::Request& request);

  std::atomic<bool> _stopping{false};
  std::thread _thread;
  // Only the serving thread touches these.
  std::vector<std::unique_ptr<Connection>> _connections;
  std::string _readBuffer = std::string(READ_SIZE, '\0');
};

void FakeDirectory::Impl::serve() {
  std::vector<pollfd> descriptors;
  std::vector<Connection*> polled;
  while (!_stopping) {
    descriptors.assign(1, pollfd{listener.descriptor(), POLLIN, 0});
    polled.clear();
    const Clock::time_point now = Clock::now();
    int wait = static_cast<int>(LONGEST_WAIT.count());
    for (const std::unique_ptr<Connection>& connection : _connections) {
      short events = connection->reading ? POLLIN : 0;
      if (!connection->output.empty()) {
        const Clock::time_point due = connection->output.front().due;
        if (due <= now) {
          events |= POLLOUT;
        } else {
          wait = std::min(wait, millisecondsUntil(due, now));
        }
      }
      // Silent connections that read no more are left alone until the end.
      if (events == 0) continue;
      descriptors.push_back(pollfd{connection->descriptor, events, 0});
      polled.push_back(connection.get());
    }
    if (::poll(descriptors.data(), descriptors.size(), wait) < 0) {
      if (errno != EINTR) std::this_thread::sleep_for(LONGEST_WAIT);
      continue;
    }
    if ((descriptors[0].revents & POLLIN) != 0) acceptWaiting();
    for (std::size_t i = 0; i < polled.size(); ++i) {
      Connection& connection = *polled[i];
      const short revents = descriptors[i + 1].revents;
      if (revents == 0) continue;
      try {
        if (connection.reading && (revents & (POLLIN | POLLHUP | POLLERR)) != 0) readFrom(connection);
        if (connection.isOpen() && (revents & (POLLOUT | POLLHUP | POLLERR)) != 0 &&
            (descriptors[i + 1].events & POLLOUT) != 0) {
          writeTo(connection);
        }
        // Otherwise a hang-up or an error would be reported again at once, forever.
        if (connection.isOpen() && (revents & POLLIN) == 0 && (revents & POLLOUT) == 0) closeConnection(connection);
      } catch (const std::exception&) {
        closeConnection(connection);
      }
    }
    _connections.erase(std::remove_if(_connections.begin(), _connections.end(),
                                      [](const std::unique_ptr<Connection>& c) { return !c->isOpen(); }),
                       _connections.end());
  }
  // Non-blocking sockets: close returns at once even with answers the client never read.
  for (const std::unique_ptr<Connection>& connection : _connections) closeConnection(*connection);
  _connections.clear();
}

void FakeDirectory::Impl::acceptWaiting() {
  for (int i = 0; i < ACCEPTS_PER_TURN; ++i) {
    const int descriptor = listener.acceptConnection();
    if (descriptor < 0) return;
    std::lock_guard<std::mutex> lock(mutex);
    ++connectionsAccepted;
    _connections.push_back(std::make_unique<Connection>(descriptor, behaviour, nth));
  }
}

void FakeDirectory::Impl::readFrom(Connection& connection) {
  bool ended = false;
  for (int i = 0; i < READS_PER_TURN; ++i) {
    const ssize_t received = ::recv(connection.descriptor, &_readBuffer[0], _readBuffer.size(), 0);
    if (received > 0) {
      {
        std::lock_guard<std::mutex> lock(mutex);
        bytesReceived += static_cast<std::uint64_t>(received);
      }
      connection.input.append(_readBuffer, 0, static_cast<std::size_t>(received));
      continue;
    }
    if (received < 0 && errno == EINTR) continue;
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    ended = true;
    break;
  }
  handleInput(connection);
  if (!ended) return;
  // A silent connection stays open as long as the client lets it; the others close like a server.
  if (connection.silent) {
    connection.reading = false;
  } else {
    closeConnection(connection);
  }
}

void FakeDirectory::Impl::handleInput(Connection& connection) {
  std::size_t start = 0;
  while (connection.isOpen()) {
    std::size_t length = 0;
    LdapRequestDecoder::Request request;
    try {
      length = LdapRequestDecoder::messageLength(connection.input, start);
      if (length == 0) break;
      request = LdapRequestDecoder::decode(connection.input.substr(start, length));
    } catch (const std::runtime_error&) {
      // Not LDAP (a TLS ClientHello, say): a silent connection drops it, the others end as a server would.
      if (!connection.silent) closeConnection(connection);
      connection.input.clear();
      return;
    }
    start += length;
    handle(connection, request);
  }
  connection.input.erase(0, start);
}

void FakeDirectory::Impl::record(const LdapRequestDecoder::Request& request) {
  std::lock_guard<std::mutex> lock(mutex);
  ++requestsReceived;
  if (request.operation == LDAP_REQ_BIND) {
    bindDns.push_back(request.bindDn);
    bindPasswords.push_back(request.bindPassword);
  } else if (request.operation == LDAP_REQ_SEARCH) {
    searches.push_back(request.search);
  } else if (request.operation == LDAP_REQ_EXTENDED) {
    extendedRequests.push_back(request.extendedOid);
  }
}

void FakeDirectory::Impl::handle(Connection& connection, const LdapRequestDecoder::Request& request) {
  record(request);
  ++connection.requests;
  if (connection.behaviour == Behaviour::RESET_ON_REQUEST && connection.requests == connection.nth) {
    resetConnection(connection);
    return;
  }
  if (!connection.answers()) return;
  const Clock::time_point now = Clock::now();
  switch (request.operation) {
    case LDAP_REQ_BIND: {
      int resultCode = 0;
      {
        std::lock_guard<std::mutex> lock(mutex);
        resultCode = bindResultCode;
      }
      queue(connection, LdapAnswerEncoder::result(request.messageId, LDAP_RES_BIND, resultCode), now);
      break;
    }
    case LDAP_REQ_UNBIND:
      connection.closing = true;
      closeOnceWritten(connection);
      break;
    case LDAP_REQ_SEARCH:
      answerSearch(connection, request);
      break;
    case LDAP_REQ_EXTENDED: {
      int resultCode = 0;
      {
        std::lock_guard<std::mutex> lock(mutex);
        resultCode = extendedResultCode;
      }
      const std::string name = resultCode == LDAP_SUCCESS ? request.extendedOid : std::string();
      queue(connection, LdapAnswerEncoder::extendedResult(request.messageId, resultCode, name), now);
      if (connection.behaviour == Behaviour::SILENT_AFTER_START_TLS && resultCode == LDAP_SUCCESS &&
          request.extendedOid == LDAP_EXOP_START_TLS) {
        connection.silent = true;
      }
      break;
    }
    case LDAP_REQ_ABANDON:
      break;
    // Refused; each response's tag is its request's plus one, constructed.
    case LDAP_REQ_MODIFY:
    case LDAP_REQ_ADD:
    case LDAP_REQ_DELETE:
    case LDAP_REQ_MODDN:
    case LDAP_REQ_COMPARE:
      queue(connection,
            LdapAnswerEncoder::result(request.messageId, (request.operation + 1) | 0x20U, LDAP_UNWILLING_TO_PERFORM),
            now);
      break;
    default:
      closeConnection(connection);
      break;
  }
}

void FakeDirectory::Impl::answerSearch(Connection& connection, const LdapRequestDecoder::Request& request) {
  SearchScript currentScript;
  {
    std::lock_guard<std::mutex> lock(mutex);
    currentScript = script;
  }
  SearchAnswer answer;
  std::string diagnosticMessage;
  try {
    answer = currentScript(request.search);
  } catch (const std::exception& error) {
    answer = SearchAnswer();
    answer.resultCode = LDAP_OTHER;
    diagnosticMessage = error.what();
  } catch (...) {
    answer = SearchAnswer();
    answer.resultCode = LDAP_OTHER;
    diagnosticMessage = "the search script threw";
  }
  const Clock::time_point due = Clock::now() + std::chrono::milliseconds(answer.delayMs);
  const int id = request.messageId;
  for (const Entry& entry : answer.entries) {
    if (!connection.answers()) return;
    queue(connection, LdapAnswerEncoder::searchEntry(id, entry, request.search.attributes, request.search.typesOnly),
          due);
  }
  for (const std::string& uri : answer.continuationReferences) {
    if (!connection.answers()) return;
    queue(connection, LdapAnswerEncoder::searchReference(id, uri), due);
  }
  queue(
      connection,
      LdapAnswerEncoder::result(id, LDAP_RES_SEARCH_RESULT, answer.resultCode, diagnosticMessage, answer.referralUris),
      due);
}

void FakeDirectory::Impl::queue(Connection& connection, std::string message, Clock::time_point due) {
  if (!connection.answers()) return;
  ++connection.messages;
  if (connection.behaviour == Behaviour::CLOSE_MID_ANSWER && connection.messages == connection.nth) {
    message.resize(message.size() / 2);
    connection.closing = true;
  }
  // Messages due together go out in one chunk: fewer writes for answers of many entries.
  if (!connection.output.empty() && connection.output.back().due == due) {
    connection.output.back().bytes += message;
  } else {
    connection.output.push_back(Chunk{due, std::move(message)});
  }
}

void FakeDirectory::Impl::writeTo(Connection& connection) {
  const Clock::time_point now = Clock::now();
  while (!connection.output.empty() && connection.output.front().due <= now) {
    const std::string& bytes = connection.output.front().bytes;
    while (connection.written < bytes.size()) {
      const ssize_t sent = ::send(connection.descriptor, bytes.data() + connection.written,
                                  bytes.size() - connection.written, MSG_NOSIGNAL);
      if (sent > 0) {
        connection.written += static_cast<std::size_t>(sent);
      } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return;
      } else if (sent < 0 && errno != EINTR) {
        closeConnection(connection);
        return;
      }
    }
    connection.output.pop_front();
    connection.written = 0;
  }
  closeOnceWritten(connection);
}

FakeDirectory::FakeDirectory(Behaviour behaviour, int nth) : FakeDirectory(behaviour, nth, "127.0.0.1", 0) {}

FakeDirectory::FakeDirectory(Behaviour behaviour, int nth, const std::string& host, int port)
    : _impl(std::make_unique<Impl>(behaviour, nth, host, port)) {
  _impl->start();
}

FakeDirectory::~FakeDirectory() { _impl->stop(); }

void FakeDirectory::setBehaviour(Behaviour behaviour, int nth) {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  _impl->behaviour = behaviour;
  _impl->nth = nth;
}

void FakeDirectory::setSearchScript(SearchScript script) {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  _impl->script = script ? std::move(script) : SearchScript(defaultAnswer);
}

void FakeDirectory::setBindResultCode(int resultCode) {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  _impl->bindResultCode = resultCode;
}

void FakeDirectory::setExtendedResultCode(int resultCode) {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  _impl->extendedResultCode = resultCode;
}

FakeDirectory::SearchAnswer FakeDirectory::defaultAnswer(const SearchRequest& request) {
  SearchAnswer answer;
  if (request.base == ROOT_DSE && request.scope == LDAP_SCOPE_BASE) answer.entries.push_back(Entry{ROOT_DSE, {}});
  return answer;
}

const std::string& FakeDirectory::host() const { return _impl->host; }

int FakeDirectory::port() const { return _impl->listener.port(); }

std::string FakeDirectory::address() const { return std::string(host()) + ":" + std::to_string(port()); }

std::string FakeDirectory::uri() const { return "ldap://" + address(); }

int FakeDirectory::connectionsAccepted() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->connectionsAccepted;
}

int FakeDirectory::requestsReceived() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->requestsReceived;
}

std::uint64_t FakeDirectory::bytesReceived() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->bytesReceived;
}

std::vector<std::string> FakeDirectory::bindDns() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->bindDns;
}

std::vector<std::string> FakeDirectory::bindPasswords() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->bindPasswords;
}

std::vector<std::string> FakeDirectory::extendedRequests() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->extendedRequests;
}

std::vector<FakeDirectory::SearchRequest> FakeDirectory::searches() const {
  std::lock_guard<std::mutex> lock(_impl->mutex);
  return _impl->searches;
}

}  // namespace TestDirectory
