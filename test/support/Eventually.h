#ifndef TEST_EVENTUALLY_H
#define TEST_EVENTUALLY_H

#include <chrono>
#include <functional>
#include <thread>

// Polls condition until it holds, for at most bound; true when it did. For what another thread
// or process does at its own pace.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds bound = std::chrono::milliseconds(10000)) {
  const std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::now() + bound;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

#endif
