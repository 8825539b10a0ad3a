#include "EventReporter.h"

#include "ServiceIdentity.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/EventLog.h"

#include <array>

namespace hf {

EventReporter::EventReporter(WORD category) : category_(category)
{
    // The source name comes from the executable's string table, so the event
    // source, the service and the message file all go by the same name.
    std::array<WCHAR, 256> name{};
    os::LoadStringW(nullptr, kServiceNameResourceId, name.data(), static_cast<int>(name.size()));
    source_.reset(os::RegisterEventSourceW(nullptr, name.data()));

    // Neither result is tested: without a source nothing is reported, and
    // without an owner the reports carry no user.
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    os::GetSecurityInfo(os::GetCurrentProcess(), SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &ownerSid_, nullptr,
                        nullptr, nullptr, &descriptor);
    securityDescriptor_.reset(descriptor);
}

EventReporter::~EventReporter()
{
    Close();
}

void EventReporter::Report(WORD type, DWORD messageId, std::initializer_list<std::u16string> strings) noexcept
{
    if (!source_) {
        return;
    }
    std::array<const WCHAR*, 3> pointers{};
    WORD count = 0;
    for (auto const& text : strings) {
        if (count == pointers.size()) {
            break;
        }
        pointers[count++] = text.c_str();
    }
    os::ReportEventW(source_.get(), type, category_, messageId, ownerSid_, count, 0,
                     count == 0 ? nullptr : pointers.data(), nullptr);
}

void EventReporter::Close() noexcept
{
    securityDescriptor_.reset();
    ownerSid_ = nullptr;
    source_.reset();
}

std::u16string LastErrorText()
{
    return DecimalText(static_cast<std::int32_t>(os::GetLastError()));
}

}  // namespace hf
