# add_gtest_suites(TARGET [TIMEOUT seconds] [RESOURCE_LOCK name])
# Registers one CTest test per GoogleTest suite of TARGET, found when ctest runs (the program
# runs under Wine, which a build need not have). A test program started under Wine costs a
# process and a second or so: one start per suite instead of one per test case keeps the run
# short, and a failing suite still names itself and, in its output, the failing case.
function(add_gtest_suites target)
    cmake_parse_arguments(ARG "" "TIMEOUT;RESOURCE_LOCK" "" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 1200)
    endif()
    set(include_file ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
    file(GENERATE OUTPUT ${include_file} CONTENT
"set(suites_target [==[${target}]==])
set(suites_program [==[$<TARGET_FILE:${target}>]==])
set(suites_emulator [==[${CMAKE_CROSSCOMPILING_EMULATOR}]==])
set(suites_timeout [==[${ARG_TIMEOUT}]==])
set(suites_lock [==[${ARG_RESOURCE_LOCK}]==])
include([==[${PROJECT_SOURCE_DIR}/cmake/DiscoverGTestSuites.cmake]==])
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include_file})
endfunction()
