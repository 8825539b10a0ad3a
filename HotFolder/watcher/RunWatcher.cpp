#include "watcher/RunWatcher.h"

#include "EventReporter.h"
#include "WideText.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "acrobat/PlugInLink.h"
#include "platform/Com.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "supervisor/Command.h"
#include "watcher/ControlPipe.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"
#include "watcher/InputFiles.h"
#include "watcher/PendingFiles.h"

#include <array>
#include <memory>

namespace hf {

namespace {

// In-process server, in-process handler, local server, remote server.
constexpr DWORD kAnyClassContext = 0x17;

struct ReleaseInterface {
    void operator()(os::IUnknown* object) const { object->Release(); }
};
using FolderServicePtr = std::unique_ptr<os::IFolderService, ReleaseInterface>;

// Whether another watcher of this user already listens on the pipe. Any
// failure to open it, ERROR_PIPE_BUSY included, means none does.
bool AnotherWatcherListens(std::u16string const& pipeName)
{
    UniqueFileHandle probe(os::CreateFileW(pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_OVERLAPPED, nullptr));
    return probe.valid();
}

// Tells the service which pipe to connect to. Without a service the watcher
// goes on unannounced, and so stays stopped until a service starts.
FolderServicePtr AnnounceToService(EventReporter& events, std::u16string const& pipeName)
{
    void* object = nullptr;
    HRESULT const created =
        os::CoCreateInstance(os::CLSID_FolderService, nullptr, kAnyClassContext, os::IID_IFolderService, &object);
    if (created < 0) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_INSTANTIATE_SERVICE_FAILED, {HexText(static_cast<DWORD>(created))});
        return nullptr;
    }
    FolderServicePtr service(static_cast<os::IFolderService*>(object));
    os::BSTR const name = os::SysAllocStringLen(pipeName.c_str(), static_cast<unsigned>(pipeName.size()));
    if (name == nullptr) {
        throw HResultError(E_OUTOFMEMORY);
    }
    service->ConnectWatcher(name);  // the service connects back on its own; nothing to wait for
    os::SysFreeString(name);
    return service;
}

// The loop of one watcher: each turn chooses how long to wait, waits alertably
// on the control pipe's connect events (every completion routine runs inside
// that wait) and acts on what ended it.
class WatcherLoop {
public:
    WatcherLoop(EventReporter& events, HotFolderWatcher& watcher, PendingConnects& connects,
                std::u16string const& pipeName, PlugInLink& link)
        : events_(events), watcher_(watcher), connects_(connects), pipeName_(pipeName), link_(link)
    {
    }

    // Runs until the wait fails; the encoder state tells the teardown what to stop.
    void Run(bool& encoderStarted)
    {
        for (;;) {
            DWORD const timeOut = ChooseTimeOut(encoderStarted);
            if (!WaitAndAct(timeOut)) {
                return;
            }
        }
    }

private:
    // Pause and stop both mean stopped; any other value means running.
    bool Stopped() const { return commandWord_ == CMD_PAUSE || commandWord_ == CMD_STOP; }

    DWORD ChooseTimeOut(bool& encoderStarted)
    {
        for (;;) {
            if (Stopped()) {
                // As service the Acrobat it started goes, even in the middle of a job.
                link_.TerminateAcrobat();
                return INFINITE;
            }
            DWORD linkTimeOut = INFINITE;
            if (link_.Poll(linkTimeOut)) {
                return linkTimeOut;
            }
            if (watcher_.pending.IsEmpty()) {
                link_.TerminateAcrobat();
                return INFINITE;
            }
            PendingFile& front = watcher_.pending.Front();
            if (DWORD const left = SettleTimeLeft(front); left != 0) {
                return left;
            }
            if (!encoderStarted) {
                StartJobEncoder();
                encoderStarted = true;
            }
            if (HotFolderSpecPtr const spec = NextSpecFor(front, watcher_.specsByInput)) {
                link_.SendJob(front.path, spec);
                return 0;
            }
            // Every hot folder of the file has had it: drop it and turn again at once.
            watcher_.pending.PopFront();
        }
    }

