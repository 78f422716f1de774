include(CMakePackageConfigHelpers)

set(zav_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZAVAudioStreaming)

# Headers beside their sources, without those of private folders.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/ZAVAudioStreaming
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.hpp"
        REGEX "/(support|files|queues|posix|modules)$" EXCLUDE)

# Two export sets: who links the shared library needs nothing else, the static one needs the
# development files of what it is built on.
install(TARGETS zav_shared EXPORT ZAVAudioStreamingTargets)
install(TARGETS zav_static EXPORT ZAVAudioStreamingStaticTargets)
foreach(set ZAVAudioStreamingTargets ZAVAudioStreamingStaticTargets)
  install(EXPORT ${set} NAMESPACE ZAVAudioStreaming:: DESTINATION ${zav_package_dir})
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZAVAudioStreamingConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZAVAudioStreamingConfig.cmake INSTALL_DESTINATION ${zav_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZAVAudioStreamingConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/ZAVAudioStreamingConfig.cmake
  ${PROJECT_BINARY_DIR}/ZAVAudioStreamingConfigVersion.cmake
  DESTINATION ${zav_package_dir})

# Relative to its own place, so that the installed tree can be moved.
file(RELATIVE_PATH zav_prefix_from_pc
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/ZAVAudioStreaming.pc.in
  ${PROJECT_BINARY_DIR}/ZAVAudioStreaming.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ZAVAudioStreaming.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
