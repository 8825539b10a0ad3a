// Starting Adobe Acrobat, whose plug-in serves the pipe that jobs go to. The
// executable's path is the default value of the key Software\Tarnwick\AcrobatPath
// in HKEY_LOCAL_MACHINE, read again at every launch; Acrobat is started as a
// plain process with its bare file name as the command line.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"

#include <string>

namespace hf {

inline constexpr char16_t kAcrobatPathKey[] = u"Software\\Tarnwick\\AcrobatPath";

// The Acrobat path from the registry; empty (after reporting message 47 or 48)
// when it cannot be read.
std::u16string GetAcrobatPath(EventReporter& reporter);

// Reads a REG_SZ or REG_EXPAND_SZ value of at most 255 characters (taken as
// it stands, never expanded) into `text`; returns 0 or the Win32 error, with
// `text` empty on failure. A longer value throws HResultError(E_INVALIDARG):
// nothing catches it and the watcher ends, so Acrobat paths are limited to 255
// characters.
LONG ReadRegistryString(HKEY key, std::u16string const& valueName, std::u16string& text);

// Starts Acrobat and returns its process handle (the thread handle is closed);
// null after reporting message 30 when it cannot be started.
HANDLE LaunchAcrobat(EventReporter& reporter);

// An HRESULT raised as an exception.
class HResultError {
public:
    explicit HResultError(HRESULT code) : code_(code) {}
    HRESULT Code() const { return code_; }

private:
    HRESULT code_;
};

}  // namespace hf
