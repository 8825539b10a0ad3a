#include "watcher/HotFolderSpec.h"

#include "platform/Files.h"
#include "platform/Paths.h"
#include "watcher/PathRules.h"

#include <boost/make_shared.hpp>

namespace hf {

namespace {

constexpr char16_t kSection[] = u"Tarnwick";

std::u16string DirectoryOf(std::u16string const& path)
{
    std::u16string directory = path;
    os::PathRemoveFileSpecW(&directory[0]);
    directory.resize(std::char_traits<char16_t>::length(directory.c_str()));
    return directory;
}

// One key's value, resolved: relative values are taken from the hot folder's
// own directory, and the result is canonical when it can be made so. False
// when the key is missing or empty.
bool ReadFolderSetting(std::u16string const& desktopIniPath, std::u16string const& baseDirectory, char16_t const* key,
                       std::u16string& field)
{
    WCHAR value[os::kMaxPath] = {};
    os::GetPrivateProfileStringW(kSection, key, u"", value, static_cast<DWORD>(os::kMaxPath), desktopIniPath.c_str());
    field = value;
    if (field.empty()) {
        return false;
    }
    if (os::PathIsRelativeW(field.c_str())) {
        field = JoinPath(baseDirectory, field);
    }
    WCHAR canonical[os::kMaxPath] = {};
    if (os::PathCanonicalizeW(canonical, field.c_str())) {
        field = canonical;
    }
    return true;
}

}  // namespace

bool LoadHotFolderSpec(EventReporter& /*events*/, std::u16string const& desktopIniPath, HotFolderSpec& spec)
{
    spec.DesktopIniPath = desktopIniPath;
    std::u16string const baseDirectory = DirectoryOf(desktopIniPath);
    // In this order, and no further than the first missing key.
    return ReadFolderSetting(desktopIniPath, baseDirectory, u"InputFolder", spec.InputFolder) &&
           ReadFolderSetting(desktopIniPath, baseDirectory, u"OutputFolder", spec.OutputFolder) &&
           ReadFolderSetting(desktopIniPath, baseDirectory, u"Script", spec.Script);
}

HotFolderSpecPtr MakeProbeSpec(std::u16string const& filePath)
{
    HotFolderSpecPtr probe = boost::make_shared<HotFolderSpec>();
    probe->InputFolder = DirectoryOf(filePath);
    return probe;
}

}  // namespace hf
