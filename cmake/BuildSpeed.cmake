# What keeps the build fast: a compiler cache shared by every checkout of this machine, and
# precompiled platform, standard-library and GoogleTest headers shared by every target.

# --- Compiler cache -------------------------------------------------------------------------
# ccache, when installed. Paths below the source tree are hashed relative to it, and neither the
# debug information nor __FILE__ names the checkout's folder, so a fresh clone in another folder
# (CI's) finds what this one compiled.
find_program(CCACHE_PROGRAM ccache)
option(USE_CCACHE "Compile through ccache when it is installed" ON)
if(USE_CCACHE AND CCACHE_PROGRAM)
    set(ccache_launcher
        ${CMAKE_COMMAND} -E env
        CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}
        CCACHE_NOHASHDIR=1
        # The compiler names the headers it read (-MD); ccache need not preprocess a second time.
        CCACHE_DEPEND=1
        # Precompiled headers hide #defines and time macros from ccache; the headers of a
        # precompiled header are named on the command line (-include), which ccache hashes.
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        # ...and the precompiled header is known by the checksum written beside it.
        CCACHE_PCH_EXTSUM=1
        # The prefix maps below name the checkout's folder; they only keep it out of the output.
        "CCACHE_IGNOREOPTIONS=-fdebug-prefix-map=* -fmacro-prefix-map=*"
        ${CCACHE_PROGRAM})
    set(CMAKE_C_COMPILER_LAUNCHER ${ccache_launcher})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ccache_launcher})
endif()

# The checkout's folder appears nowhere in what is built. ccache hands the compiler paths
# relative to the object's folder (../../X/y.cpp), so those prefixes are mapped too; GCC applies
# the last option that matches, hence the shorter prefixes first.
add_compile_options(
    -fdebug-prefix-map=${CMAKE_SOURCE_DIR}=.
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=
    -fmacro-prefix-map=../=
    -fmacro-prefix-map=../../=
    -fmacro-prefix-map=../../../=
    -fmacro-prefix-map=../../../../=)

# --- Precompiled headers --------------------------------------------------------------------
# Parsing <windows.h> and the DirectShow headers costs most of a translation unit's time here.
# One precompiled header for the libraries and programs, one with GoogleTest for the test
# programs; every target of ours reuses one of them. Each source file still includes what it
# uses: the precompiled header only speeds the build (configure with -DUSE_PCH=OFF to check).
option(USE_PCH "Compile with precompiled headers" ON)

set(PROJECT_PCH_HEADERS
    <windows.h> <objbase.h> <oleauto.h> <dshow.h> <wrl/client.h>
    <algorithm> <atomic> <cstdint> <cstdio> <cstring> <cwchar> <functional> <map> <memory>
    <mutex> <string> <thread> <utility> <vector>)

# add_pch_anchor(NAME [HEADERS extra headers...] [LIBRARIES libraries for their include paths...])
# A small target that owns one precompiled header for others to reuse.
function(add_pch_anchor name)
    cmake_parse_arguments(ARG "" "" "HEADERS;LIBRARIES" ${ARGN})
    add_library(${name} STATIC ${PROJECT_SOURCE_DIR}/cmake/pch/PchAnchor.cpp)
    target_link_libraries(${name} PRIVATE project_warnings ${ARG_LIBRARIES})
    target_precompile_headers(${name} PRIVATE ${PROJECT_PCH_HEADERS} ${ARG_HEADERS})
    set(pch ${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/${name}.dir/cmake_pch.hxx.gch)
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -DPCH=${pch} -P ${PROJECT_SOURCE_DIR}/cmake/pch/WriteChecksum.cmake
        VERBATIM)
endfunction()

# Gives every target of ours below `directory` the precompiled header it fits. Called once all
# targets exist; a target that links GoogleTest gets the one with GoogleTest.
function(use_precompiled_headers directory)
    if(NOT USE_PCH)
        return()
    endif()
    get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(NOT type MATCHES "^(STATIC_LIBRARY|SHARED_LIBRARY|EXECUTABLE)$"
           OR target MATCHES "^pch_")
            continue()
        endif()
        get_target_property(libraries ${target} LINK_LIBRARIES)
        if(libraries AND "GTest::gtest" IN_LIST libraries)
            target_precompile_headers(${target} REUSE_FROM pch_tests)
        else()
            target_precompile_headers(${target} REUSE_FROM pch_project)
        endif()
    endforeach()
    get_property(subdirectories DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
    foreach(subdirectory IN LISTS subdirectories)
        cmake_path(IS_PREFIX PROJECT_SOURCE_DIR ${subdirectory} NORMALIZE ours)
        if(ours)
            use_precompiled_headers(${subdirectory})
        endif()
    endforeach()
endfunction()
