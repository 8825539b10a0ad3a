// The win32 backend forwards the seam to Windows: the core's registry, event
// log, service manager, process and synchronisation calls, made through hf::os
// exactly as the core makes them, against the real system (Wine here).
#include "WideText.h"
#include "WineTestSupport.h"
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/EventLog.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/ServiceManager.h"
#include "platform/Sync.h"
#include "platform/UniqueHandle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace hf {
namespace {

using test::RunningUnderWine;

// A registry key of its own for every test process, removed at the end.
class Registry : public ::testing::Test {
protected:
    void SetUp() override
    {
        keyPath_ =
            u"Software\\Tarnwick Hot Folders Tests\\" + DecimalText(static_cast<std::int32_t>(os::GetTickCount()));
        DWORD disposition = 0;
        ASSERT_EQ(os::RegCreateKeyExW(HKEY_CURRENT_USER, keyPath_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS_READ_WRITE,
                                      nullptr, key_.put(), &disposition),
                  static_cast<LONG>(ERROR_SUCCESS));
        EXPECT_EQ(disposition, 1u);  // REG_CREATED_NEW_KEY
    }
    void TearDown() override
    {
        key_.reset();
        os::RegDeleteKeyW(HKEY_CURRENT_USER, keyPath_.c_str());
    }

    LONG SetString(std::u16string const& name, std::u16string const& data)
    {
        return os::RegSetValueExW(key_.get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(data.c_str()),
                                  static_cast<DWORD>((data.size() + 1) * sizeof(char16_t)));
    }

    std::u16string keyPath_;
    UniqueRegistryKey key_;
};

TEST_F(Registry, StringValueComesBackWithItsTypeAndSize)
{
    std::u16string const data = u"\"C:\\Program Files\\Tarnwick\\hf.exe\" -currentuser \u00e9";
    ASSERT_EQ(SetString(u"Tarnwick Hot Folder Watcher", data), static_cast<LONG>(ERROR_SUCCESS));

    DWORD type = 0;
    std::vector<BYTE> buffer(512);
    DWORD size = static_cast<DWORD>(buffer.size());
    ASSERT_EQ(os::RegQueryValueExW(key_.get(), u"Tarnwick Hot Folder Watcher", nullptr, &type, buffer.data(), &size),
              static_cast<LONG>(ERROR_SUCCESS));
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, (data.size() + 1) * sizeof(char16_t));
    EXPECT_EQ(ToUtf8(reinterpret_cast<const char16_t*>(buffer.data())), ToUtf8(data));
}

TEST_F(Registry, TooSmallBufferGivesMoreDataAndTheSizeNeeded)
{
    ASSERT_EQ(SetString(u"v", u"0123456789"), static_cast<LONG>(ERROR_SUCCESS));
    BYTE small[4] = {};
    DWORD size = sizeof(small);
    EXPECT_EQ(os::RegQueryValueExW(key_.get(), u"v", nullptr, nullptr, small, &size),
              static_cast<LONG>(ERROR_MORE_DATA));
    EXPECT_EQ(size, 11 * sizeof(char16_t));
}

TEST_F(Registry, BinaryAndDwordValuesRoundTrip)
{
    BYTE const blob[] = {0x01, 0x00, 0x00, 0x00, 0xd0, 0x8c, 0x9d, 0xdf, 0xff};
    ASSERT_EQ(os::RegSetValueExW(key_.get(), u"DOMAIN\\user", 0, REG_BINARY, blob, sizeof(blob)),
              static_cast<LONG>(ERROR_SUCCESS));
    DWORD const number = 0x80070424u;
    ASSERT_EQ(
        os::RegSetValueExW(key_.get(), u"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number)),
        static_cast<LONG>(ERROR_SUCCESS));

    DWORD type = 0;
    BYTE read[16] = {};
    DWORD size = sizeof(read);
    ASSERT_EQ(os::RegQueryValueExW(key_.get(), u"DOMAIN\\user", nullptr, &type, read, &size),
              static_cast<LONG>(ERROR_SUCCESS));
    EXPECT_EQ(type, REG_BINARY);
    ASSERT_EQ(size, sizeof(blob));
    EXPECT_EQ(std::memcmp(read, blob, sizeof(blob)), 0);

    DWORD readNumber = 0;
    size = sizeof(readNumber);
    ASSERT_EQ(os::RegQueryValueExW(key_.get(), u"n", nullptr, &type, reinterpret_cast<BYTE*>(&readNumber), &size),
              static_cast<LONG>(ERROR_SUCCESS));
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(readNumber, number);
}

TEST_F(Registry, EnumerationListsEveryValueThenNoMoreItems)
{
    ASSERT_EQ(SetString(u"FIRST\\one", u"1"), static_cast<LONG>(ERROR_SUCCESS));
    ASSERT_EQ(SetString(u"SECOND\\two", u"2"), static_cast<LONG>(ERROR_SUCCESS));

    std::vector<std::string> names;
    for (DWORD index = 0;; ++index) {
        char16_t name[256] = {};
        DWORD length = 256;
        DWORD type = 0;
        LONG const status = os::RegEnumValueW(key_.get(), index, name, &length, nullptr, &type, nullptr, nullptr);
        if (status == static_cast<LONG>(ERROR_NO_MORE_ITEMS)) {
            break;
        }
        ASSERT_EQ(status, static_cast<LONG>(ERROR_SUCCESS));
        EXPECT_EQ(type, REG_SZ);
        EXPECT_EQ(length, std::char_traits<char16_t>::length(name));
        names.push_back(ToUtf8(name));
        ASSERT_LT(index, 10u);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"FIRST\\one", "SECOND\\two"}));
}

