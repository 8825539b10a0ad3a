// One hot folder's settings, read from the "Tarnwick" section of its
// Desktop.ini. A spec is filled once and never changed: a changed Desktop.ini
// gives a fresh spec that replaces the old one. Specs are shared (the two spec
// tables, and a job while its message is built) through boost::shared_ptr.
#pragma once

#include <boost/shared_ptr.hpp>

#include <string>

namespace hf {

class EventReporter;

struct HotFolderSpec {
    // The hot folder's identity: the Desktop.ini path exactly as it was handed to the loader.
    std::u16string DesktopIniPath;
    // The directory whose files become this hot folder's jobs.
    std::u16string InputFolder;
    // Handed to the plug-in with every job.
    std::u16string OutputFolder;
    // The script the plug-in runs on every job.
    std::u16string Script;
};

using HotFolderSpecPtr = boost::shared_ptr<HotFolderSpec>;

// Fills an empty spec from the Desktop.ini at `desktopIniPath`; true when it
// names all three of InputFolder, OutputFolder and Script. An incomplete file
// is silently not a hot folder: nothing is reported (the reporter is the
// watcher's, handed on for the callers' sake).
bool LoadHotFolderSpec(EventReporter& events, std::u16string const& desktopIniPath, HotFolderSpec& spec);

// A throw-away spec for looking up the hot folders of a file: its InputFolder
// is the file's directory, everything else empty.
HotFolderSpecPtr MakeProbeSpec(std::u16string const& filePath);

}  // namespace hf
