// The simulated Application event log: every report is kept, in order, with
// everything Windows would store, so tests can read it back and render it.
#pragma once

#include "platform/Types.h"

#include <string>
#include <vector>

namespace hf::sim {

struct EventRecord {
    std::u16string source;
    WORD type = 0;
    WORD category = 0;
    DWORD eventId = 0;
    std::u16string userSid;  // empty: reported without a user
    std::vector<std::u16string> strings;
};

class EventLog {
public:
    std::vector<EventRecord> const& Records() const { return records_; }
    void Add(EventRecord record)
    {
        ++reported_;
        if (keepRecords) {
            records_.push_back(std::move(record));
        }
    }
    void Clear() { records_.clear(); }
    // Every report made since the log was reset, kept or not.
    std::size_t Reported() const { return reported_; }
    // False makes the log only count its reports (benchmarks of busy folders).
    bool keepRecords = true;

    // Event ids in report order.
    std::vector<DWORD> Ids() const;
    // The records with this event id.
    std::vector<EventRecord> WithId(DWORD eventId) const;
    // The record's text as the log viewer shows it: the message table text with
    // %1..%99 replaced by the insertion strings and %n by a line break;
    // anything else (a "%s", say) stands as it is.
    static std::u16string Render(EventRecord const& record);

    // Sources registered and not yet deregistered.
    int openSources = 0;

private:
    std::vector<EventRecord> records_;
    std::size_t reported_ = 0;
};

// The text of message `id` in the executable's message table; empty if none.
std::u16string MessageTableText(DWORD id);

}  // namespace hf::sim