TEST_F(Registry, DeletedValueAndKeyAreNotFound)
{
    ASSERT_EQ(SetString(u"gone", u"x"), static_cast<LONG>(ERROR_SUCCESS));
    EXPECT_EQ(os::RegDeleteValueW(key_.get(), u"gone"), static_cast<LONG>(ERROR_SUCCESS));
    DWORD size = 0;
    EXPECT_EQ(os::RegQueryValueExW(key_.get(), u"gone", nullptr, nullptr, nullptr, &size),
              static_cast<LONG>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(os::RegDeleteValueW(key_.get(), u"gone"), static_cast<LONG>(ERROR_FILE_NOT_FOUND));

    key_.reset();
    EXPECT_EQ(os::RegDeleteKeyW(HKEY_CURRENT_USER, keyPath_.c_str()), static_cast<LONG>(ERROR_SUCCESS));
    UniqueRegistryKey reopened;
    EXPECT_EQ(os::RegOpenKeyExW(HKEY_CURRENT_USER, keyPath_.c_str(), 0, KEY_READ, reopened.put()),
              static_cast<LONG>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(reopened);
}

// The entry opens the Run key for writing; it exists in every profile.
TEST(RegistryRoots, RunKeyOfTheCurrentUserOpensForWriting)
{
    UniqueRegistryKey run;
    EXPECT_EQ(os::RegOpenKeyExW(HKEY_CURRENT_USER, u"Software\\Microsoft\\Windows\\CurrentVersion\\Run", 0, KEY_WRITE,
                                run.put()),
              static_cast<LONG>(ERROR_SUCCESS));
    EXPECT_TRUE(run);
}

// The reporter's calls, in its order: source, owner SID, reports with and
// without strings, release. Under Wine the reports are traced, not kept; the
// end-to-end tests read them back from the trace.
TEST(EventLog, ReporterCallsSucceedWithTheProcessOwner)
{
    UniqueEventSource source(os::RegisterEventSourceW(nullptr, u"Tarnwick Hot Folders"));
    ASSERT_TRUE(source);

    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(os::GetSecurityInfo(os::GetCurrentProcess(), SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                                  nullptr, nullptr, nullptr, &descriptor),
              ERROR_SUCCESS);
    UniqueLocalMemory ownedDescriptor(descriptor);
    EXPECT_NE(owner, nullptr);
    EXPECT_TRUE(ownedDescriptor);

    const WCHAR* strings[] = {u"Tarnwick Hot Folders", u"-2147023836"};
    EXPECT_EQ(os::ReportEventW(source.get(), EVENTLOG_ERROR_TYPE, 2, 56, owner, 2, 0, strings, nullptr), TRUE);
    EXPECT_EQ(os::ReportEventW(source.get(), EVENTLOG_INFORMATION_TYPE, 2, 54, owner, 0, 0, nullptr, nullptr), TRUE);
    EXPECT_EQ(os::DeregisterEventSource(source.release()), TRUE);
    EXPECT_EQ(os::LocalFree(ownedDescriptor.release()), nullptr);
}

TEST(ServiceManager, MissingServiceIsReportedAs1060)
{
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ASSERT_TRUE(manager);
    UniqueServiceHandle service(
        os::OpenServiceW(manager.get(), u"Tarnwick Hot Folders Absent Test Service", SC_MANAGER_ALL_ACCESS));
    EXPECT_FALSE(service);
    EXPECT_EQ(os::GetLastError(), ERROR_SERVICE_DOES_NOT_EXIST);
}

void DoNothing(DWORD, WCHAR**)
{
}

// A program that the service control manager did not start cannot connect
// its dispatcher, which is how the service role tells it was run by hand.
TEST(ServiceManager, DispatcherOfAProcessNotStartedAsServiceFailsWith1063)
{
    WCHAR name[] = u"Tarnwick Hot Folders";
    os::SERVICE_TABLE_ENTRYW const table[] = {{name, &DoNothing}, {nullptr, nullptr}};
    EXPECT_EQ(os::StartServiceCtrlDispatcherW(table), FALSE);
    EXPECT_EQ(os::GetLastError(), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
}

TEST(Errors, LastErrorIsTheThreadsOwn)
{
    os::SetLastError(1063);
    EXPECT_EQ(os::GetLastError(), 1063u);
    os::SetLastError(0);
    EXPECT_EQ(os::GetLastError(), 0u);
}

std::u16string ModulePath()
{
    char16_t path[260] = {};
    DWORD const length = os::GetModuleFileNameW(nullptr, path, 260);
    return std::u16string(path, length);
}

TEST(Process, ModulePathIsTheTestProgram)
{
    EXPECT_NE(ToUtf8(ModulePath()).find("wine_entry_tests.exe"), std::string::npos) << ToUtf8(ModulePath());
}

// A buffer too small for the path: Windows returns its size, sets
// ERROR_INSUFFICIENT_BUFFER and terminates the cut path, so a caller's buffer
// always holds a string.
TEST(Process, CutModulePathIsTerminatedAndReportedAsInsufficientBuffer)
{
    char16_t small[8];
    std::fill(std::begin(small), std::end(small), u'#');
    os::SetLastError(0);
    DWORD const length = os::GetModuleFileNameW(nullptr, small, 8);
    DWORD const error = os::GetLastError();
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(error, ERROR_INSUFFICIENT_BUFFER);
    if (RunningUnderWine()) {
        GTEST_SKIP() << "Wine fills all 8 characters with the path and writes no terminator (as Windows XP did)";
    }
    EXPECT_EQ(small[7], u'\0');
    EXPECT_EQ(ToUtf8(small), ToUtf8(ModulePath().substr(0, 7)));
}

TEST(Process, CommandLineSplitsIntoTheProgramAndItsArguments)
{
    std::u16string const commandLine = os::GetCommandLineW();
    int count = 0;
    UniqueLocalMemory block(os::CommandLineToArgvW(commandLine.c_str(), &count));
    ASSERT_TRUE(block);
    ASSERT_GE(count, 1);
    auto** argv = static_cast<WCHAR**>(block.get());
    EXPECT_NE(ToUtf8(argv[0]).find("wine_entry_tests"), std::string::npos) << ToUtf8(commandLine);
    EXPECT_EQ(argv[count], nullptr);
}

struct Counter {
    os::CriticalSection lock;
    int value = 0;
};

DWORD CountUnderTheLock(void* parameter)
{
    auto* counter = static_cast<Counter*>(parameter);
    for (int i = 0; i < 10000; ++i) {
        counter->lock.Enter();
        ++counter->value;
        counter->lock.Leave();
    }
    return 0;
}

TEST(Sync, ThreadsCountUnderACriticalSectionAndAreWaitedFor)
{
    Counter counter;
    DWORD firstId = 0;
    DWORD secondId = 0;
    UniqueKernelHandle first(os::CreateThread(nullptr, 0, &CountUnderTheLock, &counter, 0, &firstId));
    UniqueKernelHandle second(os::CreateThread(nullptr, 0, &CountUnderTheLock, &counter, 0, &secondId));
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_NE(firstId, secondId);
    EXPECT_EQ(os::WaitForSingleObject(first.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(os::WaitForSingleObject(second.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(counter.value, 20000);
}

TEST(Sync, WaitReportsTheIndexOfTheSignalledObject)
{
    UniqueKernelHandle manual(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    UniqueKernelHandle semaphore(os::CreateSemaphoreW(nullptr, 0, 0x7fffffff, nullptr));
    ASSERT_TRUE(manual);
    ASSERT_TRUE(semaphore);
    HANDLE const handles[] = {manual.get(), semaphore.get()};

    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_TIMEOUT);
    LONG previous = -1;
    EXPECT_EQ(os::ReleaseSemaphore(semaphore.get(), 2, &previous), TRUE);
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(os::WaitForMultipleObjectsEx(2, handles, FALSE, 0, TRUE), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_TIMEOUT);  // the count is used up

    EXPECT_EQ(os::SetEvent(manual.get()), TRUE);
    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_OBJECT_0);  // manual reset: still set
    EXPECT_EQ(os::ResetEvent(manual.get()), TRUE);
    EXPECT_EQ(os::WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_TIMEOUT);
}

}  // namespace
}  // namespace hf
