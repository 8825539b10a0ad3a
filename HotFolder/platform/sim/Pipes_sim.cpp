// The server side of named pipes on the simulated machine.
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Pipes.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

HANDLE CreateNamedPipeW(const WCHAR* name, DWORD /*openMode*/, DWORD pipeMode, DWORD maxInstances,
                        DWORD /*outBufferSize*/, DWORD /*inBufferSize*/, DWORD /*defaultTimeOut*/,
                        void* /*securityAttributes*/)
{
    DWORD error = 0;
    if (sim::Injected("CreateNamedPipeW", error)) {
        return INVALID_HANDLE_VALUE;
    }
    return sim::TheWorld().pipes.CreateServer(name ? name : u"", pipeMode, maxInstances);
}

BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped)
{
    DWORD error = 0;
    if (sim::Injected("ConnectNamedPipe", error)) {
        return FALSE;
    }
    sim::PipeSide side = sim::PipeSide::Server;
    auto instance = sim::Pipes::InstanceOf(pipe, side);
    if (!instance) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (side != sim::PipeSide::Server) {
        SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    return instance->Connect(overlapped);
}

}  // namespace hf::os
