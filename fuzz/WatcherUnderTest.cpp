#include "WatcherUnderTest.h"

#include "FuzzSupport.h"
#include "WideText.h"
#include "platform/sim/SimFileObjects.h"
#include "watcher/HotFolderTree.h"

#include <algorithm>
#include <set>
#include <string>

namespace hf::fuzz {

WatcherUnderTest::WatcherUnderTest()
{
    std::u16string rootPath;
    if (StartHotFolderTree(events_, rootPath, *root_, state_) != TreeStart::Watching) {
        Violated("the arranged root is watched");
    }
}

WatcherUnderTest::~WatcherUnderTest()
{
    std::set<DirectoryWatch*> inputWatches;
    for (auto const& entry : state_.watches) {
        if (entry.second != root_.get()) {
            inputWatches.insert(entry.second);
        }
    }
    state_.watches.clear();
    for (DirectoryWatch* watch : inputWatches) {
        delete watch;
    }
}

std::vector<DirectoryWatch*> WatcherUnderTest::Watches() const
{
    std::vector<DirectoryWatch*> watches{root_.get()};
    for (auto const& entry : state_.watches) {
        if (std::find(watches.begin(), watches.end(), entry.second) == watches.end()) {
            watches.push_back(entry.second);
        }
    }
    return watches;
}

void WatcherUnderTest::CheckTables()
{
    HF_FUZZ_CHECK(state_.specsByIni.size() == state_.specsByInput.size(), "both spec tables hold the same specs");
    for (auto const& spec : state_.specsByInput) {
        auto const found = state_.specsByIni.find(spec);
        HF_FUZZ_CHECK(found != state_.specsByIni.end() && *found == spec, ToUtf8(spec->DesktopIniPath));
    }
    HF_FUZZ_CHECK(root_->useCount >= 1, std::to_string(root_->useCount));
    for (DirectoryWatch* watch : Watches()) {
        auto const handle = HandleOf(*watch);
        HF_FUZZ_CHECK(!handle || handle->OutstandingReads() <= 1, ToUtf8(watch->path));
    }
    // Ages from the front file's touch, in unsigned arithmetic as the readiness rule takes them.
    DWORD previous = 0;
    for (auto const& file : state_.pending) {
        DWORD const since = file.lastTouched - state_.pending.Front().lastTouched;
        HF_FUZZ_CHECK(since >= previous, ToUtf8(file.path));
        previous = since;
    }
}

std::shared_ptr<sim::DirectoryHandle> HandleOf(DirectoryWatch const& watch)
{
    return sim::TheWorld().LookupAs<sim::DirectoryHandle>(watch.directory.get());
}

}  // namespace hf::fuzz
