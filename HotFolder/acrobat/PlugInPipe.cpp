#include "acrobat/PlugInPipe.h"

#include "acrobat/PipeNames.h"
#include "platform/Constants.h"
#include "platform/Files.h"

namespace hf {

std::u16string PlugInPipeName()
{
    return MakePipeName(kPlugInPipePrefix, GetCurrentUserName());
}

HANDLE OpenPlugInPipe(EventReporter& reporter)
{
    std::u16string const name = PlugInPipeName();
    HANDLE const pipe = os::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OVERLAPPED, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) {
        reporter.Report(EVENTLOG_INFORMATION_TYPE, MSG_CONNECTED_TO_PLUGIN_PIPE, {name});
    }
    return pipe;
}

}  // namespace hf
