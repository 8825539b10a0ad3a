// The simulated file system: drives, directories and files with their
// contents, and the change records that watched directories receive.
//
// Names compare without regard to case and keep the spelling they were created
// with, as on NTFS; a modification is reported under the spelling the writer
// used for the file's name. Every change is reported at once to the directory handles
// that watch it, with Windows' per-record rules: actions 1 to 5, names relative
// to the watched directory, subfolders only for a watch of the subtree, and
// only the kinds of change that the watch's filter asks for.
#pragma once

#include "platform/Types.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hf::sim {

class DirectoryHandle;

// One file or directory.
struct FileNode {
    std::u16string name;
    bool isDirectory = false;
    DWORD attributes = 0;
    std::string contents;
    // Null for a drive's root and for a node that has been removed.
    FileNode* parent = nullptr;
    // By upper-case-folded name.
    std::map<std::u16string, std::shared_ptr<FileNode>, std::less<>> children;
    // Directory handles opened on this directory; those with a change read get its records.
    std::vector<std::weak_ptr<DirectoryHandle>> watchers;
};

class FileSystem {
public:
    FileSystem();

    // --- arranging, as the user or another program would -----------------------------
    // The directory and every missing level above it (a drive letter is enough to make a drive).
    std::shared_ptr<FileNode> MakeDirectory(std::u16string const& path);
    // Creates the file (and the directories above it) with these bytes, or replaces the bytes of
    // an existing file: "added" and "modified" records for a new file, "modified" for an old one.
    void WriteFile(std::u16string const& path, std::string const& bytes);
    // Appends to an existing file: a "modified" record.
    void AppendFile(std::u16string const& path, std::string const& bytes);
    // Sets the last-write time of a file or directory: a "modified" record.
    void Touch(std::u16string const& path);
    // Renames or moves a file or directory. Within one directory: "renamed from" and "renamed to";
    // between directories: "removed" from the old one and "added" to the new one.
    void Rename(std::u16string const& from, std::u16string const& to);
    // Deletes a file, or a directory with everything in it: "removed" records.
    void Delete(std::u16string const& path);

    // --- inspecting ---------------------------------------------------------------------
    bool Exists(std::u16string const& path) const { return Find(path) != nullptr; }
    bool IsDirectory(std::u16string const& path) const { return Find(path) && Find(path)->isDirectory; }
    // The names in a directory, in the order a listing gives them.
    std::vector<std::u16string> List(std::u16string const& directory) const;

    // The local application-data folder (CSIDL_LOCAL_APPDATA) of a user named DOMAIN\user:
    // C:\Users\<user>\AppData\Local.
    static std::u16string LocalAppData(std::u16string const& user);

    // --- how change records are laid out -----------------------------------------------
    // Windows starts every record of a read's buffer on a 4-byte boundary; Wine lays
    // them end to end. Both are what the platform may deliver.
    enum class RecordLayout { Padded, Packed };
    RecordLayout recordLayout = RecordLayout::Padded;

    // --- lost changes -------------------------------------------------------------------
    // How a watch learns that changes were lost: 0 completes its read with zero bytes and no
    // error (as Windows does), anything else completes it with that error (as Wine does, 1022).
    DWORD overflowError = 0;
    // Makes every watch that sees this directory lose the changes it holds, as when the
    // system's own change buffer overflows.
    void LoseChanges(std::u16string const& directory);

    // --- the backend's side -------------------------------------------------------------
    // The node at a full path (X:\...), or null with the last error set.
    std::shared_ptr<FileNode> Find(std::u16string const& path) const;
    // Creates a file or directory at a full path whose parent exists; null with the last
    // error set (ERROR_PATH_NOT_FOUND, ERROR_ALREADY_EXISTS) otherwise.
    std::shared_ptr<FileNode> Create(std::u16string const& path, bool directory, DWORD attributes);
    // Removes a node (and what it holds) with its "removed" records.
    void Remove(FileNode& node);
    // CreateFileW of any name that is not a pipe, opening (OPEN_EXISTING) or making
    // (OPEN_ALWAYS) a file, or opening a directory with FILE_FLAG_BACKUP_SEMANTICS.
    HANDLE Open(std::u16string const& path, DWORD disposition, DWORD flags);

    void Clear();

private:
    std::shared_ptr<FileNode> FindOrThrow(std::u16string const& path) const;

    // By upper-case-folded drive ("C:").
    std::map<std::u16string, std::shared_ptr<FileNode>, std::less<>> drives_;
};

// Whether a name matches a wildcard pattern (* any run, ? one character), without regard to case.
bool MatchesWildcards(std::u16string_view name, std::u16string_view pattern);

}  // namespace hf::sim
