// Directory change reads, listings, INI files and shell folders of the
// simulated machine (CreateFileW and the reads and writes are in Io_sim.cpp).
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/sim/SimCaseFold.h"
#include "platform/sim/SimFileObjects.h"
#include "platform/sim/SimProfile.h"
#include "platform/sim/SimWorld.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace hf::os {

namespace {

HANDLE const kInvalidHandleValue = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

std::u16string const kPipePrefix = u"\\\\.\\PIPE\\";

// An open listing: the entries as they were when FindFirstFileW ran.
class FindObject : public sim::Object {
public:
    void Add(std::u16string const& name, DWORD attributes, std::size_t size)
    {
        WIN32_FIND_DATAW entry{};
        entry.dwFileAttributes = attributes;
        entry.nFileSizeLow = static_cast<DWORD>(size);
        std::copy_n(name.begin(), std::min(name.size(), kMaxPath - 1), entry.cFileName);
        entries.push_back(entry);
    }
    std::vector<WIN32_FIND_DATAW> entries;
    std::size_t next = 0;
};

bool ListDirectory(std::u16string const& directory, std::u16string const& pattern, FindObject& listing)
{
    std::shared_ptr<sim::FileNode> node = sim::TheWorld().files.Find(directory.empty() ? u"\\" : directory);
    if (!node || !node->isDirectory) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    if (node->parent != nullptr) {  // a drive's root has no "." and ".."
        for (auto const* dots : {u".", u".."}) {
            if (sim::MatchesWildcards(dots, pattern)) {
                listing.Add(dots, FILE_ATTRIBUTE_DIRECTORY, 0);
            }
        }
    }
    for (auto const& child : node->children) {
        if (sim::MatchesWildcards(child.second->name, pattern)) {
            listing.Add(child.second->name, child.second->attributes, child.second->contents.size());
        }
    }
    return true;
}

}  // namespace

