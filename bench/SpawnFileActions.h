#ifndef BENCH_SPAWN_FILE_ACTIONS_H
#define BENCH_SPAWN_FILE_ACTIONS_H

#include <spawn.h>

namespace Bench {

// A posix_spawn file-actions object, destroyed on every path.
class SpawnFileActions {
 public:
  SpawnFileActions();
  ~SpawnFileActions();
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;

  // For the posix_spawn_file_actions_* calls and posix_spawnp; owned by this object.
  posix_spawn_file_actions_t* get();

 private:
  posix_spawn_file_actions_t _actions;
};

}  // namespace Bench

#endif
