#include "FuzzSupport.h"

#include "FuzzInput.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Sync.h"
#include "platform/sim/SimWorld.h"

#include <cstdio>
#include <cstdlib>

namespace hf::fuzz {

void Violated(char const* rule, std::string const& detail)
{
    std::fprintf(stderr, "\n*** rule broken: %s\n%s\n", rule, detail.c_str());
    std::abort();
}

FreshMachine::FreshMachine()
{
    sim::TheWorld().Reset();
    idle_.reset(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

FreshMachine::~FreshMachine()
{
    idle_.reset();
    sim::TheWorld().Reset();
}

void FreshMachine::RunCompletions()
{
    HANDLE const idle = idle_.get();
    while (os::WaitForMultipleObjectsEx(1, &idle, FALSE, 0, TRUE) == WAIT_IO_COMPLETION) {
    }
}

std::vector<sim::EventRecord> EventsSince(std::size_t first)
{
    auto const& records = sim::TheWorld().eventLog.Records();
    return std::vector<sim::EventRecord>(records.begin() + static_cast<std::ptrdiff_t>(first), records.end());
}

std::string Describe(sim::EventRecord const& record)
{
    std::string text = std::to_string(record.eventId) + " type " + std::to_string(record.type) + " [";
    for (std::size_t i = 0; i < record.strings.size(); ++i) {
        text += (i > 0 ? "|" : "") + ToUtf8(record.strings[i]);
    }
    return text + "]";
}

bool IsReport(sim::EventRecord const& record, WORD type, DWORD id, std::initializer_list<std::u16string> strings)
{
    return record.type == type && record.eventId == id &&
           record.strings == std::vector<std::u16string>(strings.begin(), strings.end());
}

std::u16string FuzzInput::Text(std::size_t bytes, bool utf8)
{
    std::string_view const raw = Bytes(bytes);
    if (utf8) {
        return FromUtf8(raw);
    }
    std::u16string text;
    for (std::size_t i = 0; i + 1 < raw.size(); i += 2) {
        text +=
            static_cast<char16_t>(static_cast<unsigned char>(raw[i]) | (static_cast<unsigned char>(raw[i + 1]) << 8));
    }
    return text;
}

}  // namespace hf::fuzz
