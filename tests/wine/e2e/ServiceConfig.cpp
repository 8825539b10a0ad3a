// hf_service_config.exe NAME: an installed service's configuration and state as
// the service control manager reports them, one "field=value" line each (Wine's
// `sc qc` prints nothing); exit code 1 when the service cannot be queried.
#include <windows.h>

#include <cstdio>
#include <vector>

int wmain(int argc, wchar_t** argv)
{
    SC_HANDLE const manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE const service =
        manager && argc == 2 ? OpenServiceW(manager, argv[1], SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS) : nullptr;
    std::vector<BYTE> buffer(8192);  // the largest configuration the manager gives
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    DWORD needed = 0;
    SERVICE_STATUS status{};
    if (!service || !QueryServiceConfigW(service, config, 8192, &needed) || !QueryServiceStatus(service, &status)) {
        std::fprintf(stderr, "cannot query the service: %lu\n", GetLastError());
        return 1;
    }
    std::printf("type=%lu\nstart=%lu\nerror=%lu\n", config->dwServiceType, config->dwStartType, config->dwErrorControl);
    std::printf("path=%ls\n", config->lpBinaryPathName);
    for (wchar_t const* name = config->lpDependencies; name && *name; name += wcslen(name) + 1) {
        std::printf("dependency=%ls\n", name);
    }
    std::printf("account=%ls\ndisplay=%ls\nstate=%lu\n", config->lpServiceStartName ? config->lpServiceStartName : L"",
                config->lpDisplayName, status.dwCurrentState);
    return 0;
}
