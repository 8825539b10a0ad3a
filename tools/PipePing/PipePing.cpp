// PipePing: the plain named-pipe round trip that the watcher's job hand-over is
// measured against. One program, two roles:
//
//   PipePing server NAME          serves NAME: reads a 4-byte little-endian
//                                 length and that many bytes, answers one byte,
//                                 until the client goes
//   PipePing client NAME COUNT    sends COUNT job-sized messages (the 92-byte
//                                 example job), reads each answer, and prints
//                                 "round trips per second: X"
//
// Both ends use plain blocking I/O in byte mode: the fastest a job and its
// answer can cross a pipe on this machine.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "acrobat/JobMessage.h"

namespace {

bool ReadExactly(HANDLE pipe, void* buffer, ::DWORD size)
{
    auto* bytes = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        ::DWORD read = 0;
        if (!ReadFile(pipe, bytes, size, &read, nullptr) || read == 0) {
            return false;
        }
        bytes += read;
        size -= read;
    }
    return true;
}

int Serve(wchar_t const* name)
{
    HANDLE const pipe = CreateNamedPipeW(name, PIPE_ACCESS_DUPLEX, 0, 1, 10240, 10240, 30000, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) {
        std::fprintf(stderr, "CreateNamedPipeW failed: %lu\n", GetLastError());
        return 1;
    }
    std::puts("listening");
    std::fflush(stdout);
    if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
        return 1;
    }
    std::vector<unsigned char> payload;
    for (;;) {
        unsigned char length[4];
        if (!ReadExactly(pipe, length, 4)) {
            break;
        }
        payload.resize(length[0] | length[1] << 8 | length[2] << 16 | static_cast<::DWORD>(length[3]) << 24);
        if (!ReadExactly(pipe, payload.data(), static_cast<::DWORD>(payload.size()))) {
            break;
        }
        unsigned char const answer = 1;
        ::DWORD written = 0;
        WriteFile(pipe, &answer, 1, &written, nullptr);
    }
    CloseHandle(pipe);
    return 0;
}

int Ping(wchar_t const* name, long count)
{
    HANDLE pipe = INVALID_HANDLE_VALUE;
    for (int attempt = 0; attempt < 200 && pipe == INVALID_HANDLE_VALUE; ++attempt) {
        pipe = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (pipe == INVALID_HANDLE_VALUE) {
            Sleep(50);
        }
    }
    if (pipe == INVALID_HANDLE_VALUE) {
        std::fprintf(stderr, "CreateFileW failed: %lu\n", GetLastError());
        return 1;
    }
    std::vector<hf::BYTE> const message = hf::EncodeJobMessage(u"C:\\In\\a.pdf", u"C:\\Scripts\\x.py", u"C:\\Out");
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    for (long i = 0; i < count; ++i) {
        ::DWORD written = 0;
        unsigned char answer = 0;
        if (!WriteFile(pipe, message.data(), static_cast<::DWORD>(message.size()), &written, nullptr) ||
            !ReadExactly(pipe, &answer, 1)) {
            std::fprintf(stderr, "round trip %ld failed: %lu\n", i, GetLastError());
            return 1;
        }
    }
    QueryPerformanceCounter(&end);
    double const seconds = static_cast<double>(end.QuadPart - start.QuadPart) / frequency.QuadPart;
    std::printf("message bytes: %zu\nround trips per second: %.0f\n", message.size(), count / seconds);
    CloseHandle(pipe);
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc == 3 && std::wcscmp(argv[1], L"server") == 0) {
        return Serve(argv[2]);
    }
    if (argc == 4 && std::wcscmp(argv[1], L"client") == 0) {
        return Ping(argv[2], std::wcstol(argv[3], nullptr, 10));
    }
    std::fputs("usage: PipePing server NAME | PipePing client NAME COUNT\n", stderr);
    return 2;
}
