# Cross build of the Windows executable and its Wine test suites with
# MinGW-w64 (Debian's posix-threads compilers, so std::thread and std::mutex
# work). Everything is linked statically: the executable and the test programs
# need no MinGW runtime DLLs next to them, under Wine or on Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(HF_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${HF_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${HF_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${HF_MINGW_TRIPLET}-windres)
# The message compiler and the resource compiler, used by WindowsExecutable.cmake.
set(HF_WINDMC ${HF_MINGW_TRIPLET}-windmc)
set(HF_WINDRES ${HF_MINGW_TRIPLET}-windres)
# The IDL compiler for the type library. It needs Wine's system IDL files
# (oaidl.idl and the others, from libwine-dev) and stdole2.tlb (from libwine).
set(HF_WIDL ${HF_MINGW_TRIPLET}-widl)
set(HF_WIDL_INCLUDE_DIR /usr/include/wine/wine/windows)
set(HF_WIDL_LIBRARY_DIR /usr/lib/x86_64-linux-gnu/wine/x86_64-windows)

set(CMAKE_FIND_ROOT_PATH /usr/${HF_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Boost is used for its headers alone (boost::shared_ptr), which are the same
# for every target. The cross compiler must not search the host's /usr/include,
# whose C library headers would hide MinGW's, so the build gets a folder that
# holds nothing but a link to Boost's headers.
set(HF_BOOST_INCLUDE_DIR ${CMAKE_BINARY_DIR}/boost-include)
if(NOT EXISTS ${HF_BOOST_INCLUDE_DIR}/boost AND EXISTS /usr/include/boost/version.hpp)
    file(MAKE_DIRECTORY ${HF_BOOST_INCLUDE_DIR})
    file(CREATE_LINK /usr/include/boost ${HF_BOOST_INCLUDE_DIR}/boost SYMBOLIC)
endif()
set(Boost_INCLUDE_DIR ${HF_BOOST_INCLUDE_DIR} CACHE PATH "Boost's headers, linked from the host")

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test programs (and GoogleTest's discovery) run under Wine. Debian's `wine`
# package provides the `wine` command; wine64 alone installs only the loader.
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
