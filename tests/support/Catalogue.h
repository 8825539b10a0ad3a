// The texts of the event log catalogue, written out independently of the message
// source, for checking the executable's message table byte for byte under Wine.
#pragma once

namespace hf::test {

struct CatalogueEntry {
    unsigned id;
    const char16_t* text;
};

inline constexpr CatalogueEntry kCatalogue[] = {
    {1, u"Service\r\n"},
    {2, u"User\r\n"},
    {3, u"Acrobat Plug-In\r\n"},
    {4, u"Found installed user %1.\r\n"},
    {5, u"Unexpected error %1 while enumerating user %2.\r\n"},
    {6, u"No users have hot folders.\r\n"},
    {7, u"Error decrypting password for user %1.  Error code: %2\r\n"},
    {8, u"Attempt to logon as user %1 on domain %2 failed.  Error code: %3\r\n"},
    {9, u"Found no slash in user name %1.  Cannot logon.\r\n"},
    {10, u"CreateProcessAsUser(%1, %2) failed.  Error code: %3\r\n"},
    {11, u"LoadUserProfile(%1) failed.  Error code: %2\r\n"},
    {12, u"WritePipe(%1) failed.  Error code: %2\r\n"},
    {13, u"CryptAcquireContext() failed.  Error code: %1\r\n"},
    {14, u"CryptGenRandom() failed.  Error code: %1\r\n"},
    {15, u"CryptBinaryToString() failed.  Error code: %1\r\n"},
    {16, u"CreateNamedPipe(%1) failed.  Error code: %2\r\n"},
    {17, u"Hot folder process for user %1 exited.\r\n"},
    {18, u"WaitForMultipleObjects failed.  Error code: %1\r\n"},
    {19, u"Launched with commandline:\r\n%1\r\n"},
    {20, u"Launching %2 for user %1 with commandline:\r\n%3\r\n"},
    {21, u"CreateFile(%1) failed.  Error code: %2\r\n"},
    {22, u"ReadFile(%1) failed.  Error code: %2\r\n"},
    {23, u"Received STOP command from service.\r\n"},
    {24, u"ConnectNamedPipe(%1) failed.  Error code: %2\r\n"},
    {25, u"Client process for user %1 not yet connected to pipe.\r\n"},
    {26, u"Client process for user %1 exited before connecting to pipe.\r\n"},
    {27, u"CoCreateInstance(AcroExch.App) failed.  HRESULT: %1\r\n"},
    {28, u"FindWindowEx(%1) failed.  Error code: %2\r\n"},
    {29, u"Connected to plug-in message window.  HWND: %1\r\n"},
    {30, u"CreateProcess(Acrobat.exe) failed.  Error code: %1\r\n"},
    {31, u"Acrobat.exe exited while waiting to connect to Hot Folder message window.\r\n"},
    {32, u"WaitForSingleObject() failed.  Error code: %1\r\n"},
    {33, u"Connected to plug-in message pipe %1.\r\n"},
    {34, u"Failed to create user's hot folder folder %1.  Error code: %2\r\n"},
    {35, u"Failed to open user's hot folder folder %1.  Error code: %2\r\n"},
    {36, u"ReadDirectoryChangesW(%1) failed.  Error code: %2\r\n"},
    {37, u"Unexpected error passed to overlapped callback watching %1.  Error code: %2\r\n"},
    {38, u"File added to %1:%n\r\n%2\r\n"},
    {39, u"File removed from %1:%n\r\n%2\r\n"},
    {40, u"File renamed in %1.%n\r\nOld name: %2\r\n"},
    {41, u"File renamed in %1:%n\r\nNew name: %2\r\n"},
    {42, u"File modified in %1:%n\r\n%2\r\n"},
    {43, u"Unknown file action in %1:%n\r\n%2\r\n"},
    {44, u"Error passed into ReadPipe(%1) overlapped callback.%n\r\nError code: %2\r\n"},
    {45, u"'%2' not found in %1.%n\r\nCannot watch hot folder.\r\n"},
    {46, u"Ready to process %1\r\n"},
    {47, u"Failed to open registry key %1.  Error code: %2\r\n"},
    {48, u"Failed to read registry key %1, value %2.  Error code: %3\r\n"},
    {49, u"Connected to folder watcher process's message pipe %1.\r\n"},
    {50, u"CreateWaitableTimer() failed.  Error code: %1.\r\n"},
    {51, u"Failed to connect to pipe %1.  Error code: %2.\r\n"},
    {52, u"Failed to instantiate service.  Error code: %1.\r\n"},
    {53, u"Failed to write registry key %1, value %2.  Error code: %3\r\n"},
    {54, u"Exiting because there is already a hot folder watcher process running.\r\n"},
    {55, u"Failed to open the service control manager.  Error code: %1\r\n"},
    {56, u"Failed to open the service %1.  Error code: %2\r\n"},
    {57, u"Failed to start the service %1.  Error code: %2\r\n"},
    {58, u"Failed to start the service.  Error code: %1\r\n"},
    {59, u"Failed to watch the root hot folder directory %s.\r\n"},
    {60, u"Watching for changes to the root hot folder directory %s.\r\n"},
};

}  // namespace hf::test
