// The simulated file system through the Win32-shaped calls: the Windows
// behaviour the watcher's tests rely on, checked on its own.
#include "SimTest.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "platform/UniqueHandle.h"

#include <cstring>

namespace hf::test {
namespace {

// One directory handle with its change reads, as a client of the seam uses it.
struct ChangeReader {
    explicit ChangeReader(std::u16string const& path)
        : directory(os::CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, 7, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr))
    {
    }

    bool Read(bool subtree, DWORD filter = 0x19, DWORD size = sizeof(Storage::buffer))
    {
        storage->owner = this;
        return os::ReadDirectoryChangesW(directory.get(), storage->buffer, size, subtree ? TRUE : FALSE, filter,
                                         nullptr, &storage->overlapped, &Completed) != FALSE;
    }

    static void Completed(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
    {
        auto* storage = reinterpret_cast<Storage*>(overlapped);
        ChangeReader& reader = *storage->owner;
        reader.completions.push_back({error, bytes});
        if (error != 0 || bytes == 0) {
            return;
        }
        for (std::size_t offset = 0;;) {
            DWORD next = 0;
            DWORD action = 0;
            DWORD length = 0;
            std::memcpy(&next, storage->buffer + offset, 4);
            std::memcpy(&action, storage->buffer + offset + 4, 4);
            std::memcpy(&length, storage->buffer + offset + 8, 4);
            std::u16string name(length / 2, u'\0');
            std::memcpy(&name[0], storage->buffer + offset + 12, length);
            reader.records.push_back(std::to_string(action) + " " + U8(name));
            if (next == 0) {
                break;
            }
            offset += next;
        }
    }

    struct Storage {
        OVERLAPPED overlapped{};
        ChangeReader* owner = nullptr;
        alignas(DWORD) BYTE buffer[4096];
    };
    struct Completion {
        DWORD error;
        DWORD bytes;
    };

    UniqueFileHandle directory;
    std::unique_ptr<Storage> storage = std::make_unique<Storage>();
    std::vector<std::string> records;
    std::vector<Completion> completions;
};

class SimFileSystemTest : public SimTest {
protected:
    SimFileSystemTest()
    {
        world().files.MakeDirectory(u"C:\\W\\Sub");
        event.reset(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    // An alertable wait that nothing signals: the queued completion routines run in it.
    DWORD AlertableWait(BOOL alertable = TRUE)
    {
        HANDLE handles[] = {event.get()};
        return os::WaitForMultipleObjectsEx(1, handles, FALSE, 0, alertable);
    }
    UniqueKernelHandle event;
};

TEST_F(SimFileSystemTest, CompletionsRunOnlyInsideAnAlertableWait)
{
    ChangeReader reader(u"C:\\W");
    ASSERT_TRUE(reader.Read(false));
    world().files.WriteFile(u"C:\\W\\a.txt", "x");

    EXPECT_EQ(AlertableWait(FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(reader.records.empty());
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(reader.records, (std::vector<std::string>{"1 a.txt", "3 a.txt"}));
    EXPECT_EQ(reader.completions.size(), 1u);
}

TEST_F(SimFileSystemTest, NamesAreRelativeToTheWatchedDirectoryAndSubfoldersNeedTheSubtree)
{
    ChangeReader flat(u"C:\\W");
    ChangeReader deep(u"C:\\W");
    ASSERT_TRUE(flat.Read(false));
    ASSERT_TRUE(deep.Read(true));

    world().files.WriteFile(u"C:\\W\\Sub\\b.txt", "");
    world().files.WriteFile(u"C:\\W\\top.txt", "");
    world().files.WriteFile(u"C:\\Other\\c.txt", "");
    AlertableWait();

    EXPECT_EQ(flat.records, (std::vector<std::string>{"1 top.txt"}));
    EXPECT_EQ(deep.records, (std::vector<std::string>{"1 Sub\\b.txt", "1 top.txt"}));
}

TEST_F(SimFileSystemTest, TheFilterDecidesWhichChangesAreReported)
{
    ChangeReader names(u"C:\\W");
    ChangeReader writes(u"C:\\W");
    ChangeReader directories(u"C:\\W");
    ASSERT_TRUE(names.Read(false, FILE_NOTIFY_CHANGE_FILE_NAME));
    ASSERT_TRUE(writes.Read(false, FILE_NOTIFY_CHANGE_LAST_WRITE));
    ASSERT_TRUE(directories.Read(false, 0x02));

    world().files.WriteFile(u"C:\\W\\a.txt", "x");
    world().files.MakeDirectory(u"C:\\W\\New");
    world().files.Rename(u"C:\\W\\New", u"C:\\W\\Renamed");
    AlertableWait();

    EXPECT_EQ(names.records, (std::vector<std::string>{"1 a.txt"}));
    EXPECT_EQ(writes.records, (std::vector<std::string>{"3 a.txt"}));
    EXPECT_EQ(directories.records, (std::vector<std::string>{"1 New", "4 New", "5 Renamed"}));
}

TEST_F(SimFileSystemTest, ChangesWhileNoReadIsOutstandingWaitForTheNextRead)
{
    ChangeReader reader(u"C:\\W");
    ASSERT_TRUE(reader.Read(false));
    world().files.WriteFile(u"C:\\W\\1.txt", "");
    AlertableWait();
    ASSERT_EQ(reader.records.size(), 1u);

    world().files.WriteFile(u"C:\\W\\2.txt", "");  // no read outstanding now
    world().files.Delete(u"C:\\W\\1.txt");
    EXPECT_EQ(AlertableWait(), WAIT_TIMEOUT);

    ASSERT_TRUE(reader.Read(false));
    AlertableWait();
    EXPECT_EQ(reader.records, (std::vector<std::string>{"1 1.txt", "1 2.txt", "2 1.txt"}));
}

TEST_F(SimFileSystemTest, MovesBetweenDirectoriesAreRemovedAndAdded)
{
    ChangeReader reader(u"C:\\W");
    ASSERT_TRUE(reader.Read(true));
    world().files.WriteFile(u"C:\\W\\a.txt", "");
    world().files.Rename(u"C:\\W\\a.txt", u"C:\\W\\b.txt");
    world().files.Rename(u"C:\\W\\b.txt", u"C:\\W\\Sub\\b.txt");
    AlertableWait();
    EXPECT_EQ(reader.records, (std::vector<std::string>{"1 a.txt", "4 a.txt", "5 b.txt", "2 b.txt", "1 Sub\\b.txt"}));
}

TEST_F(SimFileSystemTest, ChangesThatDoNotFitTheBufferAreLostAsZeroBytesOrAsTheChosenError)
{
    ChangeReader reader(u"C:\\W");
    ASSERT_TRUE(reader.Read(false, 0x19, 64));
    world().files.WriteFile(u"C:\\W\\a-rather-long-file-name.txt", "");
    world().files.WriteFile(u"C:\\W\\another-rather-long-file-name.txt", "");
    AlertableWait();
    ASSERT_EQ(reader.completions.size(), 1u);
    EXPECT_EQ(reader.completions[0].error, 0u);
    EXPECT_EQ(reader.completions[0].bytes, 0u);

    world().files.overflowError = ERROR_NOTIFY_ENUM_DIR;
    ASSERT_TRUE(reader.Read(false, 0x19, 64));
    world().files.LoseChanges(u"C:\\W");
    AlertableWait();
    ASSERT_EQ(reader.completions.size(), 2u);
    EXPECT_EQ(reader.completions[1].error, ERROR_NOTIFY_ENUM_DIR);
    EXPECT_EQ(reader.completions[1].bytes, 0u);
}

TEST_F(SimFileSystemTest, ATempFileIsMadeAtOnceAndADeleteOnCloseFileGoesAtItsClose)
{
    ChangeReader reader(u"C:\\W");
    ASSERT_TRUE(reader.Read(false));
    world().SetTicks(0x12AB);

    WCHAR name[os::kMaxPath] = {};
    ASSERT_EQ(os::GetTempFileNameW(u"C:\\W", u"WakeUp", 0, name), 0x12ABu);
    EXPECT_EQ(U8(name), "C:\\W\\Wak12AB.TMP");
    EXPECT_TRUE(world().files.Exists(name));
    {
        UniqueFileHandle file(os::CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        ASSERT_TRUE(file.valid());
        EXPECT_EQ(os::GetLastError(), ERROR_ALREADY_EXISTS);
    }
    EXPECT_FALSE(world().files.Exists(name));
    AlertableWait();
    EXPECT_EQ(reader.records, (std::vector<std::string>{"1 Wak12AB.TMP", "2 Wak12AB.TMP"}));

    ASSERT_EQ(os::GetTempFileNameW(u"C:\\W", u"WakeUp", 0, name), 0x12ABu) << "the number is free again";
    EXPECT_EQ(os::GetTempFileNameW(u"C:\\W", u"WakeUp", 0, name), 0x12ACu) << "taken: the next one";
    EXPECT_EQ(os::GetTempFileNameW(u"C:\\Missing", u"WakeUp", 0, name), 0u);
}

TEST_F(SimFileSystemTest, OpeningFailsWithWindowsErrorCodes)
{
    auto open = [](std::u16string const& path, DWORD disposition, DWORD flags) {
        UniqueFileHandle file(os::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, disposition, flags, nullptr));
        return file.valid() ? DWORD{0} : os::GetLastError();
    };
    EXPECT_EQ(open(u"C:\\Missing\\x", OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(open(u"C:\\W\\missing", OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(open(u"C:\\W", OPEN_EXISTING, 0), ERROR_ACCESS_DENIED) << "a directory needs backup semantics";
    EXPECT_EQ(open(u"c:\\w\\SUB", OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), 0u);
    EXPECT_EQ(open(u"C:\\W\\new.txt", CREATE_NEW, 0), 0u);
    EXPECT_EQ(open(u"C:\\W\\NEW.TXT", CREATE_NEW, 0), ERROR_FILE_EXISTS);
    EXPECT_EQ(world().files.List(u"C:\\W"), (std::vector<std::u16string>{u"new.txt", u"Sub"}))
        << "names keep the spelling they were made with and list without regard to case";
    EXPECT_EQ(HandlesLeftOpen(), 1) << "only the fixture's event";
}

TEST_F(SimFileSystemTest, ListingsGiveDotsEntriesAndPipes)
{
    world().files.WriteFile(u"C:\\W\\b.txt", "");
    world().files.WriteFile(u"C:\\W\\a.pdf", "");
    auto list = [](std::u16string const& pattern) {
        std::vector<std::string> names;
        os::WIN32_FIND_DATAW data;
        UniqueFindHandle find(os::FindFirstFileW(pattern.c_str(), &data));
        if (!find) {
            names.push_back("error " + std::to_string(os::GetLastError()));
            return names;
        }
        do {
            names.push_back(U8(data.cFileName) + ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? "/" : ""));
        } while (os::FindNextFileW(find.get(), &data));
        return names;
    };
    EXPECT_EQ(list(u"C:\\W\\*"), (std::vector<std::string>{"./", "../", "a.pdf", "b.txt", "Sub/"}));
    EXPECT_EQ(list(u"C:\\W\\*.TXT"), (std::vector<std::string>{"b.txt"}));
    EXPECT_EQ(list(u"C:\\W\\none*"), (std::vector<std::string>{"error 2"}));
    EXPECT_EQ(list(u"C:\\Nowhere\\*"), (std::vector<std::string>{"error 3"}));

    DWORD error = 0;
    auto instance = world().pipes.CreateInstance(u"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk", 0, 255, error);
    ASSERT_TRUE(instance);
    EXPECT_EQ(list(u"\\\\.\\pipe\\*"), (std::vector<std::string>{"Tarnwick_FolderWatcher_OFFICE_clerk"}));
    EXPECT_EQ(list(u"\\\\.\\pipe\\Tarnwick_PlugIn_*"), (std::vector<std::string>{"error 2"}));
}

TEST_F(SimFileSystemTest, TheLocalAppDataFolderIsTheCurrentUsers)
{
    WCHAR path[os::kMaxPath] = {};
    ASSERT_EQ(os::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path), S_OK);
    EXPECT_EQ(U8(path), "C:\\Users\\clerk\\AppData\\Local");

    world().processes.current.userName = u"OFFICE\\auditor";
    EXPECT_EQ(os::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path), E_FAIL)
        << "no profile folder yet";
    world().files.SetLocalAppData(u"office\\AUDITOR", u"E:\\Profiles\\auditor\\Local");
    world().files.MakeDirectory(u"E:\\Profiles\\auditor\\Local");
    ASSERT_EQ(os::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path), S_OK);
    EXPECT_EQ(U8(path), "E:\\Profiles\\auditor\\Local");

    world().faults.Fail("SHGetFolderPathW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(os::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path),
              HResultFromWin32(ERROR_ACCESS_DENIED));
}

TEST_F(SimFileSystemTest, ProfileStringsFallBackToTheDefaultAndAreCutToTheBuffer)
{
    world().files.WriteFile(u"C:\\W\\x.ini", "[S]\r\nKey = 'quoted value' \r\n");
    WCHAR value[8] = {};
    EXPECT_EQ(os::GetPrivateProfileStringW(u"s", u"KEY", u"def", value, 8, u"C:\\W\\x.ini"), 7u);
    EXPECT_EQ(U8(value), "quoted ");
    EXPECT_EQ(os::GetPrivateProfileStringW(u"S", u"Other", u"def", value, 8, u"C:\\W\\x.ini"), 3u);
    EXPECT_EQ(U8(value), "def");
    EXPECT_EQ(os::GetPrivateProfileStringW(u"S", u"Key", u"", value, 8, u"C:\\W\\missing.ini"), 0u);
    EXPECT_EQ(U8(value), "");
}

}  // namespace
}  // namespace hf::test
