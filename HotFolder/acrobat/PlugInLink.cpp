#include "acrobat/PlugInLink.h"

#include "WideText.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "acrobat/PlugInPipe.h"
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Process.h"

namespace hf {

PlugInLink::PlugInLink(EventReporter& reporter, bool asService) : reporter_(&reporter), asService_(asService)
{
}

PlugInLink::~PlugInLink()
{
    // Left for the process's exit to close, as the watcher's teardown does.
    static_cast<void>(pipe_.release());
}

bool PlugInLink::Poll(DWORD& timeout)
{
    switch (state_) {
        case Idle:
            return false;
        case Writing:
        case AwaitingReply:
            timeout = INFINITE;
            return true;
        case WaitingForPlugIn:
            return PollForPlugIn(timeout);
        default:
            return false;
    }
}

bool PlugInLink::PollForPlugIn(DWORD& timeout)
{
    UniqueFileHandle opened(OpenPlugInPipe(*reporter_));
    if (opened) {
        if (!asService_) {
            // The user goes on using this Acrobat: it is never terminated.
            process_.reset();
        }
        pipe_ = std::move(opened);
        state_ = Idle;
        StartWrite();
        timeout = INFINITE;
        return true;
    }
    DWORD const openError = os::GetLastError();
    // The time limit comes first: once it has passed, message 21 is given
    // even if Acrobat has exited meanwhile.
    if (os::GetTickCount() - launchTick_ > kPlugInWaitLimit) {
        reporter_->Report(EVENTLOG_ERROR_TYPE, MSG_CREATE_FILE_FAILED,
                          {PlugInPipeName(), DecimalText(static_cast<std::int32_t>(openError))});
        process_.reset();  // Acrobat is left running
        state_ = Idle;
        return false;
    }
    switch (os::WaitForSingleObject(process_.get(), 0)) {
        case WAIT_OBJECT_0:
            process_.reset();
            reporter_->Report(EVENTLOG_ERROR_TYPE, MSG_ACROBAT_EXITED_WHILE_WAITING);
            timeout = INFINITE;
            state_ = Idle;
            return false;
        case WAIT_TIMEOUT:
            timeout = kPlugInRetryInterval;
            return true;
        default:
            process_.reset();
            reporter_->Report(EVENTLOG_ERROR_TYPE, MSG_WAIT_SINGLE_FAILED, {LastErrorText()});
            state_ = Idle;
            return false;
    }
}

void PlugInLink::SendJob(std::u16string const& inputPath, HotFolderSpecPtr const& spec)
{
    message_ = EncodeJobMessage(inputPath, spec->Script, spec->OutputFolder);
    if (EnsureConnected()) {
        StartWrite();
    }
    // Otherwise, after a launch, Poll writes the message once the pipe
    // exists; after a failed launch the job is dropped.
}

void PlugInLink::TerminateAcrobat()
{
    if (!process_ || !asService_) {
        return;
    }
    pipe_.reset();
    os::TerminateProcess(process_.get(), 0);
    process_.reset();
}

bool PlugInLink::EnsureConnected()
{
    if (pipe_) {
        // An existing connection is reused, and a failure on it may be retried.
        retryAllowed_ = true;
        return true;
    }
    // A failure on a fresh connection is not retried.
    retryAllowed_ = false;
    pipe_.reset(OpenPlugInPipe(*reporter_));
    if (pipe_) {
        return true;
    }
    HANDLE const launched = LaunchAcrobat(*reporter_);
    if (launched == nullptr) {
        return false;
    }
    process_.reset(launched);
    state_ = WaitingForPlugIn;
    launchTick_ = os::GetTickCount();
    return false;
}

void PlugInLink::StartWrite()
{
    overlapped_ = OVERLAPPED{};
    overlapped_.hEvent = this;
    state_ = Writing;
    if (!os::WriteFileEx(pipe_.get(), message_.data(), static_cast<DWORD>(message_.size()), &overlapped_,
                         &PlugInLink::OnWriteDone)) {
        OnLinkFailure(os::GetLastError(), 0);
    }
}

void PlugInLink::OnWriteDone(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
{
    auto* link = static_cast<PlugInLink*>(overlapped->hEvent);
    // Only a non-zero count is required: a short write is not detected.
    if (error != 0 || bytes == 0) {
        link->OnLinkFailure(error, bytes);
        return;
    }
    if (os::ReadFileEx(link->pipe_.get(), &link->reply_, 1, &link->overlapped_, &PlugInLink::OnReplyRead)) {
        link->state_ = AwaitingReply;
    } else {
        link->OnLinkFailure(os::GetLastError(), 0);
    }
}

void PlugInLink::OnReplyRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
{
    auto* link = static_cast<PlugInLink*>(overlapped->hEvent);
    if (error != 0 || bytes == 0) {
        link->OnLinkFailure(error, bytes);
        return;
    }
    link->state_ = Idle;
    if (link->reply_ == 0) {
        // The plug-in asks to end the connection.
        link->TerminateAcrobat();
        link->pipe_.reset();
    }
    // Any other reply keeps the pipe open for the next job.
}

void PlugInLink::OnLinkFailure(DWORD /*error*/, DWORD /*bytes*/)
{
    if (retryAllowed_) {
        pipe_.reset();
        if (EnsureConnected()) {
            StartWrite();
        }
        // After a launch, Poll takes over. After a failed launch the state
        // stays Writing or AwaitingReply with nothing outstanding: Poll then
        // reports the link busy for good and no further job is handed on
        // until the watcher is restarted.
        return;
    }
    state_ = Idle;
    // Not as service, or with no Acrobat held, the pipe stays open as it is:
    // the next job reuses it and so recovers through the retry.
    TerminateAcrobat();
}

}  // namespace hf
