#include "platform/sim/SimFileSystem.h"
#include "platform/Constants.h"
#include "platform/Files.h"

#include "platform/Errors.h"
#include "platform/sim/SimCaseFold.h"
#include "platform/sim/SimFileObjects.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace hf::sim {

namespace {

HANDLE const kInvalidHandleValue = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
constexpr DWORD kContentsChanged = FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

// A full path taken apart the way Windows normalises it before it looks at
// any directory: "/" is "\", empty and "." components vanish, and ".." takes
// away the component before it (never the drive), whether that one exists or not.
struct ParsedPath {
    std::u16string drive;  // "C:", folded
    std::vector<std::u16string> parts;

    std::u16string Parent() const
    {
        std::u16string parent = drive + u"\\";
        for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
            parent += parts[i] + u"\\";
        }
        return parent;
    }
};

bool ParsePath(std::u16string const& path, ParsedPath& parsed)
{
    if (path.size() < 2 || path[1] != u':' ||
        !((path[0] >= u'A' && path[0] <= u'Z') || (path[0] >= u'a' && path[0] <= u'z'))) {
        return false;
    }
    if (path.size() > 2 && path[2] != u'\\' && path[2] != u'/') {
        return false;  // drive-relative ("C:name") paths are not used here
    }
    parsed.drive = FoldCase(path.substr(0, 2));
    parsed.parts.clear();
    std::u16string part;
    auto finish = [&] {
        if (part == u"..") {
            if (!parsed.parts.empty()) {
                parsed.parts.pop_back();
            }
        } else if (!part.empty() && part != u".") {
            parsed.parts.push_back(part);
        }
        part.clear();
    };
    for (std::size_t i = 2; i < path.size(); ++i) {
        if (path[i] == u'\\' || path[i] == u'/') {
            finish();
        } else {
            part += path[i];
        }
    }
    finish();
    return true;
}

// A full path with at least one component, for the arranging calls.
ParsedPath ParseOrThrow(std::u16string const& path)
{
    ParsedPath parsed;
    if (!ParsePath(path, parsed) || parsed.parts.empty()) {
        throw std::invalid_argument("the simulated file system takes full paths below a drive letter");
    }
    return parsed;
}

bool IsValidName(std::u16string const& name)
{
    for (char16_t c : name) {
        if (c < 0x20 || c == u'<' || c == u'>' || c == u':' || c == u'"' || c == u'|' || c == u'?' || c == u'*') {
            return false;
        }
    }
    return true;
}

DWORD NameChangeKind(FileNode const& node)
{
    return node.isDirectory ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME;
}

// Tells every watch that sees `node` about one change of it: the watches of its
// own directory, and the watches of the subtree of each directory above, each
// with the name relative to its directory. The record carries the node's name,
// or the spelling of the name that the program making the change used
// (`spelling`), as NTFS reports it.
void Notify(FileNode const& node, DWORD action, DWORD changeKind, std::u16string const* spelling = nullptr)
{
    std::u16string relative = spelling != nullptr ? *spelling : node.name;
    int depth = 0;
    for (FileNode* directory = node.parent; directory != nullptr; directory = directory->parent, ++depth) {
        auto& watchers = directory->watchers;
        watchers.erase(std::remove_if(watchers.begin(), watchers.end(), [](auto const& w) { return w.expired(); }),
                       watchers.end());
        for (auto const& watcher : watchers) {
            watcher.lock()->Record(action, relative, changeKind, depth);
        }
        relative = directory->name + u"\\" + relative;
    }
}

void Detach(FileNode& node)
{
    if (node.parent != nullptr) {
        node.parent->children.erase(FoldCase(node.name));
        node.parent = nullptr;
    }
}

void Attach(FileNode& directory, std::shared_ptr<FileNode> node)
{
    node->parent = &directory;
    std::u16string key = FoldCase(node->name);
    directory.children[std::move(key)] = std::move(node);
}

}  // namespace

FileSystem::FileSystem()
{
    Clear();
}

void FileSystem::Clear()
{
    drives_.clear();
    overflowError = 0;
    recordLayout = RecordLayout::Padded;
    MakeDirectory(u"C:\\");
    MakeDirectory(LocalAppData(u"OFFICE\\clerk"));
}

