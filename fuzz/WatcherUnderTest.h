// The watcher's hot folder state as the loop owns it, started on the
// simulated machine, and the rules that its tables keep after every step.
#pragma once

#include "EventReporter.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderWatcher.h"

#include <memory>
#include <vector>

namespace hf::sim {
class DirectoryHandle;
}

namespace hf::fuzz {

class WatcherUnderTest {
public:
    // The tree's start-up: the root watched and its hot folders loaded.
    WatcherUnderTest();
    // As the process's end would: the input folders' watches go with their
    // handles (and their reads), before the tables that lead to them.
    ~WatcherUnderTest();
    WatcherUnderTest(const WatcherUnderTest&) = delete;
    WatcherUnderTest& operator=(const WatcherUnderTest&) = delete;

    // The root, then every other watch of the table once, in table order.
    std::vector<DirectoryWatch*> Watches() const;

    // Both spec tables hold the same specs; the root's use count never falls
    // below 1; no watch has more than one read outstanding; the pending files
    // are in the order of their last touch.
    void CheckTables();

    HotFolderWatcher& State() { return state_; }
    DirectoryWatch& Root() { return *root_; }
    EventReporter& Events() { return events_; }

private:
    EventReporter events_{kCategoryUser};
    // Zeroed, so that a walk beyond the bytes a completion put there reads the same on every run.
    std::unique_ptr<DirectoryWatch> root_ = std::make_unique<DirectoryWatch>();
    HotFolderWatcher state_;
};

// The simulated directory handle behind a watch; null once it is closed.
std::shared_ptr<sim::DirectoryHandle> HandleOf(DirectoryWatch const& watch);

}  // namespace hf::fuzz
