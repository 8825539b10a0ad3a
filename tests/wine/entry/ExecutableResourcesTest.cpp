// The resources linked into TarnwickHotFolder.exe, read back by Windows
// itself: the message table the event log viewer renders reports with, and
// the string that names the service and the event source.
#include <windows.h>

#include "Catalogue.h"
#include "WideText.h"
#include "WineTestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace hf::test {
namespace {

constexpr WORD kEnglishUnitedStates = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);  // 1033

class ExecutableResources : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(ExecutablePath().empty()) << "HF_EXECUTABLE is not set";
        module_ = LoadLibraryExW(ExecutablePath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
        ASSERT_NE(module_, nullptr) << "cannot load the executable, error " << GetLastError();
    }
    void TearDown() override
    {
        if (module_ != nullptr) {
            FreeLibrary(module_);
        }
    }

    // The message table resource as stored: every entry's text by id.
    std::map<unsigned, std::u16string> StoredMessages() const
    {
        std::map<unsigned, std::u16string> messages;
        HRSRC const resource = FindResourceExW(module_, MAKEINTRESOURCEW(11) /* RT_MESSAGETABLE */, MAKEINTRESOURCEW(1),
                                               kEnglishUnitedStates);
        if (resource == nullptr) {
            ADD_FAILURE() << "no message table in language 1033, error " << GetLastError();
            return messages;
        }
        auto const* table = static_cast<BYTE const*>(LockResource(LoadResource(module_, resource)));
        auto const* data = reinterpret_cast<MESSAGE_RESOURCE_DATA const*>(table);
        for (DWORD b = 0; b < data->NumberOfBlocks; ++b) {
            MESSAGE_RESOURCE_BLOCK const& block = data->Blocks[b];
            BYTE const* entry = table + block.OffsetToEntries;
            for (DWORD id = block.LowId; id <= block.HighId; ++id) {
                auto const* header = reinterpret_cast<MESSAGE_RESOURCE_ENTRY const*>(entry);
                EXPECT_EQ(header->Flags, MESSAGE_RESOURCE_UNICODE) << "message " << id << " is not stored as UTF-16";
                // The text is padded with nulls to a multiple of four bytes.
                auto const* text = reinterpret_cast<char16_t const*>(header->Text);
                messages[id] = std::u16string(text);
                entry += header->Length;
            }
        }
        return messages;
    }

    std::u16string Formatted(unsigned id, DWORD& error) const
    {
        wchar_t buffer[1024] = {};
        DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module_, id,
                                            kEnglishUnitedStates, buffer, ARRAYSIZE(buffer), nullptr);
        error = length == 0 ? GetLastError() : 0;
        return Utf16(std::wstring(buffer, length));
    }

    HMODULE module_ = nullptr;
};

// FormatMessageW with FORMAT_MESSAGE_IGNORE_INSERTS leaves the insert
// sequences (%1 to %99, and so the %s of messages 59 and 60) as they are, but
// it still carries out the escapes %n (a line break, CR LF), %r (CR) and %t
// (tab); %0 ends the text. That is documented for FormatMessage's escape
// sequences and pinned down by Wine's FormatMessage conformance tests, which
// pass on Windows ("IGNORE_INSERTS does not prevent line wrapping or disable
// '%n'"; only "%n", "%r" and "%t" are processed). So the formatted text of
// "File added to %1:%n\r\n%2\r\n" is "File added to %1:\r\n\r\n%2\r\n".
std::u16string AsFormattedWithoutInserts(std::u16string const& text)
{
    std::u16string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != u'%' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char16_t const next = text[i + 1];
        if (next == u'n') {
            out += u"\r\n";
        } else if (next == u'r') {
            out += u'\r';
        } else if (next == u't') {
            out += u'\t';
        } else if (next == u'0') {
            return out;
        } else {
            out += text.substr(i, 2);
        }
        ++i;
    }
    return out;
}

// The table holds exactly the catalogue: ids 1 to 60, each text as written,
// with its two blanks after full stops, its %n line breaks, the "." of
// message 40 and the unreplaced %s of messages 59 and 60.
TEST_F(ExecutableResources, MessageTableStoresEveryCatalogueTextByteForByte)
{
    std::map<unsigned, std::u16string> const stored = StoredMessages();
    EXPECT_EQ(stored.size(), std::size(kCatalogue));
    for (auto const& entry : kCatalogue) {
        auto const found = stored.find(entry.id);
        ASSERT_NE(found, stored.end()) << "message " << entry.id << " is missing";
        EXPECT_EQ(ToUtf8(found->second), ToUtf8(entry.text)) << "message " << entry.id;
    }
}

TEST_F(ExecutableResources, FormatMessageGivesEachTextWithItsLineBreaks)
{
    for (auto const& entry : kCatalogue) {
        DWORD error = 0;
        std::u16string const text = Formatted(entry.id, error);
        EXPECT_EQ(error, 0u) << "message " << entry.id;
        EXPECT_EQ(ToUtf8(text), ToUtf8(AsFormattedWithoutInserts(entry.text))) << "message " << entry.id;
    }
}

TEST_F(ExecutableResources, MessagesOutsideTheCatalogueAreNotFound)
{
    for (unsigned const id : {0u, 61u, 100u}) {
        DWORD error = 0;
        EXPECT_TRUE(Formatted(id, error).empty()) << "message " << id;
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_MR_MID_NOT_FOUND)) << "message " << id;
    }
}

TEST_F(ExecutableResources, StringResource100NamesTheService)
{
    wchar_t buffer[256] = {};
    int const length = LoadStringW(module_, 100, buffer, ARRAYSIZE(buffer));
    EXPECT_EQ(ToUtf8(Utf16(std::wstring(buffer, length))), "Tarnwick Hot Folders");
}

}  // namespace
}  // namespace hf::test
