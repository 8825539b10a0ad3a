#include "platform/sim/SimFileSystem.h"
#include "platform/Constants.h"
#include "platform/Files.h"

#include "platform/Errors.h"
#include "platform/sim/SimCaseFold.h"
#include "platform/sim/SimFileObjects.h"

#include <stdexcept>

namespace hf::sim {

namespace {

HANDLE const kInvalidHandleValue = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

// A full path taken apart the way Windows normalises it: "/" is "\", empty and
// "." components vanish, ".." climbs (never above the drive).
struct ParsedPath {
    std::u16string drive;  // "C:"
    std::vector<std::u16string> parts;
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
// own directory, and the watches of the subtree of each directory above. The
// record carries the node's name, or the spelling of the name that the program
// making the change used (`spelling`), as NTFS reports it.
void Notify(FileNode const& node, DWORD action, DWORD changeKind, std::u16string const* spelling = nullptr)
{
    std::u16string relative = spelling != nullptr ? *spelling : node.name;
    int depth = 0;
    for (FileNode* directory = node.parent; directory != nullptr; directory = directory->parent, ++depth) {
        auto& watchers = directory->watchers;
        for (std::size_t i = 0; i < watchers.size();) {
            std::shared_ptr<DirectoryHandle> watcher = watchers[i].lock();
            if (!watcher) {
                watchers.erase(watchers.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            watcher->Record(action, relative, changeKind, depth);
            ++i;
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

// The last component of a full path as it is spelled there.
std::u16string LeafOf(std::u16string const& path)
{
    ParsedPath parsed;
    return ParsePath(path, parsed) && !parsed.parts.empty() ? parsed.parts.back() : std::u16string();
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
    localAppData_.clear();
    overflowError = 0;
    recordLayout = RecordLayout::Padded;
    MakeDirectory(u"C:\\");
    MakeDirectory(LocalAppData(u"OFFICE\\clerk"));
}

std::shared_ptr<FileNode> FileSystem::Find(std::u16string const& path) const
{
    // Every platform call that names a file comes through here, so the walk
    // makes no copies: each component is folded into a buffer on the stack.
    bool const rooted =
        path.size() >= 2 && path[1] == u':' && (path.size() == 2 || path[2] == u'\\' || path[2] == u'/');
    char16_t const driveName[2] = {rooted ? FoldCase(path[0]) : u'\0', u':'};
    auto const drive = rooted ? drives_.find(std::u16string_view(driveName, 2)) : drives_.end();
    if (drive == drives_.end()) {
        os::SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    // The directories walked so far, so that ".." can climb back.
    constexpr std::size_t kMaxDepth = 160;
    std::shared_ptr<FileNode> const* trail[kMaxDepth];
    std::size_t depth = 0;
    trail[depth++] = &drive->second;
    char16_t folded[os::kMaxPath];
    std::size_t const lastPart = path.find_last_not_of(u"\\/");
    std::size_t begin = 2;
    while (begin < path.size()) {
        std::size_t end = begin;
        while (end < path.size() && path[end] != u'\\' && path[end] != u'/') {
            ++end;
        }
        std::u16string_view const part(path.data() + begin, end - begin);
        bool const last = lastPart < end;
        begin = end + 1;
        if (part.empty() || part == u".") {
            continue;
        }
        if (part == u"..") {
            depth = depth > 1 ? depth - 1 : depth;
            continue;
        }
        FileNode const& directory = **trail[depth - 1];
        if (!directory.isDirectory || part.size() > os::kMaxPath || depth == kMaxDepth) {
            os::SetLastError(ERROR_PATH_NOT_FOUND);
            return nullptr;
        }
        for (std::size_t i = 0; i < part.size(); ++i) {
            folded[i] = FoldCase(part[i]);
        }
        auto const child = directory.children.find(std::u16string_view(folded, part.size()));
        if (child == directory.children.end()) {
            os::SetLastError(last ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
            return nullptr;
        }
        trail[depth++] = &child->second;
    }
    return *trail[depth - 1];
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
    std::u16string const name = parsed.parts.back();
    if (!IsValidName(name)) {
        os::SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    std::u16string parentPath = parsed.drive + u"\\";
    for (std::size_t i = 0; i + 1 < parsed.parts.size(); ++i) {
        parentPath += parsed.parts[i] + u"\\";
    }
    std::shared_ptr<FileNode> parent = Find(parentPath);
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

void FileSystem::ReportModified(FileNode& node, DWORD changeFilter)
{
    Notify(node, FILE_ACTION_MODIFIED, changeFilter);
}

HANDLE FileSystem::Open(std::u16string const& path, DWORD /*access*/, DWORD /*share*/, DWORD disposition, DWORD flags)
{
    std::shared_ptr<FileNode> node = Find(path);
    DWORD const missing = node ? 0 : os::GetLastError();
    if (node && node->isDirectory) {
        if ((flags & FILE_FLAG_BACKUP_SEMANTICS) == 0 || disposition == CREATE_ALWAYS ||
            disposition == TRUNCATE_EXISTING) {
            os::SetLastError(ERROR_ACCESS_DENIED);
            return kInvalidHandleValue;
        }
        if (disposition == CREATE_NEW) {
            os::SetLastError(ERROR_FILE_EXISTS);
            return kInvalidHandleValue;
        }
        auto directory = std::make_shared<DirectoryHandle>(node);
        node->watchers.push_back(directory);
        os::SetLastError(disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : 0);
        return TheWorld().AddHandle(directory);
    }
    bool const deleteOnClose = (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0;
    if (node) {
        if (disposition == CREATE_NEW) {
            os::SetLastError(ERROR_FILE_EXISTS);
            return kInvalidHandleValue;
        }
        if ((disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING) && !node->contents.empty()) {
            node->contents.clear();
            ReportModified(*node, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE);
        }
        os::SetLastError((disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) ? ERROR_ALREADY_EXISTS : 0);
        return TheWorld().AddHandle(std::make_shared<FileHandle>(node, deleteOnClose));
    }
    if (missing == ERROR_PATH_NOT_FOUND || disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING) {
        os::SetLastError(missing);
        return kInvalidHandleValue;
    }
    DWORD attributes = flags & 0xFFFF & ~FILE_ATTRIBUTE_NORMAL;
    attributes |= FILE_ATTRIBUTE_ARCHIVE;
    node = Create(path, false, attributes);
    if (!node) {
        return kInvalidHandleValue;
    }
    os::SetLastError(0);
    return TheWorld().AddHandle(std::make_shared<FileHandle>(node, deleteOnClose));
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

std::shared_ptr<FileNode> FileSystem::EnsureDirectory(std::u16string const& path)
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

void FileSystem::MakeDirectory(std::u16string const& path)
{
    EnsureDirectory(path);
}

void FileSystem::WriteFile(std::u16string const& path, std::string const& bytes)
{
    ParsedPath parsed;
    if (!ParsePath(path, parsed) || parsed.parts.empty()) {
        throw std::invalid_argument("the simulated file system takes full paths with a drive letter");
    }
    std::u16string directoryPath = parsed.drive + u"\\";
    for (std::size_t i = 0; i + 1 < parsed.parts.size(); ++i) {
        directoryPath += parsed.parts[i] + u"\\";
    }
    std::shared_ptr<FileNode> directory = EnsureDirectory(directoryPath);
    auto existing = directory->children.find(FoldCase(parsed.parts.back()));
    if (existing != directory->children.end()) {
        if (existing->second->isDirectory) {
            throw std::invalid_argument("cannot write a directory as a file");
        }
        existing->second->contents = bytes;
        Notify(*existing->second, FILE_ACTION_MODIFIED, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE,
               &parsed.parts.back());
        return;
    }
    std::shared_ptr<FileNode> file = Create(directoryPath + parsed.parts.back(), false, FILE_ATTRIBUTE_ARCHIVE);
    if (!file) {
        throw std::invalid_argument("the simulated file system cannot create that file");
    }
    file->contents = bytes;
    if (!bytes.empty()) {
        ReportModified(*file, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE);
    }
}

void FileSystem::WriteUnicodeFile(std::u16string const& path, std::u16string const& text)
{
    std::string bytes = "\xFF\xFE";
    for (char16_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    WriteFile(path, bytes);
}

void FileSystem::AppendFile(std::u16string const& path, std::string const& bytes)
{
    std::shared_ptr<FileNode> file = FindOrThrow(path);
    if (file->isDirectory) {
        throw std::invalid_argument("cannot append to a directory");
    }
    file->contents += bytes;
    std::u16string const spelling = LeafOf(path);
    Notify(*file, FILE_ACTION_MODIFIED, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE, &spelling);
}

void FileSystem::Touch(std::u16string const& path)
{
    std::shared_ptr<FileNode> node = FindOrThrow(path);
    std::u16string const spelling = LeafOf(path);
    Notify(*node, FILE_ACTION_MODIFIED, FILE_NOTIFY_CHANGE_LAST_WRITE, &spelling);
}

void FileSystem::Rename(std::u16string const& from, std::u16string const& to)
{
    std::shared_ptr<FileNode> node = FindOrThrow(from);
    ParsedPath target;
    if (!ParsePath(to, target) || target.parts.empty() || node->parent == nullptr) {
        throw std::invalid_argument("cannot rename to or from a drive");
    }
    std::u16string targetDirectory = target.drive + u"\\";
    for (std::size_t i = 0; i + 1 < target.parts.size(); ++i) {
        targetDirectory += target.parts[i] + u"\\";
    }
    std::shared_ptr<FileNode> directory = FindOrThrow(targetDirectory);
    std::u16string const newName = target.parts.back();
    auto clash = directory->children.find(FoldCase(newName));
    if (clash != directory->children.end() && clash->second != node) {
        throw std::invalid_argument("the rename target exists");
    }
    DWORD const kind = NameChangeKind(*node);
    if (directory.get() == node->parent) {
        Notify(*node, FILE_ACTION_RENAMED_OLD_NAME, kind);
        Detach(*node);
        node->name = newName;
        Attach(*directory, node);
        Notify(*node, FILE_ACTION_RENAMED_NEW_NAME, kind);
        return;
    }
    Notify(*node, FILE_ACTION_REMOVED, kind);
    Detach(*node);
    node->name = newName;
    Attach(*directory, node);
    Notify(*node, FILE_ACTION_ADDED, kind);
}

void FileSystem::Delete(std::u16string const& path)
{
    std::shared_ptr<FileNode> node = FindOrThrow(path);
    if (node->parent == nullptr) {
        throw std::invalid_argument("cannot delete a drive");
    }
    Remove(*node);
}

void FileSystem::SetAttributes(std::u16string const& path, DWORD attributes)
{
    std::shared_ptr<FileNode> node = FindOrThrow(path);
    node->attributes = (attributes & ~FILE_ATTRIBUTE_DIRECTORY) | (node->isDirectory ? FILE_ATTRIBUTE_DIRECTORY : 0);
    ReportModified(*node, FILE_NOTIFY_CHANGE_ATTRIBUTES);
}

bool FileSystem::Exists(std::u16string const& path) const
{
    return Find(path) != nullptr;
}

bool FileSystem::IsDirectory(std::u16string const& path) const
{
    std::shared_ptr<FileNode> node = Find(path);
    return node && node->isDirectory;
}

std::string FileSystem::Contents(std::u16string const& path) const
{
    return FindOrThrow(path)->contents;
}

std::vector<std::u16string> FileSystem::List(std::u16string const& directory) const
{
    std::vector<std::u16string> names;
    for (auto const& child : FindOrThrow(directory)->children) {
        names.push_back(child.second->name);
    }
    return names;
}

void FileSystem::SetLocalAppData(std::u16string const& user, std::u16string const& path)
{
    localAppData_[FoldCase(user)] = path;
}

std::u16string FileSystem::LocalAppData(std::u16string const& user) const
{
    auto found = localAppData_.find(FoldCase(user));
    if (found != localAppData_.end()) {
        return found->second;
    }
    std::size_t const slash = user.find(u'\\');
    std::u16string const name = slash == std::u16string::npos ? user : user.substr(slash + 1);
    return u"C:\\Users\\" + name + u"\\AppData\\Local";
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

// --- the objects behind the handles ---------------------------------------------------------

namespace {

constexpr std::size_t kRecordHeader = 12;

std::size_t RecordBytes(ChangeRecord const& record)
{
    return kRecordHeader + record.name.size() * sizeof(char16_t);
}

// The bytes from a record's start to the next record's.
std::size_t Spaced(std::size_t bytes)
{
    if (TheWorld().files.recordLayout == FileSystem::RecordLayout::Packed) {
        return bytes;
    }
    return (bytes + 3) & ~std::size_t{3};
}

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
    capacity_ = size;
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

std::size_t DirectoryHandle::HeldBytes() const
{
    std::size_t total = 0;
    for (auto const& record : held_) {
        total += Spaced(RecordBytes(record));
    }
    return total;
}

void DirectoryHandle::Record(DWORD action, std::u16string const& name, DWORD changeKind, int depth)
{
    if (!watching_ || closed_ || (depth > 0 && !watchSubtree_) || (filter_ & changeKind) == 0) {
        return;
    }
    if (!lost_) {
        held_.push_back(ChangeRecord{action, name});
        if (HeldBytes() > capacity_) {
            lost_ = true;
            held_.clear();
        }
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
    std::size_t needed = 0;
    for (std::size_t i = 0; i < held_.size(); ++i) {
        needed += i + 1 < held_.size() ? Spaced(RecordBytes(held_[i])) : RecordBytes(held_[i]);
    }
    if (lost_ || needed > read.size) {
        lost_ = false;
        held_.clear();
        read.routine(TheWorld().files.overflowError, 0, read.overlapped);
        return;
    }
    std::size_t offset = 0;
    for (std::size_t i = 0; i < held_.size(); ++i) {
        ChangeRecord const& record = held_[i];
        bool const last = i + 1 == held_.size();
        std::size_t const size = RecordBytes(record);
        BYTE* at = read.buffer + offset;
        PutDword(at, last ? 0 : static_cast<DWORD>(Spaced(size)));
        PutDword(at + 4, record.action);
        PutDword(at + 8, static_cast<DWORD>(record.name.size() * sizeof(char16_t)));
        for (std::size_t k = 0; k < record.name.size(); ++k) {
            at[kRecordHeader + 2 * k] = static_cast<BYTE>(record.name[k] & 0xFF);
            at[kRecordHeader + 2 * k + 1] = static_cast<BYTE>(record.name[k] >> 8);
        }
        offset += last ? size : Spaced(size);
    }
    held_.clear();
    read.routine(0, static_cast<DWORD>(offset), read.overlapped);
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

BOOL FileHandle::Write(const void* buffer, DWORD size, DWORD* written)
{
    if (node->parent == nullptr) {
        os::SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    auto const* bytes = static_cast<const char*>(buffer);
    if (node->contents.size() < position + size) {
        node->contents.resize(position + size);
    }
    node->contents.replace(position, size, bytes, size);
    position += size;
    if (written != nullptr) {
        *written = size;
    }
    if (size > 0) {
        TheWorld().files.ReportModified(*node, FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE);
    }
    return 1;
}

void FileHandle::OnClose()
{
    if (deleteOnClose && node->parent != nullptr) {
        TheWorld().files.Remove(*node);
    }
}

}  // namespace hf::sim
