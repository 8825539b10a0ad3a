// The Win32 constants, error codes and HRESULTs that the core uses, with their
// documented values, so codes read in the event log mean the same on every
// build. <windows.h> defines these names as macros: a file that includes it
// (the win32 backend, Wine-side test helpers) must not include this header.
#pragma once

#include "platform/Types.h"

namespace hf {

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

inline HANDLE const INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

// Predefined registry roots, with their Win32 values.
inline HKEY const HKEY_CLASSES_ROOT =
    reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(0x80000000)));
inline HKEY const HKEY_CURRENT_USER =
    reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(0x80000001)));
inline HKEY const HKEY_LOCAL_MACHINE =
    reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(0x80000002)));

// Win32 error codes used by the system.
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_BAD_NETPATH = 53;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_BROKEN_PIPE = 109;
constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_BAD_PIPE = 230;
constexpr DWORD ERROR_PIPE_BUSY = 231;
constexpr DWORD ERROR_NO_DATA = 232;
constexpr DWORD ERROR_PIPE_NOT_CONNECTED = 233;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
constexpr DWORD ERROR_PIPE_CONNECTED = 535;
constexpr DWORD ERROR_PIPE_LISTENING = 536;
constexpr DWORD ERROR_OPERATION_ABORTED = 995;
constexpr DWORD ERROR_IO_INCOMPLETE = 996;
constexpr DWORD ERROR_IO_PENDING = 997;
constexpr DWORD ERROR_NOTIFY_ENUM_DIR = 1022;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_SERVICE_DOES_NOT_EXIST = 1060;
constexpr DWORD ERROR_SERVICE_CANNOT_ACCEPT_CTRL = 1061;
constexpr DWORD ERROR_SERVICE_NOT_ACTIVE = 1062;
constexpr DWORD ERROR_FAILED_SERVICE_CONTROLLER_CONNECT = 1063;
constexpr DWORD ERROR_SERVICE_ALREADY_RUNNING = 1056;
constexpr DWORD ERROR_SERVICE_DISABLED = 1058;
constexpr DWORD ERROR_SERVICE_EXISTS = 1073;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr DWORD ERROR_LOGON_FAILURE = 1326;
constexpr DWORD ERROR_NONE_MAPPED = 1332;
constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;
constexpr DWORD NERR_Success = 0;
constexpr DWORD NERR_UserNotFound = 2221;
// The data protection API's answer for a blob that another account sealed.
constexpr DWORD NTE_BAD_KEY_STATE = 0x8009000Bu;

// HRESULTs.
constexpr HRESULT S_OK = 0;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);

// A Win32 code c becomes 0 when c is 0, else 0x80070000 | (c & 0xFFFF).
constexpr HRESULT HResultFromWin32(DWORD code)
{
    return code == 0 ? S_OK : static_cast<HRESULT>(0x80070000u | (code & 0xFFFFu));
}

// Waits.
constexpr DWORD INFINITE = 0xFFFFFFFFu;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_ABANDONED_0 = 0x80;
constexpr DWORD WAIT_IO_COMPLETION = 0xC0;
constexpr DWORD WAIT_TIMEOUT = 0x102;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// Access rights and flags named by the system's calls.
constexpr DWORD GENERIC_READ = 0x80000000u;
constexpr DWORD GENERIC_WRITE = 0x40000000u;
constexpr DWORD FILE_LIST_DIRECTORY = 0x0001;
constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD FILE_SHARE_WRITE = 0x2;
constexpr DWORD FILE_SHARE_DELETE = 0x4;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x100;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000u;
constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000u;
constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000u;

constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD KEY_WRITE = 0x20006;
constexpr DWORD KEY_ALL_ACCESS_READ_WRITE = 0x2001F;  // KEY_READ | KEY_WRITE
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;

constexpr DWORD SC_MANAGER_ALL_ACCESS = 0xF003F;
constexpr DWORD SERVICE_ALL_ACCESS = 0xF01FF;

// Event log types.
constexpr WORD EVENTLOG_SUCCESS = 0;
constexpr WORD EVENTLOG_ERROR_TYPE = 1;
constexpr WORD EVENTLOG_WARNING_TYPE = 2;
constexpr WORD EVENTLOG_INFORMATION_TYPE = 4;

// Service configuration.
constexpr DWORD SERVICE_NO_CHANGE = 0xFFFFFFFFu;

constexpr DWORD SERVICE_STOPPED = 1;
constexpr DWORD SERVICE_RUNNING = 4;

