# Installs the shared library, the headers (with the folders that their includes name) and the package files, so that a
# program finds them with find_package(vk.tq.commonlib) and links vk::tq::commonlib.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vk.tq.commonlib)
install(TARGETS vk_tq_commonlib EXPORT vk.tq.commonlib)
foreach(floor IN ITEMS platform foundation storage jobs settings users transport)
  install(DIRECTORY ${floor} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vk.tq.commonlib
    FILES_MATCHING PATTERN "*.h" PATTERN "posix" EXCLUDE)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/generated/platform/export.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vk.tq.commonlib/platform)
install(EXPORT vk.tq.commonlib NAMESPACE vk::tq:: DESTINATION ${package_dir} FILE vk.tq.commonlibConfig.cmake)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vk.tq.commonlibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vk.tq.commonlibConfigVersion.cmake DESTINATION ${package_dir})
