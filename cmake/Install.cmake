# What `cmake --install` puts into a prefix: the capture library and the framework under it as
# static libraries with their headers, a CMake package that programs of one's own find with
# find_package(VideoCapture), and the command-line tools. Included by the top-level
# CMakeLists.txt once every target exists.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VIDEOCAPTURE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VideoCapture)

# The libraries, exported as VideoCapture::DShowCapture and VideoCapture::TinyFramework.
# QueryProtocol is header-only and comes along because the capture library's VideoFormat.h
# includes it. Their system libraries (strmiids, ole32, ...) travel in the exported link
# interface; project_warnings does not (it is a build-tree-only dependency).
install(TARGETS QueryProtocol TinyFramework DShowCapture
        EXPORT VideoCaptureTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)

# Headers keep the layout of the source tree, which is how they include one another
# ("DShowCapture/X.h", "TinyFramework/Common/X.h", "protocol/QueryProtocol.h").
install(DIRECTORY ${PROJECT_SOURCE_DIR}/DShowCapture ${PROJECT_SOURCE_DIR}/TinyFramework
                  ${PROJECT_SOURCE_DIR}/protocol
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
        FILES_MATCHING PATTERN "*.h")

install(EXPORT VideoCaptureTargets
        NAMESPACE VideoCapture::
        DESTINATION ${VIDEOCAPTURE_CMAKE_DIR} COMPONENT Development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VideoCaptureConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/VideoCaptureConfig.cmake
                              INSTALL_DESTINATION ${VIDEOCAPTURE_CMAKE_DIR})
# Built for one architecture only: a 32-bit program cannot use the 64-bit archives.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VideoCaptureConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VideoCaptureConfig.cmake
              ${PROJECT_BINARY_DIR}/VideoCaptureConfigVersion.cmake
        DESTINATION ${VIDEOCAPTURE_CMAKE_DIR} COMPONENT Development)

# The tools. QueryTool starts the QueryServer.exe beside it, so both go into the same folder.
install(TARGETS QueryTool QueryServer CaptureTool
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tools)
