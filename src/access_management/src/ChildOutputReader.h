#ifndef QIV_ACCESS_MANAGEMENT_CHILD_OUTPUT_READER_H
#define QIV_ACCESS_MANAGEMENT_CHILD_OUTPUT_READER_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace QivAccessManagement {

class AmQivEaWrapperTimeout;

// Reads the pipes of one child run within the time of the run's watchdog. A pipe ends when
// every writer closed it, and a process the child started can keep it open for as long as it
// likes: reading gives up once the watchdog fired and what its kill left in the pipes has had a
// moment to drain, so no descendant holds the caller past the time-out.
class ChildOutputReader {
 public:
  // One pipe's read end and where its text goes: up to limit bytes are kept, the rest is read and
  // dropped, so the writer never blocks on a full pipe.
  struct Stream {
    int fd;
    std::string* text;
    std::size_t limit;
  };

  // watchdog is due to fire at due (the reader looks at it then, not before); both must outlive
  // the object.
  ChildOutputReader(const AmQivEaWrapperTimeout& watchdog, std::chrono::steady_clock::time_point due);

  // Reads all streams at once until each ended: true; false when the watchdog fired before they
  // all ended and they stayed open for the grace after it. Throws Poco::SystemException when the
  // pipes cannot be waited for.
  bool read(const std::vector<Stream>& streams) const;

 private:
  // Milliseconds for poll to wait from now, or -1 when reading should give up.
  int nextWait(std::chrono::steady_clock::time_point& giveUpAt, bool& givingUp) const;

  const AmQivEaWrapperTimeout& _watchdog;
  const std::chrono::steady_clock::time_point _due;
};

}  // namespace QivAccessManagement

#endif
