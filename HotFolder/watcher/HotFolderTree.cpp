#include "watcher/HotFolderTree.h"

#include "EventReporter.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderWatcher.h"
#include "watcher/PathRules.h"

#include <boost/make_shared.hpp>

#include <algorithm>

namespace hf {

namespace {

constexpr char16_t kRootFolderName[] = u"Tarnwick Hot Folders";
constexpr char16_t kDesktopIni[] = u"Desktop.ini";

}  // namespace

bool GetRootFolderPath(std::u16string& path)
{
    WCHAR folder[os::kMaxPath] = {};
    if (os::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder) < 0) {
        return false;
    }
    path = folder;
    if (path.empty() || path.back() != u'\\') {
        path += u'\\';
    }
    path += kRootFolderName;
    if (os::PathIsDirectoryW(path.c_str())) {
        return true;
    }
    return os::CreateDirectoryW(path.c_str(), nullptr) != FALSE;
}

TreeStart StartHotFolderTree(EventReporter& events, std::u16string& rootPath, DirectoryWatch& rootWatch,
                             HotFolderWatcher& watcher)
{
    if (!GetRootFolderPath(rootPath)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_CREATE_ROOT_FAILED, {rootPath, LastErrorText()});
        return TreeStart::NoRootFolder;
    }
    rootWatch.useCount = 1;
    watcher.events = &events;
    watcher.rootWatch = &rootWatch;
    // Each reports its own failure first (message 35 or 36).
    if (!OpenDirectoryWatch(rootPath, rootWatch, watcher) ||
        !ArmDirectoryWatch(rootWatch, kWatchFilter, OnRootChange, false)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_WATCH_ROOT_FAILED, {rootPath});
        return TreeStart::RootNotWatched;
    }
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_WATCHING_ROOT, {rootPath});
    DiscoverHotFolders(rootWatch);
    return TreeStart::Watching;
}

void DiscoverHotFolders(DirectoryWatch& root)
{
    os::WIN32_FIND_DATAW entry;
    UniqueFindHandle listing(os::FindFirstFileW(JoinPath(root.path, u"*").c_str(), &entry));
    if (!listing) {
        return;
    }
    do {
        std::u16string const name = entry.cFileName;
        if (name == u"." || name == u".." || (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            continue;
        }
        LoadHotFolder(JoinPath(JoinPath(root.path, name), kDesktopIni), *root.owner);
    } while (os::FindNextFileW(listing.get(), &entry));
}

void LoadHotFolder(std::u16string const& desktopIniPath, HotFolderWatcher& watcher)
{
    HotFolderSpecPtr const spec = boost::make_shared<HotFolderSpec>();
    spec->DesktopIniPath = desktopIniPath;
    auto const found = watcher.specsByIni.find(spec);
    HotFolderSpecPtr const old = found == watcher.specsByIni.end() ? HotFolderSpecPtr() : *found;
    if (!LoadHotFolderSpec(*watcher.events, desktopIniPath, *spec)) {
        if (old) {
            RemoveHotFolder(watcher, old);
        }
        return;
    }
    // A reload always replaces the loaded settings, even when nothing changed. The old
    // spec goes first, so an unchanged input folder keeps its watch: the use
    // count falls to zero and rises again before the woken read completes.
    if (old) {
        RemoveHotFolder(watcher, old);
    }
    watcher.specsByIni.insert(spec);
    watcher.specsByInput.insert(spec);
    auto const watch = watcher.watches.find(spec->InputFolder);
    if (watch != watcher.watches.end()) {
        ++watch->second->useCount;
    } else {
        AddDirectoryWatch(watcher, spec->InputFolder);
    }
}

void RemoveHotFolder(HotFolderWatcher& watcher, HotFolderSpecPtr spec)
{
    ReleaseDirectoryWatch(watcher, spec->InputFolder);
    watcher.specsByIni.erase(spec);
    watcher.specsByInput.erase(spec);
}

bool IsSettingsChange(std::u16string const& name)
{
    return CountBackslashes(name) == 1 && os::PathMatchSpecW(name.c_str(), u"*\\Desktop.ini");
}

std::size_t CountBackslashes(std::u16string text)
{
    while (!text.empty() && text.back() == u'\\') {
        text.pop_back();
    }
    std::size_t const first = text.find_first_not_of(u'\\');
    text.erase(0, first == std::u16string::npos ? text.size() : first);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), u'\\'));
}

}  // namespace hf
