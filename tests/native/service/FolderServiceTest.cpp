// FolderService as its class object makes it: what each method does and
// returns, with the installed-user store in the simulated registry.
#include "SimTest.h"
#include "platform/Com.h"
#include "platform/Process.h"
#include "service/FolderService.h"
#include "service/HotFolderModule.h"
#include "supervisor/CommandQueue.h"

#include <algorithm>
#include <memory>

namespace hf::test {
namespace {

struct ReleaseInterface {
    void operator()(os::IUnknown* object) const { object->Release(); }
};
using ServicePtr = std::unique_ptr<os::IFolderService, ReleaseInterface>;

class FolderServiceTest : public SimTest {
protected:
    ServicePtr Create()
    {
        void* object = nullptr;
        EXPECT_EQ(FolderServiceClassObject()->CreateInstance(nullptr, os::IID_IFolderService, &object), S_OK);
        return ServicePtr(static_cast<os::IFolderService*>(object));
    }

    os::BSTR Bstr(std::u16string const& text)
    {
        strings_.emplace_back(os::SysAllocStringLen(text.data(), static_cast<unsigned>(text.size())));
        return strings_.back().get();
    }

private:
    struct FreeString {
        void operator()(WCHAR* text) const { os::SysFreeString(text); }
    };
    std::vector<std::unique_ptr<WCHAR, FreeString>> strings_;
};

TEST_F(FolderServiceTest, ConnectWatcherQueuesTheNameUpToItsFirstNull)
{
    ServicePtr service = Create();
    EXPECT_EQ(service->ConnectWatcher(Bstr(u"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk")), S_OK);
    EXPECT_EQ(service->ConnectWatcher(Bstr(std::u16string(u"pipe\0tail", 9))), S_OK);
    EXPECT_EQ(service->ConnectWatcher(nullptr), S_OK);

    std::vector<std::string> arguments;
    HANDLE semaphore = TheCommandQueue().Semaphore();
    while (os::WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) {
        Command const command = TheCommandQueue().Take();
        EXPECT_EQ(command.code, CMD_CONNECT);
        arguments.push_back(U8(command.argument));
    }
    EXPECT_EQ(arguments, (std::vector<std::string>{"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk", "pipe", ""}));
}

TEST_F(FolderServiceTest, ObjectsHoldTheServerAndAnAggregatorMustAskForIUnknown)
{
    {
        ServicePtr first = Create();
        ServicePtr second = Create();
        EXPECT_EQ(world().com.serverReferences, 2);
        void* dispatch = nullptr;
        EXPECT_EQ(first->QueryInterface(os::IID_IDispatch, &dispatch), S_OK);
        static_cast<os::IUnknown*>(dispatch)->Release();
    }
    // Until the start decides otherwise the module runs as a service, which
    // gives back only its own lock count, never the process's references.
    EXPECT_EQ(world().com.serverReferences, 2);
    EXPECT_EQ(TheModule().LockCount(), -2);

    ServicePtr outer = Create();  // any object can stand as the controlling one
    void* inner = nullptr;
    EXPECT_EQ(FolderServiceClassObject()->CreateInstance(outer.get(), os::IID_IFolderService, &inner),
              CLASS_E_NOAGGREGATION);
    EXPECT_EQ(inner, nullptr);
    ASSERT_EQ(FolderServiceClassObject()->CreateInstance(outer.get(), os::IID_IUnknown, &inner), S_OK);
    static_cast<os::IUnknown*>(inner)->Release();
}

constexpr char16_t kUsers[] = u"SOFTWARE\\Orvanta\\Tarnwick\\4\\HotFolderUsers";

TEST_F(FolderServiceTest, UsersAreInstalledQueriedAndUninstalledThroughTheStore)
{
    ServicePtr service = Create();
    os::VARIANT_BOOL installed = 7;
    EXPECT_EQ(service->IsUserInstalled(Bstr(u"OFFICE\\clerk"), &installed), S_OK);
    EXPECT_EQ(installed, VARIANT_FALSE);
    EXPECT_TRUE(world().registry.KeyExists(HKEY_LOCAL_MACHINE, kUsers)) << "the store key is made on first use";

    EXPECT_EQ(service->InstallUser(Bstr(u"OFFICE\\clerk"), Bstr(std::u16string(u"pa\0ss", 5))), S_OK);
    EXPECT_EQ(service->IsUserInstalled(Bstr(u"OFFICE\\clerk"), &installed), S_OK);
    EXPECT_EQ(installed, VARIANT_TRUE);
    auto const stored = world().registry.Value(HKEY_LOCAL_MACHINE, kUsers, u"OFFICE\\clerk");
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->type, REG_BINARY);
    std::u16string const clear(u"pa\0ss", 5);
    auto const* clearBytes = reinterpret_cast<BYTE const*>(clear.data());
    EXPECT_EQ(std::search(stored->data.begin(), stored->data.end(), clearBytes, clearBytes + 10), stored->data.end())
        << "no clear text is stored";

    EXPECT_EQ(service->UninstallUser(Bstr(u"OFFICE\\clerk")), S_OK);
    EXPECT_EQ(service->UninstallUser(Bstr(u"OFFICE\\clerk")), static_cast<HRESULT>(0x80070002u));
}

TEST_F(FolderServiceTest, StoreFailuresAreReturnedAsHresultsAndLeaveTheAnswerAlone)
{
    ServicePtr service = Create();
    world().registry.SetString(HKEY_LOCAL_MACHINE, kUsers, u"OFFICE\\typed", u"not binary");
    os::VARIANT_BOOL installed = 7;
    EXPECT_EQ(service->IsUserInstalled(Bstr(u"OFFICE\\typed"), &installed), static_cast<HRESULT>(0x8007000Du));
    EXPECT_EQ(installed, 7);

    world().faults.Fail("RegCreateKeyExW", ERROR_ACCESS_DENIED, 3);
    EXPECT_EQ(service->IsUserInstalled(Bstr(u"OFFICE\\clerk"), &installed), static_cast<HRESULT>(0x80070005u));
    EXPECT_EQ(service->InstallUser(Bstr(u"OFFICE\\clerk"), Bstr(u"secret")), static_cast<HRESULT>(0x80070005u));
    EXPECT_EQ(service->UninstallUser(Bstr(u"OFFICE\\clerk")), static_cast<HRESULT>(0x80070005u));
    EXPECT_EQ(installed, 7);
    EXPECT_FALSE(world().registry.Value(HKEY_LOCAL_MACHINE, kUsers, u"OFFICE\\clerk"));
}

}  // namespace
}  // namespace hf::test
