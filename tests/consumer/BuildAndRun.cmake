# Run by ctest (tests/CMakeLists.txt): proves that a program of one's own builds against an
# installed tree and runs. Installs the build into INSTALL_DIR (emptied first, so that nothing
# left over from an earlier install can stand in for a file the install forgot), configures and
# builds this folder's project against it with find_package(VideoCapture), and runs the program
# through EMULATOR.
#   -DBUILD_DIR= -DINSTALL_DIR= -DCONSUMER_BUILD_DIR= -DTOOLCHAIN_FILE= -DEMULATOR=<list>
#   [-DCOMPILER_LAUNCHER=]
cmake_minimum_required(VERSION 3.20)

function(run_step what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${INSTALL_DIR})
run_step("Installing into ${INSTALL_DIR}"
         ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${INSTALL_DIR})

foreach(file lib/cmake/VideoCapture/VideoCaptureConfig.cmake
             lib/cmake/VideoCapture/VideoCaptureConfigVersion.cmake
             lib/libDShowCapture.a lib/libTinyFramework.a
             include/DShowCapture/VideoCapture.h include/TinyFramework/Common/TinyCore.h
             include/TinyFramework/IO/TinyPipe.h include/protocol/QueryProtocol.h
             bin/QueryTool.exe bin/QueryServer.exe bin/CaptureTool.exe)
    if(NOT EXISTS ${INSTALL_DIR}/${file})
        message(FATAL_ERROR "The install has no ${file}")
    endif()
endforeach()

set(launcher)
if(COMPILER_LAUNCHER)
    set(launcher -DCMAKE_CXX_COMPILER_LAUNCHER=${COMPILER_LAUNCHER})
endif()
run_step("Configuring the consumer"
         ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${CONSUMER_BUILD_DIR}
         -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE} -DCMAKE_PREFIX_PATH=${INSTALL_DIR} ${launcher})
# The package must be the one just installed, not one found elsewhere.
file(STRINGS ${CONSUMER_BUILD_DIR}/CMakeCache.txt package_dir REGEX "^VideoCapture_DIR:")
if(NOT package_dir STREQUAL "VideoCapture_DIR:PATH=${INSTALL_DIR}/lib/cmake/VideoCapture")
    message(FATAL_ERROR "The consumer found the package elsewhere: ${package_dir}")
endif()
run_step("Building the consumer" ${CMAKE_COMMAND} --build ${CONSUMER_BUILD_DIR})

execute_process(COMMAND ${EMULATOR} ${CONSUMER_BUILD_DIR}/VideoCaptureConsumer.exe
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors TIMEOUT 300)
message("${output}")
if(NOT result EQUAL 0)
    message(FATAL_ERROR "The consumer exited with ${result}:\n${errors}")
endif()
if(NOT output MATCHES "^video devices: [0-9]+\r?\n")
    message(FATAL_ERROR "The consumer did not list the video devices")
endif()
