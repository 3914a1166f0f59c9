# What `cmake --install` lays down: two libraries, the media library, their headers, a CMake package, pkg-config files, the command with its
# man page and completion.
include(CMakePackageConfigHelpers)

install(TARGETS orrery-platform orrery-mysql
  EXPORT orrery-mysql-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
# In a folder of its own: backup programs load it by path, and other products have one of this name.
install(TARGETS orrery-libobk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/orrery-mysql COMPONENT runtime)
install(DIRECTORY platform/include/orrery include/orrery DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h")
install(EXPORT orrery-mysql-targets NAMESPACE Orrery:: COMPONENT dev
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orrery-mysql)
configure_package_config_file(cmake/orrery-mysql-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/orrery-mysql-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orrery-mysql)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/orrery-mysql-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orrery-mysql-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/orrery-mysql-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orrery-mysql COMPONENT dev)

# Relative to the file itself, so that a copy installed elsewhere is found where it is.
file(RELATIVE_PATH prefix_from_pkgconfig "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
foreach(library platform mysql)
  configure_file(cmake/orrery-${library}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/orrery-${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orrery-${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

install(TARGETS orrery-mysql-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES tools/orrery_mysql/orrery-mysql.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES tools/orrery_mysql/orrery-mysql.bash RENAME orrery-mysql
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
