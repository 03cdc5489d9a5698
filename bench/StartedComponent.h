#ifndef BENCH_STARTED_COMPONENT_H
#define BENCH_STARTED_COMPONENT_H

#include <Framework/ManagementFramework.h>

namespace Bench {

// The process's access-management component, initialised on a framework and started, as a
// framework would have it before serving role queries; stopped and unregistered again when
// the object goes. At most one object at a time (the component is a singleton).
class StartedComponent {
 public:
  // config is the component's configuration text. Runs on the calling thread, which then acts
  // as the framework's control thread. Throws std::runtime_error when lib_init or start fails
  // or the component did not start; the framework must outlive the object.
  StartedComponent(Framework::ManagementFramework& framework, const char* config);
  ~StartedComponent();
  StartedComponent(const StartedComponent&) = delete;
  StartedComponent& operator=(const StartedComponent&) = delete;
};

}  // namespace Bench

#endif
