# TarnwickHotFolder.exe: the portable core on the win32 backend, a GUI-subsystem
# program whose entry is wWinMain, with the message table and the string table
# linked in as resources. Included from HotFolder/CMakeLists.txt.

# The entry point belongs to the executable alone; test programs that link the
# backend bring their own main.
get_target_property(hf_backend_sources hf_platform SOURCES)
list(FILTER hf_backend_sources EXCLUDE REGEX "/WinMain_win32\\.cpp$")
set_target_properties(hf_platform PROPERTIES SOURCES "${hf_backend_sources}")

# windmc turns Messages.mc into a resource script and the binary table it
# names (MSG00409.bin, language 1033). -U stores the texts as UTF-16, as
# FormatMessageW returns them.
set(HF_RESOURCE_DIR ${CMAKE_CURRENT_BINARY_DIR}/resources)
add_custom_command(
    OUTPUT ${HF_RESOURCE_DIR}/Messages.rc ${HF_RESOURCE_DIR}/MSG00409.bin
    COMMAND ${CMAKE_COMMAND} -E make_directory ${HF_RESOURCE_DIR}
    COMMAND ${HF_WINDMC} -U -h ${HF_RESOURCE_DIR} -r ${HF_RESOURCE_DIR} ${HF_MESSAGE_SOURCE}
    DEPENDS ${HF_MESSAGE_SOURCE}
    COMMENT "Compiling the message table from Messages.mc")

# widl builds the type library HotFolderLib from its IDL, for 32-bit Windows
# (its system kind is SYS_WIN32).
set(HF_TYPE_LIBRARY_IDL ${CMAKE_CURRENT_SOURCE_DIR}/service/HotFolderLib.idl)
add_custom_command(
    OUTPUT ${HF_RESOURCE_DIR}/HotFolderLib.tlb
    COMMAND ${CMAKE_COMMAND} -E make_directory ${HF_RESOURCE_DIR}
    COMMAND ${HF_WIDL} --win32 -t -I ${HF_WIDL_INCLUDE_DIR} -L ${HF_WIDL_LIBRARY_DIR}
            -o ${HF_RESOURCE_DIR}/HotFolderLib.tlb ${HF_TYPE_LIBRARY_IDL}
    DEPENDS ${HF_TYPE_LIBRARY_IDL}
    COMMENT "Compiling the type library from HotFolderLib.idl")

# HotFolder.rc includes the generated script and adds the string table, the
# type library and the two registration tables.
set(HF_RESOURCE_SCRIPT ${CMAKE_CURRENT_SOURCE_DIR}/service/HotFolder.rc)
set(HF_RESOURCE_OBJECT ${HF_RESOURCE_DIR}/HotFolderResources.o)
add_custom_command(
    OUTPUT ${HF_RESOURCE_OBJECT}
    COMMAND ${HF_WINDRES} --input-format=rc --output-format=coff -I ${HF_RESOURCE_DIR}
            -I ${CMAKE_CURRENT_SOURCE_DIR}/service -i ${HF_RESOURCE_SCRIPT} -o ${HF_RESOURCE_OBJECT}
    WORKING_DIRECTORY ${HF_RESOURCE_DIR}
    DEPENDS ${HF_RESOURCE_SCRIPT} ${HF_RESOURCE_DIR}/Messages.rc ${HF_RESOURCE_DIR}/MSG00409.bin
            ${HF_RESOURCE_DIR}/HotFolderLib.tlb ${CMAKE_CURRENT_SOURCE_DIR}/service/AppId.rgs
            ${CMAKE_CURRENT_SOURCE_DIR}/service/FolderService.rgs
    COMMENT "Compiling the executable's resources")
set_source_files_properties(${HF_RESOURCE_OBJECT} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)

add_executable(TarnwickHotFolder WIN32 ${CMAKE_CURRENT_SOURCE_DIR}/platform/win32/WinMain_win32.cpp
                                       ${HF_RESOURCE_OBJECT})
target_link_libraries(TarnwickHotFolder PRIVATE hf_core)
target_link_options(TarnwickHotFolder PRIVATE -municode)
