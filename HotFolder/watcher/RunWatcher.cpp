#include "watcher/RunWatcher.h"

namespace hf {

// The watcher loop is not built yet: the role ends at once.
int RunWatcher(bool /*asService*/)
{
    return 0;
}

}  // namespace hf
