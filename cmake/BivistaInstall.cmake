include(CMakePackageConfigHelpers)

set(_install_targets bivista_disptodepth)
if(NOT ANDROID)
  list(APPEND _install_targets bivista_platform)
endif()
install(TARGETS ${_install_targets} EXPORT bivista_disptodepthTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/bivista DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(BIVISTA_TINYXML2_BUNDLED)
  install(FILES ${BIVISTA_TINYXML2_DIR}/tinyxml2.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bivista)
endif()

set(_cfgdir ${CMAKE_INSTALL_LIBDIR}/cmake/bivista_disptodepth)
install(EXPORT bivista_disptodepthTargets NAMESPACE bivista:: DESTINATION ${_cfgdir})
configure_package_config_file(cmake/bivista_disptodepthConfig.cmake.in
  ${PROJECT_BINARY_DIR}/bivista_disptodepthConfig.cmake INSTALL_DESTINATION ${_cfgdir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/bivista_disptodepthConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/bivista_disptodepthConfig.cmake
              ${PROJECT_BINARY_DIR}/bivista_disptodepthConfigVersion.cmake
        DESTINATION ${_cfgdir})

configure_file(cmake/bivista_disptodepth.pc.in ${PROJECT_BINARY_DIR}/bivista_disptodepth.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/bivista_disptodepth.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
