// What Windows gives the executable at its entry and makes of its resources: its
// command line split by CommandLineToArgvW, held against the simulated split,
// its module path, and the resources of TarnwickHotFolder.exe as read back.
#include <windows.h>

#include <oleauto.h>
#include <shellapi.h>
#include <wrl/client.h>

#include "WideText.h"
#include "WineTestSupport.h"
#include "platform/sim/CommandLineSplit.h"
#include "platform/sim/SimEventLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace hf::test {
namespace {

using Arguments = std::vector<std::u16string>;

std::wstring Wide(std::u16string const& text)
{
    return std::wstring(text.begin(), text.end());
}

std::u16string Utf16(std::wstring const& text)
{
    return std::u16string(text.begin(), text.end());
}

Arguments SystemSplit(std::u16string const& commandLine)
{
    Arguments arguments;
    int count = 0;
    LPWSTR* argv = CommandLineToArgvW(Wide(commandLine).c_str(), &count);
    for (int i = 0; argv != nullptr && i < count; ++i) {
        arguments.push_back(Utf16(argv[i]));
    }
    LocalFree(argv);
    return arguments;
}

std::u16string ModulePath()
{
    wchar_t path[MAX_PATH] = {};
    return Utf16(std::wstring(path, GetModuleFileNameW(nullptr, path, MAX_PATH)));
}

// Each row: a kind of command line the native and end-to-end stories give the
// executable, and its arguments as Windows splits it.
std::pair<const char16_t*, Arguments> const kTable[] = {
    // Blanks and tabs separate, also after the program name.
    {u"hf.exe\t \t-a\t\t-b  ", {u"hf.exe", u"-a", u"-b"}},
    {u"hf.exe h\u00e9 \U0001d11e", {u"hf.exe", u"h\u00e9", u"\U0001d11e"}},
    // Quotes group and vanish.
    {u"hf.exe \"-asuser:OFFICE\\Jo Doe\" \"c\"d e\"f g\" \"\"",
     {u"hf.exe", u"-asuser:OFFICE\\Jo Doe", u"cd", u"ef g", u""}},
    // Backslashes are literal unless a quote follows: then 2n give n and
    // the quote groups, 2n+1 give n and a literal quote.
    {u"hf.exe o\\ne t\\\\wo \"C:\\Program Files\\\\\"", {u"hf.exe", u"o\\ne", u"t\\\\wo", u"C:\\Program Files\\"}},
    {u"hf.exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end",
     {u"hf.exe", u"\"one", u"\\two", u"\\\"three", u"\\\\four", u"end"}},
    {u"hf.exe \"a \\\"b\\\" c\" \"two\\\\\" \"three\\\\\\\" still\" end",
     {u"hf.exe", u"a \"b\" c", u"two\\", u"three\\\" still", u"end"}},
    // A program name that starts with a quote runs to the next quote.
    {u"\"C:\\Program Files\\hf.exe\" -pause", {u"C:\\Program Files\\hf.exe", u"-pause"}},
};

TEST(CommandLineSplit, SimulationAndSystemSplitAsWindowsDoes)
{
    for (auto const& [commandLine, arguments] : kTable) {
        SCOPED_TRACE(testing::PrintToString(std::u16string(commandLine)));
        EXPECT_EQ(sim::SplitCommandLine(commandLine, u"C:\\x.exe"), arguments);
        EXPECT_EQ(SystemSplit(commandLine), arguments);
    }
    // An empty line stands for the program itself: both give the module's path.
    EXPECT_EQ(SystemSplit(u""), Arguments{ModulePath()});
    EXPECT_EQ(sim::SplitCommandLine(u"", ModulePath()), Arguments{ModulePath()});
}

// A buffer too small for the path: Windows returns its size, sets
// ERROR_INSUFFICIENT_BUFFER and terminates the cut path.
TEST(ModulePath, ACutPathIsTerminatedAndReportedAsInsufficientBuffer)
{
    std::wstring small(8, L'#');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(nullptr, small.data(), 8), 8u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    if (RunningUnderWine()) {
        GTEST_SKIP() << "Wine fills all 8 characters with the path and writes no terminator (as Windows XP did)";
    }
    EXPECT_EQ(Utf16(small), ModulePath().substr(0, 7) + u'\0');
}

// The executable's Windows path, through Wine's Z: drive, from the Unix path
// CTest gives in HF_EXECUTABLE.
std::wstring ExecutablePath()
{
    char const* const unixPath = std::getenv("HF_EXECUTABLE");
    std::wstring path = L"Z:" + Wide(FromUtf8(unixPath ? unixPath : ""));
    std::replace(path.begin(), path.end(), L'/', L'\\');
    return path;
}

// FormatMessageW with FORMAT_MESSAGE_IGNORE_INSERTS keeps the inserts (%1 to
// %99, so the %s of messages 59 and 60 too) but turns %n, the one other escape
// the texts use, into CR LF.
std::u16string AsFormattedWithoutInserts(std::u16string text)
{
    for (std::size_t at = text.find(u"%n"); at != std::u16string::npos; at = text.find(u"%n", at + 2)) {
        text.replace(at, 2, u"\r\n");
    }
    return text;
}

// The message table the event viewer renders reports with: every message is the
// simulated log's text (which the native suites read), formatted alike; an id
// without a text is not found either. String 100 names the service.
TEST(ExecutableResources, MessageTableAndServiceNameAreAsTheViewerReadsThem)
{
    std::wstring const path = ExecutablePath();
    HMODULE const module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(module, nullptr) << "cannot load " << ToUtf8(Utf16(path)) << ", error " << GetLastError();
    auto format = [&](unsigned id) {
        wchar_t buffer[1024] = {};
        DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module, id,
                                            MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), buffer, 1024, nullptr);
        return std::make_pair(ToUtf8(Utf16(std::wstring(buffer, length))), length == 0 ? GetLastError() : 0);
    };
    for (unsigned id = 0; id <= 100; ++id) {
        std::u16string const text = sim::MessageTableText(id);
        ::DWORD const error = text.empty() ? ERROR_MR_MID_NOT_FOUND : 0;
        EXPECT_EQ(format(id), std::make_pair(ToUtf8(AsFormattedWithoutInserts(text)), error)) << "message " << id;
    }
    wchar_t name[256] = {};
    EXPECT_EQ(std::wstring(name, LoadStringW(module, 100, name, 256)), L"Tarnwick Hot Folders");
    FreeLibrary(module);
}

