#include "watcher/PendingFiles.h"

#include "platform/Clock.h"
#include "watcher/PathRules.h"

namespace hf {

bool PendingFiles::ByPath::operator()(Position a, Position b) const
{
    return PathLess(a->path, b->path);
}

bool PendingFiles::ByPath::operator()(Position a, std::u16string const& b) const
{
    return PathLess(a->path, b);
}

bool PendingFiles::ByPath::operator()(std::u16string const& a, Position b) const
{
    return PathLess(a, b->path);
}

void PendingFiles::Touch(std::u16string const& path)
{
    DWORD const now = os::GetTickCount();
    auto const found = index_.find(path);
    if (found == index_.end()) {
        order_.push_back(PendingFile{path, now, {}});
        index_.insert(std::prev(order_.end()));
        return;
    }
    // The new spelling is equivalent under the index's order, so the entry keeps its place there.
    Position const entry = *found;
    entry->path = path;
    entry->lastTouched = now;
    entry->dispatchedTo.clear();
    order_.splice(order_.end(), order_, entry);
}

void PendingFiles::Forget(std::u16string const& path)
{
    auto const found = index_.find(path);
    if (found == index_.end()) {
        return;
    }
    Position const entry = *found;
    index_.erase(found);
    order_.erase(entry);
}

void PendingFiles::PopFront()
{
    index_.erase(order_.begin());
    order_.pop_front();
}

DWORD SettleTimeLeft(PendingFile const& file)
{
    DWORD const age = os::GetTickCount() - file.lastTouched;
    return age >= kSettleTimeMs ? 0 : kSettleTimeMs - age;
}

}  // namespace hf
