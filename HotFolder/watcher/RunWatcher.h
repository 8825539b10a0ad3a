// The watcher role: the whole life of a user's hot folder watcher process.
#pragma once

namespace hf {

// Runs the watcher of the user who owns the process until its wait fails.
// `asService` is true when the service started it (-asservice). Returns 0.
int RunWatcher(bool asService);

}  // namespace hf
