#include "platform/sim/SimEventLog.h"

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
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != u'%' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char16_t const next = text[i + 1];
        if (next == u'n') {
            out += u"\r\n";
            ++i;
        } else if (next == u'%') {
            out += u'%';
            ++i;
        } else if (next >= u'1' && next <= u'9') {
            std::size_t number = static_cast<std::size_t>(next - u'0');
            std::size_t j = i + 2;
            if (j < text.size() && text[j] >= u'0' && text[j] <= u'9') {
                number = number * 10 + static_cast<std::size_t>(text[j] - u'0');
                ++j;
            }
            if (number <= record.strings.size()) {
                out += record.strings[number - 1];
            } else {
                out += text.substr(i, j - i);
            }
            i = j - 1;
        } else {
            out += text[i];
        }
    }
    return out;
}

}  // namespace hf::sim
