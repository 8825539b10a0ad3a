#include "platform/sim/SimEventLog.h"

#include "WideText.h"

namespace hf::sim {

std::vector<DWORD> EventLog::Ids() const
{
    std::vector<DWORD> ids;
    for (auto const& record : records_) {
        ids.push_back(record.eventId);
    }
    return ids;
}

std::vector<EventRecord> EventLog::WithId(DWORD eventId) const
{
    std::vector<EventRecord> found;
    for (auto const& record : records_) {
        if (record.eventId == eventId) {
            found.push_back(record);
        }
    }
    return found;
}

std::u16string EventLog::Render(EventRecord const& record)
{
    std::u16string const text = MessageTableText(record.eventId);
    std::u16string out;
    auto digit = [&](std::size_t at) { return at < text.size() && text[at] >= u'0' && text[at] <= u'9'; };
    for (std::size_t i = 0; i < text.size(); ++i) {
        char16_t const next = i + 1 < text.size() ? text[i + 1] : 0;
        if (text[i] != u'%' || !(next == u'n' || next == u'%' || (digit(i + 1) && next != u'0'))) {
            out += text[i];
        } else if (next == u'n' || next == u'%') {
            out += next == u'n' ? u"\r\n" : u"%";
            ++i;
        } else {
            std::size_t const length = digit(i + 2) ? 2 : 1;
            auto const number = static_cast<std::size_t>(std::stoi(ToUtf8(text.substr(i + 1, length))));
            out += number <= record.strings.size() ? record.strings[number - 1] : text.substr(i, length + 1);
            i += length;
        }
    }
    return out;
}

}  // namespace hf::sim