std::shared_ptr<FileNode> FileSystem::Find(std::u16string const& path) const
{
    ParsedPath parsed;
    auto const drive = ParsePath(path, parsed) ? drives_.find(parsed.drive) : drives_.end();
    if (drive == drives_.end()) {
        os::SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    std::shared_ptr<FileNode> node = drive->second;
    for (std::size_t i = 0; i < parsed.parts.size(); ++i) {
        auto const child = node->isDirectory && parsed.parts[i].size() <= os::kMaxPath
                               ? node->children.find(FoldCase(parsed.parts[i]))
                               : node->children.end();
        if (child == node->children.end()) {
            bool const last = i + 1 == parsed.parts.size() && node->isDirectory;
            os::SetLastError(last ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
            return nullptr;
        }
        node = child->second;
    }
    return node;
}

std::shared_ptr<FileNode> FileSystem::Create(std::u16string const& path, bool directory, DWORD attributes)
{
    ParsedPath parsed;
    if (!ParsePath(path, parsed)) {
        os::SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    if (parsed.parts.empty()) {
        os::SetLastError(ERROR_ACCESS_DENIED);  // a drive's root
        return nullptr;
    }
    std::u16string const& name = parsed.parts.back();
    if (!IsValidName(name)) {
        os::SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    std::shared_ptr<FileNode> parent = Find(parsed.Parent());
    if (!parent || !parent->isDirectory) {
        os::SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    if (parent->children.count(FoldCase(name)) != 0) {
        os::SetLastError(ERROR_ALREADY_EXISTS);
        return nullptr;
    }
    auto node = std::make_shared<FileNode>();
    node->name = name;
    node->isDirectory = directory;
    node->attributes = directory ? FILE_ATTRIBUTE_DIRECTORY : attributes;
    Attach(*parent, node);
    Notify(*node, FILE_ACTION_ADDED, NameChangeKind(*node));
    return node;
}

void FileSystem::Remove(FileNode& node)
{
    while (!node.children.empty()) {
        Remove(*node.children.begin()->second);
    }
    if (node.parent == nullptr) {
        return;
    }
    Notify(node, FILE_ACTION_REMOVED, NameChangeKind(node));
    Detach(node);
}

HANDLE FileSystem::Open(std::u16string const& path, DWORD disposition, DWORD flags)
{
    std::shared_ptr<FileNode> node = Find(path);
    if (node && node->isDirectory && (flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) {
        os::SetLastError(ERROR_ACCESS_DENIED);
        return kInvalidHandleValue;
    }
    if (node) {
        os::SetLastError(disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : 0);
    } else {
        if (disposition == OPEN_EXISTING || os::GetLastError() == ERROR_PATH_NOT_FOUND) {
            return kInvalidHandleValue;
        }
        node = Create(path, false, (flags & 0xFFFF & ~FILE_ATTRIBUTE_NORMAL) | FILE_ATTRIBUTE_ARCHIVE);
        if (!node) {
            return kInvalidHandleValue;
        }
        os::SetLastError(0);
    }
    if (node->isDirectory) {
        auto directory = std::make_shared<DirectoryHandle>(node);
        node->watchers.push_back(directory);
        return TheWorld().AddHandle(directory);
    }
    return TheWorld().AddHandle(std::make_shared<FileHandle>(node, (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0));
}

// --- arranging ----------------------------------------------------------------------------

std::shared_ptr<FileNode> FileSystem::FindOrThrow(std::u16string const& path) const
{
    std::shared_ptr<FileNode> node = Find(path);
    if (!node) {
        throw std::invalid_argument("no such file or directory in the simulated file system");
    }
    return node;
}

std::shared_ptr<FileNode> FileSystem::MakeDirectory(std::u16string const& path)
{
    ParsedPath parsed;
    if (!ParsePath(path, parsed)) {
        throw std::invalid_argument("the simulated file system takes full paths with a drive letter");
    }
    std::shared_ptr<FileNode>& drive = drives_[parsed.drive];
    if (!drive) {
        drive = std::make_shared<FileNode>();
        drive->name = path.substr(0, 2);
        drive->isDirectory = true;
        drive->attributes = FILE_ATTRIBUTE_DIRECTORY;
    }
    std::shared_ptr<FileNode> node = drive;
    for (auto const& part : parsed.parts) {
        auto child = node->children.find(FoldCase(part));
        if (child != node->children.end()) {
            node = child->second;
            if (!node->isDirectory) {
                throw std::invalid_argument("a file stands where the simulated file system needs a directory");
            }
            continue;
        }
        auto directory = std::make_shared<FileNode>();
        directory->name = part;
        directory->isDirectory = true;
        directory->attributes = FILE_ATTRIBUTE_DIRECTORY;
        Attach(*node, directory);
        Notify(*directory, FILE_ACTION_ADDED, FILE_NOTIFY_CHANGE_DIR_NAME);
        node = directory;
    }
    return node;
}

void FileSystem::WriteFile(std::u16string const& path, std::string const& bytes)
{
    ParsedPath const parsed = ParseOrThrow(path);
    std::shared_ptr<FileNode> directory = MakeDirectory(parsed.Parent());
    auto existing = directory->children.find(FoldCase(parsed.parts.back()));
    if (existing != directory->children.end()) {
        if (existing->second->isDirectory) {
            throw std::invalid_argument("cannot write a directory as a file");
        }
        existing->second->contents = bytes;
        Notify(*existing->second, FILE_ACTION_MODIFIED, kContentsChanged, &parsed.parts.back());
        return;
    }
    std::shared_ptr<FileNode> file = Create(path, false, FILE_ATTRIBUTE_ARCHIVE);
    if (!file) {
        throw std::invalid_argument("the simulated file system cannot create that file");
    }
    file->contents = bytes;
    if (!bytes.empty()) {
        Notify(*file, FILE_ACTION_MODIFIED, kContentsChanged);
    }
}

void FileSystem::AppendFile(std::u16string const& path, std::string const& bytes)
{
    std::shared_ptr<FileNode> file = FindOrThrow(path);
    if (file->isDirectory) {
        throw std::invalid_argument("cannot append to a directory");
    }
    file->contents += bytes;
    Notify(*file, FILE_ACTION_MODIFIED, kContentsChanged, &ParseOrThrow(path).parts.back());
}

void FileSystem::Touch(std::u16string const& path)
{
    Notify(*FindOrThrow(path), FILE_ACTION_MODIFIED, FILE_NOTIFY_CHANGE_LAST_WRITE, &ParseOrThrow(path).parts.back());
}

void FileSystem::Rename(std::u16string const& from, std::u16string const& to)
{
    std::shared_ptr<FileNode> node = FindOrThrow(from);
    ParsedPath const target = ParseOrThrow(to);
    std::shared_ptr<FileNode> directory = FindOrThrow(target.Parent());
    auto clash = directory->children.find(FoldCase(target.parts.back()));
    if (node->parent == nullptr || (clash != directory->children.end() && clash->second != node)) {
        throw std::invalid_argument("cannot rename a drive, or onto another file");
    }
    // Within one directory: renamed from and to; between directories: removed and added.
    bool const within = directory.get() == node->parent;
    DWORD const kind = NameChangeKind(*node);
    Notify(*node, within ? FILE_ACTION_RENAMED_OLD_NAME : FILE_ACTION_REMOVED, kind);
    Detach(*node);
    node->name = target.parts.back();
    Attach(*directory, node);
    Notify(*node, within ? FILE_ACTION_RENAMED_NEW_NAME : FILE_ACTION_ADDED, kind);
}

void FileSystem::Delete(std::u16string const& path)
{
    std::shared_ptr<FileNode> node = FindOrThrow(path);
    if (node->parent == nullptr) {
        throw std::invalid_argument("cannot delete a drive");
    }
    Remove(*node);
}

std::vector<std::u16string> FileSystem::List(std::u16string const& directory) const
{
    std::vector<std::u16string> names;
    for (auto const& child : FindOrThrow(directory)->children) {
        names.push_back(child.second->name);
    }
    return names;
}

std::u16string FileSystem::LocalAppData(std::u16string const& user)
{
    return u"C:\\Users\\" + user.substr(user.find(u'\\') + 1) + u"\\AppData\\Local";
}

void FileSystem::LoseChanges(std::u16string const& directory)
{
    std::shared_ptr<FileNode> node = FindOrThrow(directory);
    for (FileNode* level = node.get(); level != nullptr; level = level->parent) {
        for (auto const& weak : level->watchers) {
            if (auto watcher = weak.lock()) {
                if (level == node.get() || watcher->WatchesSubtree()) {
                    watcher->LoseChanges();
                }
            }
        }
    }
}

bool MatchesWildcards(std::u16string_view name, std::u16string_view pattern)
{
    // Back-tracking to the last "*" seen.
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t starP = std::u16string_view::npos;
    std::size_t starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == u'?' || FoldCase(pattern[p]) == FoldCase(name[n]))) {
            ++n;
            ++p;
        } else if (p < pattern.size() && pattern[p] == u'*') {
            starP = p++;
            starN = n;
        } else if (starP != std::u16string_view::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*') {
        ++p;
    }
    return p == pattern.size();
}

// --- the objects behind the handles ---------------------------------------------------------

namespace {

constexpr std::size_t kRecordHeader = 12;

void PutDword(BYTE* at, DWORD value)
{
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<BYTE>(value >> (8 * i));
    }
}

}  // namespace

BOOL DirectoryHandle::StartRead(void* buffer, DWORD size, bool watchSubtree, DWORD filter, OVERLAPPED* overlapped,
                                LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    if (buffer == nullptr || reinterpret_cast<std::uintptr_t>(buffer) % 4 != 0 || size < kRecordHeader || filter == 0 ||
        overlapped == nullptr || routine == nullptr) {
        os::SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    watching_ = true;
    watchSubtree_ = watchSubtree;
    filter_ = filter;
    reads_.push_back(Read{static_cast<BYTE*>(buffer), size, overlapped, routine});
    if (lost_ || !held_.empty()) {
        CompleteLater();
    }
    return 1;
}

bool DirectoryHandle::WatchesSubtree() const
{
    return watching_ && watchSubtree_;
}

void DirectoryHandle::Record(DWORD action, std::u16string const& name, DWORD changeKind, int depth)
{
    if (!watching_ || closed_ || (depth > 0 && !watchSubtree_) || (filter_ & changeKind) == 0) {
        return;
    }
    if (!lost_) {
        held_.push_back(ChangeRecord{action, name});
    }
    if (!reads_.empty()) {
        CompleteLater();
    }
}

void DirectoryHandle::LoseChanges()
{
    if (!watching_ || closed_) {
        return;
    }
    lost_ = true;
    held_.clear();
    if (!reads_.empty()) {
        CompleteLater();
    }
}

void DirectoryHandle::CompleteLater()
{
    if (completionQueued_) {
        return;
    }
    completionQueued_ = true;
    // The routine runs in the thread's next alertable wait; the records that
    // arrive until then go into the same completion, as they would on Windows.
    TheWorld().QueueApc([weak = weak_from_this()] {
        if (auto handle = weak.lock()) {
            handle->Complete();
        }
    });
}

void DirectoryHandle::Complete()
{
    completionQueued_ = false;
    if (closed_ || reads_.empty() || (!lost_ && held_.empty())) {
        return;
    }
    Read const read = reads_.front();
    reads_.pop_front();
    // The records in order, each but the last followed by the padding its layout asks for.
    std::vector<BYTE> bytes;
    for (std::size_t i = 0; i < held_.size(); ++i) {
        std::size_t const start = bytes.size();
        bytes.resize(start + kRecordHeader);
        PutDword(&bytes[start + 4], held_[i].action);
        PutDword(&bytes[start + 8], static_cast<DWORD>(held_[i].name.size() * sizeof(char16_t)));
        for (char16_t c : held_[i].name) {
            bytes.push_back(static_cast<BYTE>(c & 0xFF));
            bytes.push_back(static_cast<BYTE>(c >> 8));
        }
        if (i + 1 < held_.size()) {
            if (TheWorld().files.recordLayout == FileSystem::RecordLayout::Padded) {
                bytes.resize((bytes.size() + 3) & ~std::size_t{3});
            }
            PutDword(&bytes[start], static_cast<DWORD>(bytes.size() - start));
        }
    }
    held_.clear();
    // Changes that do not fit the read's buffer are lost.
    bool const lost = std::exchange(lost_, false) || bytes.size() > read.size;
    if (!lost) {
        std::copy(bytes.begin(), bytes.end(), read.buffer);
    }
    read.routine(lost ? TheWorld().files.overflowError : 0, lost ? 0 : static_cast<DWORD>(bytes.size()),
                 read.overlapped);
}

bool DirectoryHandle::CompleteWith(DWORD error, std::string_view bytes, DWORD count)
{
    if (closed_ || reads_.empty()) {
        return false;
    }
    Read const read = reads_.front();
    reads_.pop_front();
    std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), read.size), read.buffer);
    read.routine(error, count, read.overlapped);
    return true;
}

void DirectoryHandle::OnClose()
{
    // The watcher closes a watched directory only from the completion routine
    // of its last read, or when the process ends: nothing is outstanding that
    // could still complete.
    closed_ = true;
    reads_.clear();
    held_.clear();
}

void FileHandle::OnClose()
{
    if (deleteOnClose && node->parent != nullptr) {
        TheWorld().files.Remove(*node);
    }
}

}  // namespace hf::sim
