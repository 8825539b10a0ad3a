#include "UserCommands.h"

#include "WideText.h"
#include "platform/Com.h"
#include "platform/Constants.h"
#include "supervisor/SecretText.h"

#include <memory>

namespace hf {

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kNotInstalled = 3;

struct ReleaseInterface {
    void operator()(os::IUnknown* object) const { object->Release(); }
};
using FolderServicePtr = std::unique_ptr<os::IFolderService, ReleaseInterface>;

struct FreeString {
    void operator()(WCHAR* text) const { os::SysFreeString(text); }
};
using Bstr = std::unique_ptr<WCHAR, FreeString>;

Bstr MakeBstr(std::u16string const& text)
{
    return Bstr(os::SysAllocStringLen(text.data(), static_cast<unsigned>(text.size())));
}

// The password's copy for the call is wiped before the system takes its
// memory back, as every other copy of it is.
struct WipeAndFreeString {
    void operator()(WCHAR* text) const
    {
        WipeBytes(text, os::SysStringLen(text) * sizeof(WCHAR));
        os::SysFreeString(text);
    }
};
using SecretBstr = std::unique_ptr<WCHAR, WipeAndFreeString>;

// The apartment of the command, left when it ends.
class Apartment {
public:
    Apartment() { os::CoInitialize(nullptr); }
    ~Apartment() { os::CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

std::string Failure(std::string const& what, HRESULT result, UserCommandConsole const& console)
{
    return what + " failed: HRESULT " + ToUtf8(HexText(static_cast<DWORD>(result))) + ": " +
           console.systemText(result) + "\n";
}

}  // namespace

bool IsUserCommand(std::u16string const& command)
{
    return command == u"install-user" || command == u"uninstall-user" || command == u"is-installed";
}

int RunUserCommand(std::vector<std::u16string> const& arguments, UserCommandConsole const& console, std::string& output)
{
    if (arguments.size() != 2 || !IsUserCommand(arguments[0]) || arguments[1].empty()) {
        output = "usage: HotFolderControl install-user|uninstall-user|is-installed DOMAIN\\user\n";
        return kUsage;
    }
    std::u16string const& command = arguments[0];
    std::string const user = ToUtf8(arguments[1]);
    std::u16string password;
    if (command == u"install-user" && !console.readPassword(arguments[1], password)) {
        output = "no password was given for " + user + "\n";
        return kFailed;
    }

    Apartment apartment;
    void* object = nullptr;
    HRESULT result =
        os::CoCreateInstance(os::CLSID_FolderService, nullptr, CLSCTX_LOCAL_SERVER, os::IID_IFolderService, &object);
    if (result < 0) {
        output = Failure("creating FolderService", result, console);
        return kFailed;
    }
    FolderServicePtr service(static_cast<os::IFolderService*>(object));
    Bstr const name = MakeBstr(arguments[1]);
    if (command == u"install-user") {
        SecretBstr const secret(MakeBstr(password).release());
        WipeBytes(password.data(), password.size() * sizeof(char16_t));
        result = service->InstallUser(name.get(), secret.get());
        output = result < 0 ? Failure("InstallUser(" + user + ")", result, console) : "installed " + user + "\n";
        return result < 0 ? kFailed : 0;
    }
    if (command == u"uninstall-user") {
        result = service->UninstallUser(name.get());
        output = result < 0 ? Failure("UninstallUser(" + user + ")", result, console) : "uninstalled " + user + "\n";
        return result < 0 ? kFailed : 0;
    }
    os::VARIANT_BOOL installed = VARIANT_FALSE;
    result = service->IsUserInstalled(name.get(), &installed);
    if (result < 0) {
        output = Failure("IsUserInstalled(" + user + ")", result, console);
        return kFailed;
    }
    output = user + (installed ? " is installed\n" : " is not installed\n");
    return installed ? 0 : kNotInstalled;
}

}  // namespace hf
