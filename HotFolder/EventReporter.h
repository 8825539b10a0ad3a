// Reporting to the Application event log under the "Tarnwick Hot Folders"
// source. A reporter is opened with a category (1 "Service", 2 "User") by the
// scope that owns it, lent by pointer to its helpers, and closed when the scope
// ends. Reporting never throws and never changes the caller's course: a source
// that could not be registered simply reports nothing.
#pragma once

#include "MessageIds.h"
#include "platform/Types.h"
#include "platform/UniqueHandle.h"

#include <initializer_list>
#include <string>

namespace hf {

constexpr WORD kCategoryService = 1;
constexpr WORD kCategoryUser = 2;

class EventReporter {
public:
    // Registers the source named by string resource 100 and looks up the SID
    // that owns this process, which every report carries as its user.
    explicit EventReporter(WORD category);
    ~EventReporter();
    EventReporter(const EventReporter&) = delete;
    EventReporter& operator=(const EventReporter&) = delete;

    // One event: type (0 success, 1 error, 2 warning, 4 information), message id
    // and its insertion strings (0 to 3), in the order the text numbers them.
    void Report(WORD type, DWORD messageId, std::initializer_list<std::u16string> strings = {}) noexcept;

    // Deregisters the source early; later reports go nowhere.
    void Close() noexcept;

    WORD Category() const { return category_; }

private:
    UniqueEventSource source_;
    PSID ownerSid_ = nullptr;
    UniqueLocalMemory securityDescriptor_;
    WORD category_;
};

// The calling thread's last error, read at once and formatted as "%d".
std::u16string LastErrorText();

}  // namespace hf
