// The calls that files and pipes share: opening by name, reading and writing.
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

namespace {

std::shared_ptr<sim::IoObject> IoOf(HANDLE handle)
{
    auto object = sim::TheWorld().LookupAs<sim::IoObject>(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return object;
}

}  // namespace

HANDLE CreateFileW(const WCHAR* fileName, DWORD /*desiredAccess*/, DWORD /*shareMode*/, void* /*securityAttributes*/,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE /*templateFile*/)
{
    DWORD error = 0;
    if (sim::Injected("CreateFileW", error)) {
        return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
    }
    std::u16string const name = fileName ? fileName : u"";
    if (sim::IsPipeName(name)) {
        return sim::TheWorld().pipes.OpenClient(name);
    }
    return sim::TheWorld().files.Open(name, creationDisposition, flagsAndAttributes);
}

BOOL ReadFileEx(HANDLE file, void* buffer, DWORD bytesToRead, OVERLAPPED* overlapped,
                LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    DWORD error = 0;
    if (sim::Injected("ReadFileEx", error)) {
        return 0;
    }
    auto io = IoOf(file);
    return io ? io->ReadEx(buffer, bytesToRead, overlapped, completionRoutine) : 0;
}

BOOL WriteFileEx(HANDLE file, const void* buffer, DWORD bytesToWrite, OVERLAPPED* overlapped,
                 LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    auto io = IoOf(file);
    return io ? io->WriteEx(buffer, bytesToWrite, overlapped, completionRoutine) : 0;
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytesToWrite, DWORD* bytesWritten, OVERLAPPED* /*overlapped*/)
{
    DWORD error = 0;
    if (sim::Injected("WriteFile", error)) {
        return 0;
    }
    auto io = IoOf(file);
    return io ? io->Write(buffer, bytesToWrite, bytesWritten) : 0;
}

}  // namespace hf::os
