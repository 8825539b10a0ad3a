#include <windows.h>

#include "platform/Pipes.h"

namespace hf::os {

HANDLE CreateNamedPipeW(const WCHAR* name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeOut, void* securityAttributes)
{
    return ::CreateNamedPipeW(reinterpret_cast<LPCWSTR>(name), openMode, pipeMode, maxInstances, outBufferSize,
                              inBufferSize, defaultTimeOut, static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes));
}

BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped)
{
    return ::ConnectNamedPipe(pipe, reinterpret_cast<::LPOVERLAPPED>(overlapped));
}

}  // namespace hf::os
