# What `cmake --install` and `cpack -G DEB` put where, in three components: runtime, development and tools (tqctl). Each
# is a Debian package.
include(CMakePackageConfigHelpers)

# The public headers are those that the README names, and those that they include; nothing else is installed, since the
# shared library exports nothing else. The package test compiles them all where they are installed.
set(TQ_PUBLIC_HEADERS
  platform/error.h
  platform/ftp_session.h
  platform/named_mutex.h
  platform/path.h
  platform/secure_memory.h
  platform/stdio_file.h
  platform/types.h
  foundation/file_lock.h
  foundation/log.h
  foundation/product_folder.h
  foundation/util.h
  storage/crypto.h
  storage/row_array.h
  storage/xml.h
  jobs/manage_file.h
  jobs/manage_file_access.h
  jobs/nemi_inf_file.h
  jobs/nemi_print_info_file_access.h
  settings/client_setting.h
  settings/client_setting_files.h
  settings/client_setting_table.h
  settings/client_setting_writer_table.h
  settings/langage_manager.h
  settings/system_setting.h
  settings/system_setting_items.h
  users/enable_users_accessor.h
  users/shared_user_data_file_access.h
  users/user_data_file.h
  users/user_data_file_access.h
  users/white_list_file_access.h
  transport/ftp.h
  transport/shared_printer_communication.h
  transport/util_link.h)

foreach(header IN LISTS TQ_PUBLIC_HEADERS)
  cmake_path(GET header PARENT_PATH floor)
  install(FILES ${header} DESTINATION ${TQ_INSTALL_HEADERS}/${floor} COMPONENT development)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/platform/export.h DESTINATION ${TQ_INSTALL_HEADERS}/platform
  COMPONENT development)

# The static library is for the tests and stays here: docs/decisions/packages.md.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vk_tq_commonlib)
install(TARGETS vk_tq_commonlib EXPORT vk_tq_commonlib
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT vk_tq_commonlib NAMESPACE vk::tq:: DESTINATION ${package_dir} FILE vk_tq_commonlibConfig.cmake
  COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vk_tq_commonlibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vk_tq_commonlibConfigVersion.cmake DESTINATION ${package_dir} COMPONENT development)

# The paths in it are relative to the file, so that a prefix may be chosen at the installation.
file(RELATIVE_PATH TQ_PREFIX_FROM_PKGCONFIG /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/vk_tq_commonlib.pc.in vk_tq_commonlib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vk_tq_commonlib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The manual: what Doxygen makes of the same headers.
list(TRANSFORM TQ_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE doxygen_input)
list(JOIN doxygen_input " " doxygen_input)
configure_file(docs/Doxyfile.in Doxyfile @ONLY)
set(make_docs doxygen ${PROJECT_BINARY_DIR}/Doxyfile)
add_custom_target(docs COMMAND ${make_docs})
find_program(TQ_DOXYGEN doxygen)
if(TQ_BUILD_TESTS AND TQ_DOXYGEN)
  add_test(NAME manual COMMAND ${make_docs})
endif()

include(TqPackages)
