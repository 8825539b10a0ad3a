// The service control manager: opening, starting and configuring services, and
// the calls a service process makes to run under it.
#pragma once

#include "platform/Types.h"

namespace hf::os {

struct SERVICE_STATUS {
    DWORD dwServiceType = 0;
    DWORD dwCurrentState = 0;
    DWORD dwControlsAccepted = 0;
    DWORD dwWin32ExitCode = 0;
    DWORD dwServiceSpecificExitCode = 0;
    DWORD dwCheckPoint = 0;
    DWORD dwWaitHint = 0;
};

using SERVICE_STATUS_HANDLE = void*;
using LPSERVICE_MAIN_FUNCTIONW = void (*)(DWORD argc, WCHAR** argv);
using LPHANDLER_FUNCTION = void (*)(DWORD control);

struct SERVICE_TABLE_ENTRYW {
    WCHAR* lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

// OpenSCManagerW: a handle to the service control manager of a machine; null on failure.
SC_HANDLE OpenSCManagerW(const WCHAR* machineName, const WCHAR* databaseName, DWORD access);

// OpenServiceW: a handle to an installed service; null on failure (1060 when it does not exist).
SC_HANDLE OpenServiceW(SC_HANDLE manager, const WCHAR* serviceName, DWORD access);

// StartServiceW: asks the manager to start the service; FALSE with 1056 when it already runs.
BOOL StartServiceW(SC_HANDLE service, DWORD numArgs, const WCHAR** args);

// CloseServiceHandle: closes a manager or service handle.
BOOL CloseServiceHandle(SC_HANDLE handle);

// CreateServiceW: installs a service; null on failure.
SC_HANDLE CreateServiceW(SC_HANDLE manager, const WCHAR* serviceName, const WCHAR* displayName, DWORD access,
                         DWORD serviceType, DWORD startType, DWORD errorControl, const WCHAR* binaryPath,
                         const WCHAR* loadOrderGroup, DWORD* tagId, const WCHAR* dependencies, const WCHAR* accountName,
                         const WCHAR* password);

// ChangeServiceConfigW: changes an installed service's configuration; SERVICE_NO_CHANGE keeps a field.
BOOL ChangeServiceConfigW(SC_HANDLE service, DWORD serviceType, DWORD startType, DWORD errorControl,
                          const WCHAR* binaryPath, const WCHAR* loadOrderGroup, DWORD* tagId, const WCHAR* dependencies,
                          const WCHAR* accountName, const WCHAR* password, const WCHAR* displayName);

// ControlService: sends a control code (1 = stop) and returns the service's status.
BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);

// DeleteService: marks the service for deletion.
BOOL DeleteService(SC_HANDLE service);

// StartServiceCtrlDispatcherW: connects the main thread to the manager and runs the
// services of the table; FALSE with 1063 when the process was not started by the manager.
BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// RegisterServiceCtrlHandlerW: installs the control handler of a running service.
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(const WCHAR* serviceName, LPHANDLER_FUNCTION handler);

// SetServiceStatus: reports the service's state to the manager.
BOOL SetServiceStatus(SERVICE_STATUS_HANDLE statusHandle, SERVICE_STATUS* status);

}  // namespace hf::os
