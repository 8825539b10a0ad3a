#include <windows.h>

#include "platform/ServiceManager.h"

#include <cstddef>

namespace hf::os {

static_assert(sizeof(SERVICE_STATUS) == sizeof(::SERVICE_STATUS), "SERVICE_STATUS must have the system's layout");
static_assert(offsetof(SERVICE_STATUS, dwWaitHint) == offsetof(::SERVICE_STATUS, dwWaitHint),
              "SERVICE_STATUS must have the system's layout");
static_assert(sizeof(SERVICE_TABLE_ENTRYW) == sizeof(::SERVICE_TABLE_ENTRYW),
              "SERVICE_TABLE_ENTRYW must have the system's layout");
static_assert(offsetof(SERVICE_TABLE_ENTRYW, lpServiceProc) == offsetof(::SERVICE_TABLE_ENTRYW, lpServiceProc),
              "SERVICE_TABLE_ENTRYW must have the system's layout");

namespace {

LPCWSTR Text(const WCHAR* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}

::SC_HANDLE Service(SC_HANDLE handle)
{
    return static_cast<::SC_HANDLE>(handle);
}

// The seam's callbacks differ from the system's only in spelling (DWORD is
// unsigned int here, unsigned long there, both 32 bits), and x86-64 Windows has
// a single calling convention. Going through a generic function pointer says
// so to the compiler, which otherwise warns about the cast.
using GenericFunction = void (*)();

template <typename To, typename From>
To CallbackCast(From function)
{
    return reinterpret_cast<To>(reinterpret_cast<GenericFunction>(function));
}

}  // namespace

SC_HANDLE OpenSCManagerW(const WCHAR* machineName, const WCHAR* databaseName, DWORD access)
{
    return ::OpenSCManagerW(Text(machineName), Text(databaseName), access);
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, const WCHAR* serviceName, DWORD access)
{
    return ::OpenServiceW(Service(manager), Text(serviceName), access);
}

BOOL StartServiceW(SC_HANDLE service, DWORD numArgs, const WCHAR** args)
{
    return ::StartServiceW(Service(service), numArgs, reinterpret_cast<LPCWSTR*>(args));
}

BOOL CloseServiceHandle(SC_HANDLE handle)
{
    return ::CloseServiceHandle(Service(handle));
}

SC_HANDLE CreateServiceW(SC_HANDLE manager, const WCHAR* serviceName, const WCHAR* displayName, DWORD access,
                         DWORD serviceType, DWORD startType, DWORD errorControl, const WCHAR* binaryPath,
                         const WCHAR* loadOrderGroup, DWORD* tagId, const WCHAR* dependencies, const WCHAR* accountName,
                         const WCHAR* password)
{
    ::DWORD tag = tagId ? *tagId : 0;
    ::SC_HANDLE const service =
        ::CreateServiceW(Service(manager), Text(serviceName), Text(displayName), access, serviceType, startType,
                         errorControl, Text(binaryPath), Text(loadOrderGroup), tagId ? &tag : nullptr,
                         Text(dependencies), Text(accountName), Text(password));
    if (tagId) {
        *tagId = tag;
    }
    return service;
}

BOOL ChangeServiceConfigW(SC_HANDLE service, DWORD serviceType, DWORD startType, DWORD errorControl,
                          const WCHAR* binaryPath, const WCHAR* loadOrderGroup, DWORD* tagId, const WCHAR* dependencies,
                          const WCHAR* accountName, const WCHAR* password, const WCHAR* displayName)
{
    ::DWORD tag = tagId ? *tagId : 0;
    BOOL const changed = ::ChangeServiceConfigW(
        Service(service), serviceType, startType, errorControl, Text(binaryPath), Text(loadOrderGroup),
        tagId ? &tag : nullptr, Text(dependencies), Text(accountName), Text(password), Text(displayName));
    if (tagId) {
        *tagId = tag;
    }
    return changed;
}

BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status)
{
    return ::ControlService(Service(service), control, reinterpret_cast<::SERVICE_STATUS*>(status));
}

BOOL DeleteService(SC_HANDLE service)
{
    return ::DeleteService(Service(service));
}

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table)
{
    // The table has the system's layout (checked above); only the type of the
    // service main functions is spelt differently.
    return ::StartServiceCtrlDispatcherW(reinterpret_cast<const ::SERVICE_TABLE_ENTRYW*>(table));
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(const WCHAR* serviceName, LPHANDLER_FUNCTION handler)
{
    return ::RegisterServiceCtrlHandlerW(Text(serviceName), CallbackCast<::LPHANDLER_FUNCTION>(handler));
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE statusHandle, SERVICE_STATUS* status)
{
    return ::SetServiceStatus(static_cast<::SERVICE_STATUS_HANDLE>(statusHandle),
                              reinterpret_cast<::SERVICE_STATUS*>(status));
}

}  // namespace hf::os
