# GoogleTest for the windows build, compiled from the distribution's sources
# (Debian's googletest package puts them in /usr/src/googletest) with the
# cross compilers, so the Wine suites link the same static runtime as the
# executable. Provides GTest::gtest, GTest::gtest_main, GTest::gmock and
# GTest::gmock_main, as find_package(GTest) does for the native build.
set(HF_GOOGLETEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest's sources, as the googletest package installs them")
if(NOT EXISTS ${HF_GOOGLETEST_SOURCE_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest's sources are not in ${HF_GOOGLETEST_SOURCE_DIR}: install the googletest package "
                        "(scripts/setup.sh does)")
endif()

set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)

# GoogleTest is third-party code: it is built with its own warning flags, not
# with this project's -Werror, which the subdirectory would otherwise inherit.
get_directory_property(hf_saved_compile_options COMPILE_OPTIONS)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "")
add_subdirectory(${HF_GOOGLETEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "${hf_saved_compile_options}")

foreach(hf_gtest_target IN ITEMS gtest gtest_main gmock gmock_main)
    if(NOT TARGET GTest::${hf_gtest_target})
        add_library(GTest::${hf_gtest_target} ALIAS ${hf_gtest_target})
    endif()
endforeach()
