// The job message, byte for byte, held against Python's own marshal module:
// the plug-in reads our payload with marshal.loads, so marshal.dumps of the
// same dictionary is the independent reference (marshal_reference.py).
#include "SimTest.h"
#include "acrobat/JobMessage.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>

namespace hf::test {
namespace {

std::string Hex(std::vector<BYTE> const& bytes)
{
    static char const digits[] = "0123456789abcdef";
    std::string text;
    for (BYTE b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 0xF];
    }
    return text;
}

// A text as UTF-16LE in hexadecimal, the form the reference script takes.
std::string UnitsHex(std::u16string const& text)
{
    std::vector<BYTE> bytes;
    for (char16_t unit : text) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return Hex(bytes);
}

// Runs the reference script and returns what it printed; fails the test when
// it cannot run.
std::string RunReference(std::string const& arguments)
{
    char const* source = std::getenv("HF_SOURCE_DIR");
    if (source == nullptr) {
        ADD_FAILURE() << "HF_SOURCE_DIR is not set; run the suite through ctest";
        return {};
    }
    char const* python = std::getenv("HF_PYTHON");
    std::string const command = std::string(python ? python : "python3") + " " + source +
                                "/tests/native/acrobat/marshal_reference.py " + arguments;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) {
        ADD_FAILURE() << "cannot run " << command;
        return {};
    }
    std::string output;
    std::array<char, 4096> chunk{};
    while (std::fgets(chunk.data(), static_cast<int>(chunk.size()), pipe.get()) != nullptr) {
        output += chunk.data();
    }
    int const status = pclose(pipe.release());
    EXPECT_EQ(status, 0) << command << "\n" << output;
    return output;
}

std::string ReferencePayload(char const* command, std::u16string const& input, std::u16string const& script,
                             std::u16string const& outputFolder)
{
    std::string output = RunReference(std::string(command) + " " + UnitsHex(input) + " " + UnitsHex(script) + " " +
                                      UnitsHex(outputFolder));
    while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) {
        output.pop_back();
    }
    return output;
}

