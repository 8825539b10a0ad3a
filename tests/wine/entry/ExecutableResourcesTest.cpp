// The resources linked into TarnwickHotFolder.exe, read back by Windows
// itself: the message table the event viewer renders reports with, and the
// string that names the service and the event source.
#include <windows.h>

#include "Catalogue.h"
#include "WideText.h"
#include "WineTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace hf::test {
namespace {

// FormatMessageW with FORMAT_MESSAGE_IGNORE_INSERTS keeps the inserts (%1 to
// %99, and so the %s of messages 59 and 60) but still turns %n into CR LF, %r
// into CR and %t into a tab; %0 ends the text (as Wine's conformance tests,
// which pass on Windows, pin down).
std::u16string AsFormattedWithoutInserts(std::u16string const& text)
{
    std::u16string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char16_t const next = i + 1 < text.size() ? text[i + 1] : u'\0';
        if (text[i] != u'%' || next == u'\0') {
            out += text[i];
        } else if (next == u'0') {
            return out;
        } else {
            out += next == u'n' ? u"\r\n" : next == u'r' ? u"\r" : next == u't' ? u"\t" : text.substr(i, 2);
            ++i;
        }
    }
    return out;
}

// Every catalogue text as the viewer formats it; ids outside the catalogue are
// not found; string 100 names the service.
TEST(ExecutableResources, MessageTableAndServiceNameAreAsTheViewerReadsThem)
{
    std::wstring const path = WindowsPathFromEnvironment("HF_EXECUTABLE");
    HMODULE const module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(module, nullptr) << "cannot load " << ToUtf8(Utf16(path)) << ", error " << GetLastError();
    auto format = [&](unsigned id) {
        wchar_t buffer[1024] = {};
        DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module, id,
                                            MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), buffer, 1024, nullptr);
        return std::make_pair(ToUtf8(Utf16(std::wstring(buffer, length))), length == 0 ? GetLastError() : 0);
    };
    for (auto const& entry : kCatalogue) {
        EXPECT_EQ(format(entry.id), std::make_pair(ToUtf8(AsFormattedWithoutInserts(entry.text)), DWORD{0}))
            << "message " << entry.id;
    }
    for (unsigned const id : {0u, static_cast<unsigned>(std::size(kCatalogue)) + 1, 100u}) {
        EXPECT_EQ(format(id), std::make_pair(std::string(), DWORD{ERROR_MR_MID_NOT_FOUND})) << "message " << id;
    }
    wchar_t name[256] = {};
    EXPECT_EQ(std::wstring(name, LoadStringW(module, 100, name, 256)), L"Tarnwick Hot Folders");
    FreeLibrary(module);
}

}  // namespace
}  // namespace hf::test
