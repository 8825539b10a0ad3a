// The type library linked into TarnwickHotFolder.exe, read back by the
// system's own type library loader, against the contract of HotFolderLib:
// identity, locale, help strings, and IFolderService's slots and DISPIDs.
#include <windows.h>

#include <oleauto.h>

#include "WineTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace hf::test {
namespace {

// {524F5CA9-889F-479E-9DCC-E15F61C695AC}, {B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B},
// {4D84CADB-50A1-44A9-8D74-E31D15EB6A8A}.
GUID const kLibId = {0x524F5CA9, 0x889F, 0x479E, {0x9D, 0xCC, 0xE1, 0x5F, 0x61, 0xC6, 0x95, 0xAC}};
GUID const kClsid = {0xB1E2C7AA, 0xDF7A, 0x4F02, {0xAD, 0x05, 0xC3, 0xF2, 0x7A, 0x97, 0xD1, 0x5B}};
GUID const kIid = {0x4D84CADB, 0x50A1, 0x44A9, {0x8D, 0x74, 0xE3, 0x1D, 0x15, 0xEB, 0x6A, 0x8A}};

std::wstring HelpString(ITypeLib* library, INT index)
{
    BSTR text = nullptr;
    EXPECT_EQ(library->GetDocumentation(index, nullptr, &text, nullptr, nullptr), S_OK);
    std::wstring const result = text ? text : L"";
    SysFreeString(text);
    return result;
}

struct Method {
    std::wstring name;
    MEMBERID id;
    unsigned slot;
    std::vector<std::wstring> parameters;
    std::wstring help;
};

TEST(TypeLibrary, HotFolderLibDescribesFolderServiceAsTheContractSays)
{
    ITypeLib* library = nullptr;
    ASSERT_EQ(LoadTypeLibEx(ExecutablePath().c_str(), REGKIND_NONE, &library), S_OK);

    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
    EXPECT_TRUE(IsEqualGUID(attributes->guid, kLibId));
    EXPECT_EQ(attributes->lcid, 0x409u);
    EXPECT_EQ(attributes->syskind, SYS_WIN32);
    EXPECT_EQ(attributes->wMajorVerNum, 1);
    EXPECT_EQ(attributes->wMinorVerNum, 0);
    library->ReleaseTLibAttr(attributes);
    EXPECT_EQ(HelpString(library, -1), L"TarnwickHotFolder 1.0 Type Library");
    EXPECT_EQ(library->GetTypeInfoCount(), 2u);

    ITypeInfo* coclass = nullptr;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kClsid, &coclass), S_OK);
    TYPEATTR* classAttributes = nullptr;
    ASSERT_EQ(coclass->GetTypeAttr(&classAttributes), S_OK);
    EXPECT_EQ(classAttributes->typekind, TKIND_COCLASS);
    EXPECT_TRUE(classAttributes->wTypeFlags & TYPEFLAG_FCANCREATE);
    EXPECT_EQ(classAttributes->cImplTypes, 1);
    coclass->ReleaseTypeAttr(classAttributes);
    INT implementationFlags = 0;
    EXPECT_EQ(coclass->GetImplTypeFlags(0, &implementationFlags), S_OK);
    EXPECT_TRUE(implementationFlags & IMPLTYPEFLAG_FDEFAULT);
    coclass->Release();

    // The interface's vtable view: seven slots of IUnknown and IDispatch, then
    // the four methods, each a DISPID in slot order.
    ITypeInfo* dispatchView = nullptr;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kIid, &dispatchView), S_OK);
    TYPEATTR* dispatchAttributes = nullptr;
    ASSERT_EQ(dispatchView->GetTypeAttr(&dispatchAttributes), S_OK);
    EXPECT_TRUE(dispatchAttributes->wTypeFlags & TYPEFLAG_FDUAL);
    dispatchView->ReleaseTypeAttr(dispatchAttributes);
    HREFTYPE vtableReference = 0;
    ITypeInfo* vtableView = nullptr;
    ASSERT_EQ(dispatchView->GetRefTypeOfImplType(-1, &vtableReference), S_OK);
    ASSERT_EQ(dispatchView->GetRefTypeInfo(vtableReference, &vtableView), S_OK);
    BSTR text = nullptr;
    ASSERT_EQ(vtableView->GetDocumentation(MEMBERID_NIL, nullptr, &text, nullptr, nullptr), S_OK);
    EXPECT_STREQ(text, L"IFolderService Interface");
    SysFreeString(text);

    std::vector<Method> const expected = {
        {L"IsUserInstalled", 1, 7, {L"domain_slash_name", L"is_installed"}, L"method IsUserInstalled"},
        {L"InstallUser", 2, 8, {L"domain_slash_name", L"password"}, L"method InstallUser"},
        {L"UninstallUser", 3, 9, {L"domain_slash_name"}, L"method UninstallUser"},
        {L"ConnectWatcher", 4, 10, {L"pipe_name"}, L"method ConnectWatcher"},
    };
    TYPEATTR* vtableAttributes = nullptr;
    ASSERT_EQ(vtableView->GetTypeAttr(&vtableAttributes), S_OK);
    ASSERT_EQ(vtableAttributes->cFuncs, 4);
    WORD const flags = TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FOLEAUTOMATION;
    EXPECT_EQ(vtableAttributes->wTypeFlags & flags, flags);
    vtableView->ReleaseTypeAttr(vtableAttributes);
    for (UINT i = 0; i < expected.size(); ++i) {
        FUNCDESC* function = nullptr;
        ASSERT_EQ(vtableView->GetFuncDesc(i, &function), S_OK);
        BSTR names[4] = {};
        UINT count = 0;
        ASSERT_EQ(vtableView->GetNames(function->memid, names, 4, &count), S_OK);
        std::vector<std::wstring> parameters(names + 1, names + count);
        BSTR help = nullptr;
        vtableView->GetDocumentation(function->memid, nullptr, &help, nullptr, nullptr);
        EXPECT_EQ(names[0], expected[i].name);
        EXPECT_EQ(function->memid, expected[i].id) << names[0];
        EXPECT_EQ(function->oVft / sizeof(void*), expected[i].slot) << names[0];
        EXPECT_EQ(function->callconv, CC_STDCALL);
        EXPECT_EQ(function->elemdescFunc.tdesc.vt, VT_HRESULT);
        EXPECT_EQ(parameters, expected[i].parameters);
        EXPECT_EQ(help ? std::wstring(help) : L"", expected[i].help);
        for (UINT n = 0; n < count; ++n) {
            SysFreeString(names[n]);
        }
        SysFreeString(help);
        vtableView->ReleaseFuncDesc(function);
    }
    vtableView->Release();
    dispatchView->Release();
    library->Release();
}

}  // namespace
}  // namespace hf::test