std::vector<BYTE> FromHex(std::string const& hex)
{
    std::vector<BYTE> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<BYTE>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

DWORD FramedLength(std::vector<BYTE> const& message)
{
    return static_cast<DWORD>(message[0]) | static_cast<DWORD>(message[1]) << 8 | static_cast<DWORD>(message[2]) << 16 |
           static_cast<DWORD>(message[3]) << 24;
}

std::vector<BYTE> PayloadOf(std::vector<BYTE> const& message)
{
    return std::vector<BYTE>(message.begin() + 4, message.end());
}

struct JobCase {
    char const* name;
    std::u16string input;
    std::u16string script;
    std::u16string outputFolder;
};

// One row per kind of character: each kind has its own UTF-8 length.
std::vector<JobCase> const kJobCases = {
    {"PlainAscii", u"C:\\In\\a.pdf", u"C:\\Scripts\\x.py", u"C:\\Out"},
    {"TwoByteCharacters", u"C:\\Bücher\\Ærø ß \u0080\u07FF.pdf", u"C:\\Scripts\\ñ.py", u"D:\\Ausgabe\\Größe"},
    {"ThreeByteCharacters", u"C:\\請求書\\\u0800\uFFFD\uFFFF.pdf", u"C:\\スクリプト\\x.py", u"\\\\server\\出力\\€"},
    {"SurrogatePairs", u"C:\\In\\\U0001F600 \U00010000\U0010FFFF.pdf", u"C:\\\U0001D11E.py", u"C:\\Out\\\U00020000"},
    {"UnpairedSurrogates", u"C:\\In\\a\xD800.pdf", u"C:\\\xDC00x.py", u"C:\\Out\\\xDBFF"},
    {"ResumeExample", u"C:\\In\\Résumé.pdf", u"C:\\Scripts\\x.py", u"C:\\Out"},
};

void PrintTo(JobCase const& job, std::ostream* out)
{
    *out << job.name;
}

class JobMessageReference : public ::testing::TestWithParam<JobCase> {};

// Our payload is the one Python's marshal writes for the same dictionary.
TEST_P(JobMessageReference, PayloadIsMarshalOfTheDictionary)
{
    JobCase const& job = GetParam();
    std::vector<BYTE> const message = EncodeJobMessage(job.input, job.script, job.outputFolder);
    ASSERT_GE(message.size(), 4u);
    EXPECT_EQ(Hex(PayloadOf(message)), ReferencePayload("encode", job.input, job.script, job.outputFolder));
}

// The length before the payload is always the payload's length, little-endian.
TEST_P(JobMessageReference, LengthFramesThePayloadExactly)
{
    JobCase const& job = GetParam();
    std::vector<BYTE> const message = EncodeJobMessage(job.input, job.script, job.outputFolder);
    ASSERT_GE(message.size(), 4u);
    EXPECT_EQ(FramedLength(message), message.size() - 4);
}

// marshal.loads reads our payload back as the same three texts, in insertion order.
TEST_P(JobMessageReference, PythonReadsThePayloadBack)
{
    JobCase const& job = GetParam();
    std::vector<BYTE> const message = EncodeJobMessage(job.input, job.script, job.outputFolder);
    std::string const expected = "input " + UnitsHex(job.input) + "\nscript " + UnitsHex(job.script) +
                                 "\noutput_folder " + UnitsHex(job.outputFolder) + "\n";
    EXPECT_EQ(RunReference("decode " + Hex(PayloadOf(message))), expected);
}

// The plug-in's reading finds the items by key in whatever order Python wrote them.
TEST_P(JobMessageReference, DecoderReadsPythonsPayloadInAnyOrder)
{
    JobCase const& job = GetParam();
    for (char const* command : {"encode", "reorder"}) {
        std::vector<BYTE> const payload = FromHex(ReferencePayload(command, job.input, job.script, job.outputFolder));
        std::optional<Job> const decoded = DecodeJobPayload(payload.data(), payload.size());
        ASSERT_TRUE(decoded) << command;
        EXPECT_EQ(UnitsHex(decoded->input), UnitsHex(job.input)) << command;
        EXPECT_EQ(UnitsHex(decoded->script), UnitsHex(job.script)) << command;
        EXPECT_EQ(UnitsHex(decoded->outputFolder), UnitsHex(job.outputFolder)) << command;
    }
}

INSTANTIATE_TEST_SUITE_P(Texts, JobMessageReference, ::testing::ValuesIn(kJobCases),
                         [](auto const& info) { return std::string(info.param.name); });

// The worked example: 92 bytes in all, a payload of 88, the items in insertion order.
TEST(JobMessage, ExampleJobIs92BytesWithThePayloadLengthFirst)
{
    std::vector<BYTE> const message = EncodeJobMessage(u"C:\\In\\a.pdf", u"C:\\Scripts\\x.py", u"C:\\Out");
    ASSERT_EQ(message.size(), 92u);
    EXPECT_EQ(Hex({message.begin(), message.begin() + 4}), "58000000");
    std::string const expected =
        "7b"
        "7305000000" +
        Hex({'i', 'n', 'p', 'u', 't'}) + "750b000000" + Hex({'C', ':', '\\', 'I', 'n', '\\', 'a', '.', 'p', 'd', 'f'}) +
        "7306000000" + Hex({'s', 'c', 'r', 'i', 'p', 't'}) + "750f000000" +
        Hex({'C', ':', '\\', 'S', 'c', 'r', 'i', 'p', 't', 's', '\\', 'x', '.', 'p', 'y'}) + "730d000000" +
        Hex({'o', 'u', 't', 'p', 'u', 't', '_', 'f', 'o', 'l', 'd', 'e', 'r'}) + "7506000000" +
        Hex({'C', ':', '\\', 'O', 'u', 't'}) + "30";
    EXPECT_EQ(Hex(PayloadOf(message)), expected);
}

// Each é of Résumé is C3 A9.
TEST(JobMessage, ResumeValueIsEncodedAsGiven)
{
    std::vector<BYTE> const message = EncodeJobMessage(u"C:\\In\\Résumé.pdf", u"s", u"o");
    std::string const value = "7512000000433a5c496e5c52c3a973756dc3a92e706466";
    EXPECT_EQ(Hex(PayloadOf(message)).substr(2 + 10 + 10, value.size()), value);
}

// Characters below U+0080 take one byte, to U+07FF two, the rest of the BMP three, a pair four.
TEST(JobMessage, EachKindOfCharacterTakesItsUtf8Length)
{
    struct Row {
        std::u16string text;
        std::size_t bytes;
    };
    for (Row const& row : std::vector<Row>{{u"a", 1},
                                           {u"\u007F", 1},
                                           {u"\u0080", 2},
                                           {u"\u07FF", 2},
                                           {u"\u0800", 3},
                                           {u"\uFFFF", 3},
                                           {u"\U00010000", 4},
                                           {u"\U0010FFFF", 4},
                                           {u"\xD800", 3},
                                           {u"\xDFFF", 3},
                                           {u"\xDC00\xD800", 6}}) {
        EXPECT_EQ(EncodeWideText(row.text).size(), row.bytes) << UnitsHex(row.text);
        EXPECT_EQ(DecodeWideText(EncodeWideText(row.text)), row.text) << UnitsHex(row.text);
    }
}

// An empty text is a 'u' with length 0 and nothing after it.
TEST(JobMessage, EmptyTextIsALengthOfZero)
{
    std::vector<BYTE> const message = EncodeJobMessage(u"", u"", u"");
    std::string const hex = Hex(PayloadOf(message));
    EXPECT_EQ(hex.substr(2 + 10 + 10, 10), "7500000000");
    EXPECT_EQ(FramedLength(message), message.size() - 4);
}

// Anything but a dictionary of exactly the three texts is refused by the plug-in's side.
TEST(JobMessage, DecoderRefusesMalformedPayloads)
{
    std::vector<BYTE> const good = PayloadOf(EncodeJobMessage(u"C:\\In\\a.pdf", u"C:\\s.py", u"C:\\Out"));
    ASSERT_TRUE(DecodeJobPayload(good.data(), good.size()));

    std::vector<std::pair<char const*, std::vector<BYTE>>> broken;
    broken.push_back({"cut short", {good.begin(), good.end() - 1}});
    broken.push_back({"trailing byte", good});
    broken.back().second.push_back('0');
    broken.push_back({"not a dictionary", good});
    broken.back().second[0] = '(';
    broken.push_back({"value not a text", good});
    broken.back().second[11] = 's';  // the first value's type
    broken.push_back({"unknown key", good});
    broken.back().second[6] = 'X';  // a letter of "input"
    broken.push_back({"invalid UTF-8", good});
    broken.back().second[16] = 0xFF;  // the first value's first byte
    std::vector<BYTE> const twice = PayloadOf(EncodeJobMessage(u"C:\\In\\a.pdf", u"x", u"y"));
    std::vector<BYTE> duplicate(twice.begin(), twice.end() - 1);
    duplicate.insert(duplicate.end(), twice.begin() + 1, twice.end());
    broken.push_back({"keys twice", duplicate});
    std::vector<BYTE> const missing = {'{', '0'};
    broken.push_back({"keys missing", missing});

    for (auto const& [what, payload] : broken) {
        EXPECT_FALSE(DecodeJobPayload(payload.data(), payload.size())) << what;
    }
}

}  // namespace
}  // namespace hf::test