BOOL ReadDirectoryChangesW(HANDLE directory, void* buffer, DWORD bufferLength, BOOL watchSubtree, DWORD notifyFilter,
                           DWORD* /*bytesReturned*/, OVERLAPPED* overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    DWORD error = 0;
    if (sim::Injected("ReadDirectoryChangesW", error)) {
        return 0;
    }
    auto handle = sim::TheWorld().LookupAs<sim::DirectoryHandle>(directory);
    if (!handle) {
        SetLastError(sim::TheWorld().Lookup(directory) ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return 0;
    }
    return handle->StartRead(buffer, bufferLength, watchSubtree != 0, notifyFilter, overlapped, completionRoutine);
}

HANDLE FindFirstFileW(const WCHAR* fileName, WIN32_FIND_DATAW* findData)
{
    DWORD error = 0;
    if (sim::Injected("FindFirstFileW", error)) {
        return kInvalidHandleValue;
    }
    std::u16string const path = fileName ? fileName : u"";
    auto listing = std::make_shared<FindObject>();
    if (path.size() > kPipePrefix.size() && AsciiUpper(path.substr(0, kPipePrefix.size())) == kPipePrefix) {
        for (auto const& name : sim::TheWorld().pipes.Names()) {
            if (sim::MatchesWildcards(name, path.substr(kPipePrefix.size()))) {
                listing->Add(name, FILE_ATTRIBUTE_NORMAL, 0);
            }
        }
    } else {
        std::size_t const slash = path.rfind(u'\\');
        std::u16string const directory = slash == std::u16string::npos ? std::u16string() : path.substr(0, slash + 1);
        std::u16string const pattern = slash == std::u16string::npos ? path : path.substr(slash + 1);
        if (!ListDirectory(directory, pattern, *listing)) {
            return kInvalidHandleValue;
        }
    }
    if (listing->entries.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return kInvalidHandleValue;
    }
    *findData = listing->entries[0];
    listing->next = 1;
    return sim::TheWorld().AddHandle(listing);
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* findData)
{
    DWORD error = 0;
    if (sim::Injected("FindNextFileW", error)) {
        return 0;
    }
    auto listing = sim::TheWorld().LookupAs<FindObject>(find);
    if (!listing) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    if (listing->next >= listing->entries.size()) {
        SetLastError(ERROR_NO_MORE_FILES);
        return 0;
    }
    *findData = listing->entries[listing->next++];
    return 1;
}

BOOL FindClose(HANDLE find)
{
    if (!sim::TheWorld().LookupAs<FindObject>(find)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    sim::TheWorld().CloseHandle(find);
    return 1;
}

BOOL CreateDirectoryW(const WCHAR* pathName, void* /*securityAttributes*/)
{
    DWORD error = 0;
    if (sim::Injected("CreateDirectoryW", error)) {
        return 0;
    }
    return sim::TheWorld().files.Create(pathName ? pathName : u"", true, FILE_ATTRIBUTE_DIRECTORY) ? 1 : 0;
}

unsigned GetTempFileNameW(const WCHAR* pathName, const WCHAR* prefixString, unsigned unique, WCHAR* tempFileName)
{
    DWORD error = 0;
    if (sim::Injected("GetTempFileNameW", error)) {
        return 0;
    }
    std::u16string directory = pathName ? pathName : u"";
    if (directory.empty() || directory.back() != u'\\') {
        directory += u'\\';
    }
    std::u16string const prefix = std::u16string(prefixString ? prefixString : u"").substr(0, 3);
    if (directory.size() + prefix.size() + 8 >= kMaxPath) {
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return 0;
    }
    auto nameFor = [&](unsigned number) {
        char hex[9];
        std::snprintf(hex, sizeof hex, "%X", number);
        return directory + prefix + Widen(hex) + u".TMP";
    };
    auto hand = [&](std::u16string const& name, unsigned number) {
        std::copy(name.begin(), name.end(), tempFileName);
        tempFileName[name.size()] = 0;
        return number;
    };
    if (unique != 0) {
        return hand(nameFor(unique & 0xFFFF), unique);  // the name only; no file is made
    }
    std::shared_ptr<sim::FileNode> folder = sim::TheWorld().files.Find(directory);
    if (!folder || !folder->isDirectory) {
        SetLastError(ERROR_DIRECTORY);
        return 0;
    }
    // As Windows does, start from the tick count and take the first free number.
    unsigned const start = (sim::TheWorld().Ticks() & 0xFFFF) == 0 ? 1 : (sim::TheWorld().Ticks() & 0xFFFF);
    unsigned number = start;
    do {
        std::u16string const name = nameFor(number);
        if (sim::TheWorld().files.Create(name, false, FILE_ATTRIBUTE_ARCHIVE)) {
            return hand(name, number);
        }
        if (GetLastError() != ERROR_ALREADY_EXISTS) {
            return 0;
        }
        number = number == 0xFFFF ? 1 : number + 1;
    } while (number != start);
    SetLastError(ERROR_FILE_EXISTS);
    return 0;
}

DWORD GetPrivateProfileStringW(const WCHAR* appName, const WCHAR* keyName, const WCHAR* defaultValue,
                               WCHAR* returnedString, DWORD size, const WCHAR* fileName)
{
    DWORD error = 0;
    if (sim::Injected("GetPrivateProfileStringW", error)) {
        return 0;
    }
    if (returnedString == nullptr || size == 0) {
        return 0;
    }
    std::u16string value = defaultValue ? defaultValue : u"";
    std::shared_ptr<sim::FileNode> file = sim::TheWorld().files.Find(fileName ? fileName : u"");
    if (file && !file->isDirectory && appName != nullptr && keyName != nullptr) {
        if (auto found = sim::ReadProfileString(file->contents, appName, keyName)) {
            value = *found;
        }
    } else if (!file) {
        SetLastError(ERROR_FILE_NOT_FOUND);
    }
    std::size_t const copied = std::min<std::size_t>(value.size(), size - 1);
    std::copy_n(value.begin(), copied, returnedString);
    returnedString[copied] = 0;
    return static_cast<DWORD>(copied);
}

HRESULT SHGetFolderPathW(void* /*window*/, int folder, HANDLE /*token*/, DWORD /*flags*/, WCHAR* path)
{
    DWORD error = 0;
    if (sim::Injected("SHGetFolderPathW", error)) {
        return static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu));
    }
    if (folder != CSIDL_LOCAL_APPDATA || path == nullptr) {
        return E_INVALIDARG;
    }
    auto& world = sim::TheWorld();
    std::u16string const folderPath = world.files.LocalAppData(world.processes.current.userName);
    if (!world.files.IsDirectory(folderPath) || folderPath.size() >= kMaxPath) {
        return E_FAIL;
    }
    std::copy(folderPath.begin(), folderPath.end(), path);
    path[folderPath.size()] = 0;
    return S_OK;
}

}  // namespace hf::os