    // False when the wait failed and the loop is to end.
    bool WaitAndAct(DWORD timeOut)
    {
        std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> events{};
        DWORD count = 0;
        for (auto const& entry : connects_) {
            if (count == events.size()) {
                break;
            }
            events[count++] = entry.second.overlapped.hEvent;
        }
        DWORD result = os::WaitForMultipleObjectsEx(count, events.data(), FALSE, timeOut, TRUE);
        while (result == WAIT_IO_COMPLETION) {
            result = os::WaitForMultipleObjectsEx(count, events.data(), FALSE, 0, TRUE);
        }
        if (result == WAIT_TIMEOUT) {
            return true;
        }
        if (result < count) {
            AcceptClient(events[result]);
            return true;
        }
        events_.Report(EVENTLOG_ERROR_TYPE, MSG_WAIT_SINGLE_FAILED, {LastErrorText()});
        return false;
    }

    // A control client connected to the instance of this event: it gets a
    // reader, and a new instance takes its place, so two always listen.
    void AcceptClient(HANDLE event)
    {
        HANDLE pipe = INVALID_HANDLE_VALUE;
        auto const record = connects_.find(reinterpret_cast<std::uintptr_t>(event));
        if (record != connects_.end()) {
            os::CloseHandle(event);
            pipe = record->second.pipe;
            connects_.erase(record);
        }
        AcceptControlClient(pipe, events_, commandWord_, pipeName_);
        ListenOnPipe(CreateControlPipeInstance(pipeName_), connects_);
    }

    EventReporter& events_;
    HotFolderWatcher& watcher_;
    PendingConnects& connects_;
    std::u16string const& pipeName_;
    PlugInLink& link_;
    // Every control reader stores the commands it receives here. The watcher
    // starts stopped: nothing is handed on until the service says run.
    DWORD commandWord_ = CMD_STOP;
};

// From the hot folder tree's start-up to the end of the loop. Leaving this
// function tears down, in order, the link, the hot folder state and the root
// watch, the job encoder and the root path.
void RunHotFolders(EventReporter& events, bool asService, PendingConnects& connects, std::u16string const& pipeName)
{
    bool encoderStarted = false;
    std::u16string rootPath;
    {
        // The root's watch, with its 256 KiB buffer, lives in this frame for
        // the whole run (the watcher's thread has the stack for it).
        DirectoryWatch rootWatch;
        HotFolderWatcher watcher;
        if (StartHotFolderTree(events, rootPath, rootWatch, watcher) == TreeStart::Watching) {
            PlugInLink link(events, asService);
            WatcherLoop(events, watcher, connects, pipeName, link).Run(encoderStarted);
        }
    }
    if (encoderStarted) {
        StopJobEncoder();
    }
}

// With the probe passed: the control pipe server, the announcement, and the run.
void ServeControlPipe(EventReporter& events, bool asService)
{
    std::u16string const pipeName = WatcherPipeName();
    // Records are freed at the end, but their events and instances are left
    // open for the process's exit to close.
    PendingConnects connects;
    for (int instance = 0; instance < 2; ++instance) {
        ListenOnPipe(CreateControlPipeInstance(pipeName), connects);
    }
    FolderServicePtr const service = AnnounceToService(events, pipeName);
    RunHotFolders(events, asService, connects, pipeName);
}

}  // namespace

int RunWatcher(bool asService)
{
    os::CoInitialize(nullptr);  // an apartment that already exists does not matter
    {
        EventReporter events(kCategoryUser);
        std::u16string const probeName = WatcherPipeName();
        if (AnotherWatcherListens(probeName)) {
            events.Report(EVENTLOG_INFORMATION_TYPE, MSG_WATCHER_ALREADY_RUNNING);
        } else {
            ServeControlPipe(events, asService);
        }
    }
    os::CoUninitialize();
    return 0;
}

}  // namespace hf
