# Run by ctest (through the file that add_gtest_suites generates): lists the suites of one
# GoogleTest program and adds a test for each. The list is kept beside the program and made again
# only when the program is newer than it.

function(add_failing_test name why)
    add_test(${name} ${CMAKE_COMMAND} -E echo "${why}")
    set_tests_properties(${name} PROPERTIES WILL_FAIL TRUE)
endfunction()

function(read_suites program emulator out_suites out_error)
    set(list_file ${program}.suites)
    if(NOT EXISTS ${list_file} OR ${program} IS_NEWER_THAN ${list_file})
        # A cold Wine prefix can take a while to start its first program.
        execute_process(COMMAND ${emulator} ${program} --gtest_list_tests
                        OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE result
                        TIMEOUT 300)
        if(NOT result EQUAL 0)
            set(${out_error} "listing the tests of ${program} failed (${result}): ${errors}"
                PARENT_SCOPE)
            return()
        endif()
        file(WRITE ${list_file} "${listing}")
    endif()
    file(STRINGS ${list_file} lines)
    set(suites)
    foreach(line IN LISTS lines)
        # Suites stand at the line's start ("Suite." or "Prefix/Suite.  # TypeParam = ..."),
        # their cases indented below them; Wine ends the lines with CR LF.
        string(REGEX MATCH "^([^ \r#][^ \r]*)\\." match "${line}")
        if(match)
            list(APPEND suites ${CMAKE_MATCH_1})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES suites)
    set(${out_suites} ${suites} PARENT_SCOPE)
    set(${out_error} "" PARENT_SCOPE)
endfunction()

if(NOT EXISTS ${suites_program})
    add_failing_test(${suites_target}.NOT_BUILT "${suites_program} has not been built")
    return()
endif()
read_suites(${suites_program} "${suites_emulator}" suites error)
if(error)
    add_failing_test(${suites_target}.NOT_LISTED "${error}")
    return()
endif()
get_filename_component(directory ${suites_program} DIRECTORY)
foreach(suite IN LISTS suites)
    set(name ${suites_target}.${suite})
    add_test(${name} ${suites_emulator} ${suites_program} --gtest_filter=${suite}.*)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${suites_timeout} WORKING_DIRECTORY ${directory})
    if(suites_lock)
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK ${suites_lock})
    endif()
endforeach()
