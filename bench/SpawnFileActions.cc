#include "SpawnFileActions.h"

namespace Bench {

SpawnFileActions::SpawnFileActions() { ::posix_spawn_file_actions_init(&_actions); }

SpawnFileActions::~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&_actions); }

posix_spawn_file_actions_t* SpawnFileActions::get() { return &_actions; }

}  // namespace Bench
