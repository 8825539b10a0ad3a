#include "watcher/PendingFiles.h"

#include "platform/Clock.h"
#include "watcher/PathRules.h"

namespace hf {

bool PendingFiles::ByPath::operator()(Entry const& a, Entry const& b) const
{
    return PathLess(a.file.path, b.file.path);
}

bool PendingFiles::ByPath::operator()(Entry const& a, std::u16string const& b) const
{
    return PathLess(a.file.path, b);
}

bool PendingFiles::ByPath::operator()(std::u16string const& a, Entry const& b) const
{
    return PathLess(a, b.file.path);
}

void PendingFiles::Unlink(Entry const& entry)
{
    (entry.older != nullptr ? entry.older->newer : oldest_) = entry.newer;
    (entry.newer != nullptr ? entry.newer->older : newest_) = entry.older;
    entry.older = nullptr;
    entry.newer = nullptr;
}

void PendingFiles::Append(Entry const& entry)
{
    entry.older = newest_;
    (newest_ != nullptr ? newest_->newer : oldest_) = &entry;
    newest_ = &entry;
}

void PendingFiles::Touch(std::u16string const& path)
{
    DWORD const now = os::GetTickCount();
    // One search serves both cases: the place found is where a new entry goes.
    auto const place = index_.lower_bound(path);
    if (place != index_.end() && !PathLess(path, place->file.path)) {
        place->file.path = path;
        place->file.lastTouched = now;
        place->file.dispatchedTo.clear();
        Unlink(*place);
        Append(*place);
        return;
    }
    Append(*index_.emplace_hint(place, PendingFile{path, now, {}}));
}

void PendingFiles::Forget(std::u16string const& path)
{
    auto const found = index_.find(path);
    if (found == index_.end()) {
        return;
    }
    Unlink(*found);
    index_.erase(found);
}

void PendingFiles::PopFront()
{
    auto const front = index_.find(oldest_->file.path);
    Unlink(*front);
    index_.erase(front);
}

DWORD SettleTimeLeft(PendingFile const& file)
{
    DWORD const age = os::GetTickCount() - file.lastTouched;
    return age >= kSettleTimeMs ? 0 : kSettleTimeMs - age;
}

}  // namespace hf