// Locales and string comparison.
constexpr DWORD LOCALE_INVARIANT = 0x007F;
constexpr DWORD NORM_IGNORECASE = 0x00000001;
constexpr int CSTR_LESS_THAN = 1;
constexpr int CSTR_EQUAL = 2;
constexpr int CSTR_GREATER_THAN = 3;

// Shell folders and directory change filters.
constexpr int CSIDL_LOCAL_APPDATA = 0x001C;
constexpr DWORD SHGFP_TYPE_CURRENT = 0;
constexpr DWORD FILE_NOTIFY_CHANGE_FILE_NAME = 0x01;
constexpr DWORD FILE_NOTIFY_CHANGE_DIR_NAME = 0x02;
constexpr DWORD FILE_NOTIFY_CHANGE_ATTRIBUTES = 0x04;
constexpr DWORD FILE_NOTIFY_CHANGE_SIZE = 0x08;
constexpr DWORD FILE_NOTIFY_CHANGE_LAST_WRITE = 0x10;
constexpr DWORD FILE_ACTION_ADDED = 1;
constexpr DWORD FILE_ACTION_REMOVED = 2;
constexpr DWORD FILE_ACTION_MODIFIED = 3;
constexpr DWORD FILE_ACTION_RENAMED_OLD_NAME = 4;
constexpr DWORD FILE_ACTION_RENAMED_NEW_NAME = 5;

// Named pipes.
constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
constexpr DWORD PIPE_UNLIMITED_INSTANCES = 255;
constexpr DWORD PIPE_TYPE_BYTE = 0;
constexpr DWORD PIPE_TYPE_MESSAGE = 4;

// Processes.
constexpr DWORD STILL_ACTIVE = 259;  // GetExitCodeProcess of a process that has not ended

// User names.
constexpr int NameSamCompatible = 2;

// Memory, data protection and logons.
constexpr unsigned LMEM_FIXED = 0;
constexpr DWORD CRYPTPROTECT_UI_FORBIDDEN = 0x1;
constexpr DWORD LOGON32_LOGON_INTERACTIVE = 2;
constexpr DWORD LOGON32_PROVIDER_DEFAULT = 0;

// Security information.
constexpr DWORD SE_KERNEL_OBJECT = 6;
constexpr DWORD OWNER_SECURITY_INFORMATION = 1;

// --- the service host and its registration ---------------------------------------

constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;

// COM servers and type libraries.
constexpr DWORD COINIT_MULTITHREADED = 0;
constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;
constexpr DWORD REGCLS_MULTIPLEUSE = 0x1;
constexpr DWORD REGCLS_SUSPENDED = 0x4;
constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106u);
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110u);
constexpr HRESULT CO_E_OBJNOTREG = static_cast<HRESULT>(0x800401FBu);
constexpr HRESULT TYPE_E_CANTLOADLIBRARY = static_cast<HRESULT>(0x80029C4Au);
constexpr HRESULT TYPE_E_REGISTRYACCESS = static_cast<HRESULT>(0x8002801Cu);
constexpr int SYS_WIN32 = 1;
constexpr std::int16_t VARIANT_TRUE = -1;
constexpr std::int16_t VARIANT_FALSE = 0;

// Thread messages and message boxes.
constexpr unsigned WM_QUIT = 0x0012;
constexpr unsigned PM_NOREMOVE = 0x0000;
constexpr unsigned MB_OK = 0;
constexpr int IDOK = 1;
constexpr DWORD STD_OUTPUT_HANDLE = static_cast<DWORD>(-11);

// Services: types, start types, states, controls and access rights.
constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 0x10;
constexpr DWORD SERVICE_AUTO_START = 2;
constexpr DWORD SERVICE_DEMAND_START = 3;
constexpr DWORD SERVICE_ERROR_NORMAL = 1;
constexpr DWORD SERVICE_ACCEPT_STOP = 1;
constexpr DWORD SERVICE_START_PENDING = 2;
constexpr DWORD SERVICE_STOP_PENDING = 3;
constexpr DWORD SERVICE_CONTROL_STOP = 1;
constexpr DWORD SERVICE_CONTROL_PAUSE = 2;
constexpr DWORD SERVICE_CONTROL_CONTINUE = 3;
constexpr DWORD SERVICE_CONTROL_INTERROGATE = 4;
constexpr DWORD SERVICE_CONTROL_SHUTDOWN = 5;
constexpr DWORD SERVICE_QUERY_CONFIG = 0x0001;
constexpr DWORD SERVICE_STOP = 0x0020;
constexpr DWORD DELETE = 0x00010000;

}  // namespace hf
