// FolderService as its class object makes it: what each method does and
// returns, with the installed-user store in the simulated registry.
#include "SimTest.h"
#include "platform/Com.h"
#include "platform/Process.h"
#include "service/FolderService.h"
#include "service/HotFolderModule.h"
#include "supervisor/CommandQueue.h"

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

}  // namespace
}  // namespace hf::test
