// The fixture of the watcher's native suites: the user clerk's hot folder root,
// the watcher's state, and the steps its stories take.
#pragma once

#include "EventReporter.h"
#include "SimTest.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"

#include <memory>
#include <string>
#include <vector>

namespace hf::test {

using Texts = std::vector<std::string>;

inline constexpr char16_t kRoot[] = u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders";
inline std::string const kRoot8 = U8(kRoot);

class WatcherTest : public SimTest {
protected:
    static std::u16string InRoot(std::u16string const& relative) { return std::u16string(kRoot) + u"\\" + relative; }
    static std::string Ini(std::string const& input)
    {
        return "[.ShellClassInfo]\r\nIconResource=hot.ico,0\r\n[Tarnwick]\r\nInputFolder=" + input +
               "\r\nOutputFolder=Out\r\nScript=C:\\Scripts\\stamp.py\r\n";
    }
    void WriteHotFolder(std::u16string const& name, std::string const& input)
    {
        world().files.WriteFile(InRoot(name + u"\\Desktop.ini"), Ini(input));
    }

    TreeStart Start() { return StartHotFolderTree(events, rootPath, *rootWatch, watcher); }
    // The common scene: folders D:\In and D:\Elsewhere, hot folders on D:\In,
    // the tree started and the event log cleared.
    void StartOn(std::vector<std::u16string> const& names)
    {
        world().files.MakeDirectory(u"D:\\In");
        world().files.MakeDirectory(u"D:\\Elsewhere");
        for (auto const& name : names) {
            WriteHotFolder(name, "D:\\In");
        }
        ASSERT_EQ(Start(), TreeStart::Watching);
        world().eventLog.Clear();
    }
    // Lets the queued completion routines run, as the loop's alertable wait does.
    void RunCompletions() { world().RunApcs(); }

    // The pending files' paths, oldest first.
    Texts PendingPaths() const
    {
        Texts paths;
        for (auto const& file : watcher.pending) {
            paths.push_back(U8(file.path));
        }
        return paths;
    }
    // Each loaded hot folder's DesktopIniPath, in table order; both tables agree.
    Texts LoadedHotFolders() const
    {
        Texts paths;
        for (auto const& spec : watcher.specsByIni) {
            EXPECT_EQ(watcher.specsByInput.count(spec), 1u);
            paths.push_back(U8(spec->DesktopIniPath));
        }
        EXPECT_EQ(watcher.specsByInput.size(), paths.size());
        return paths;
    }
    // The watch serving `folder`, or null.
    DirectoryWatch* WatchOf(std::u16string const& folder) const
    {
        auto const entry = watcher.watches.find(folder);
        return entry == watcher.watches.end() ? nullptr : entry->second;
    }
    // The insertion strings of every event with this id, as "path|name".
    Texts EventsWithId(DWORD id) const
    {
        Texts texts;
        for (auto const& record : sim::TheWorld().eventLog.WithId(id)) {
            std::string text;
            for (std::size_t i = 0; i < record.strings.size(); ++i) {
                text += (i > 0 ? "|" : "") + U8(record.strings[i]);
            }
            texts.push_back(text);
        }
        return texts;
    }

    EventReporter events{kCategoryUser};
    std::u16string rootPath;
    // On the heap: its change buffer is 256 KiB.
    std::unique_ptr<DirectoryWatch> rootWatch = std::make_unique<DirectoryWatch>();
    HotFolderWatcher watcher;
};

}  // namespace hf::test