GUID const kClsid = {0xB1E2C7AA, 0xDF7A, 0x4F02, {0xAD, 0x05, 0xC3, 0xF2, 0x7A, 0x97, 0xD1, 0x5B}};
GUID const kIid = {0x4D84CADB, 0x50A1, 0x44A9, {0x8D, 0x74, 0xE3, 0x1D, 0x15, 0xEB, 0x6A, 0x8A}};

// The help string of a type (MEMBERID_NIL) or of one of its members.
std::wstring HelpString(ITypeInfo* type, MEMBERID member)
{
    BSTR text = nullptr;
    EXPECT_EQ(type->GetDocumentation(member, nullptr, &text, nullptr, nullptr), S_OK);
    std::wstring const result = text ? text : L"";
    SysFreeString(text);
    return result;
}

// The types of HotFolderLib as the contract gives them (the library's identity,
// locale, version and name are what the registration stories find registered).
TEST(TypeLibrary, HotFolderLibDescribesFolderServiceAsTheContractSays)
{
    Microsoft::WRL::ComPtr<ITypeLib> library;
    ASSERT_EQ(LoadTypeLibEx(ExecutablePath().c_str(), REGKIND_NONE, &library), S_OK);

    // The class: creatable, with the interface as its one, default, interface.
    Microsoft::WRL::ComPtr<ITypeInfo> coclass;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kClsid, &coclass), S_OK);
    TYPEATTR* type = nullptr;
    ASSERT_EQ(coclass->GetTypeAttr(&type), S_OK);
    EXPECT_EQ(std::make_tuple(type->typekind, type->wTypeFlags & TYPEFLAG_FCANCREATE, type->cImplTypes),
              std::make_tuple(TKIND_COCLASS, int{TYPEFLAG_FCANCREATE}, WORD{1}));
    coclass->ReleaseTypeAttr(type);
    INT implementationFlags = 0;
    EXPECT_EQ(coclass->GetImplTypeFlags(0, &implementationFlags), S_OK);
    EXPECT_TRUE(implementationFlags & IMPLTYPEFLAG_FDEFAULT);

    // The interface's vtable view of the dual interface: seven slots of
    // IUnknown and IDispatch, then the four methods, each a DISPID in slot order.
    Microsoft::WRL::ComPtr<ITypeInfo> dispatchView, vtableView;
    HREFTYPE vtableReference = 0;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kIid, &dispatchView), S_OK);
    ASSERT_EQ(dispatchView->GetRefTypeOfImplType(-1, &vtableReference), S_OK);
    ASSERT_EQ(dispatchView->GetRefTypeInfo(vtableReference, &vtableView), S_OK);
    EXPECT_EQ(HelpString(vtableView.Get(), MEMBERID_NIL), L"IFolderService Interface");
    ASSERT_EQ(vtableView->GetTypeAttr(&type), S_OK);
    ASSERT_EQ(type->cFuncs, 4);
    WORD const flags = TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FOLEAUTOMATION;
    EXPECT_EQ(type->wTypeFlags & flags, flags);
    vtableView->ReleaseTypeAttr(type);
    // Each method: its names (method, then parameters), DISPID, vtable slot.
    using Method = std::tuple<std::vector<std::wstring>, MEMBERID, std::size_t>;
    Method const expected[] = {{{L"IsUserInstalled", L"domain_slash_name", L"is_installed"}, 1, 7},
                               {{L"InstallUser", L"domain_slash_name", L"password"}, 2, 8},
                               {{L"UninstallUser", L"domain_slash_name"}, 3, 9},
                               {{L"ConnectWatcher", L"pipe_name"}, 4, 10}};
    for (UINT i = 0; i < 4; ++i) {
        FUNCDESC* function = nullptr;
        ASSERT_EQ(vtableView->GetFuncDesc(i, &function), S_OK);
        BSTR names[4] = {};
        UINT count = 0;
        ASSERT_EQ(vtableView->GetNames(function->memid, names, 4, &count), S_OK);
        EXPECT_EQ(
            Method(std::vector<std::wstring>(names, names + count), function->memid, function->oVft / sizeof(void*)),
            expected[i]);
        EXPECT_EQ(HelpString(vtableView.Get(), function->memid), L"method " + std::get<0>(expected[i])[0]);
        std::for_each(names, names + count, SysFreeString);
        vtableView->ReleaseFuncDesc(function);
    }
}

}  // namespace
}  // namespace hf::test
