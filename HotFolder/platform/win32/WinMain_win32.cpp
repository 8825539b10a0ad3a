// The Windows GUI entry point of TarnwickHotFolder.exe: every role starts here
// and is chosen by hf::HotFolderMain from the command line.
#include <windows.h>

#include "Entry.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previousInstance*/, PWSTR /*commandLine*/, int showWindow)
{
    // The raw command line is read again by the entry (GetCommandLineW), so the
    // program path is logged as the process received it.
    return hf::HotFolderMain(instance, showWindow);
}
