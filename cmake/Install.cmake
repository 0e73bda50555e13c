include(CMakePackageConfigHelpers)

install(TARGETS zqsys zqsys_static
  EXPORT ZqSysTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zqsys DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT ZqSysTargets
  NAMESPACE ZqSys::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqSys)
configure_package_config_file(cmake/ZqSysConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZqSysConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqSys)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZqSysConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZqSysConfig.cmake ${PROJECT_BINARY_DIR}/ZqSysConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqSys)

configure_file(cmake/zqsys.pc.in ${PROJECT_BINARY_DIR}/zqsys.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zqsys.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
