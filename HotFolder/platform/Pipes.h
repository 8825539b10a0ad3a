// The server side of named pipes. Clients open a pipe with CreateFileW and
// all ends read and write with the calls of Files.h.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// CreateNamedPipeW: one more instance of a named pipe; INVALID_HANDLE_VALUE on failure
// (ERROR_PIPE_BUSY when the instance limit is reached).
HANDLE CreateNamedPipeW(const WCHAR* name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeOut, void* securityAttributes);

// ConnectNamedPipe: waits (overlapped: in the background, signalling overlapped->hEvent)
// for a client to open this instance. FALSE with ERROR_IO_PENDING while waiting,
// ERROR_PIPE_CONNECTED when a client came before the call.
BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped);

}  // namespace hf::os
