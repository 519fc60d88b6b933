include(CMakePackageConfigHelpers)

set(_install_targets bivista_disptodepth)
if(NOT ANDROID)
  list(APPEND _install_targets bivista_platform)
  # The host companion is installed beside the library: found from any prefix.
  set_target_properties(bivista_disptodepth PROPERTIES INSTALL_RPATH "$ORIGIN")
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

# Relocatable: the prefix is found from the .pc file's own place.
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(BIVISTA_PC_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(BIVISTA_PC_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(BIVISTA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH _up "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
  string(REGEX REPLACE "/$" "" _up "${_up}")
  set(BIVISTA_PC_PREFIX "\${pcfiledir}/${_up}")
endif()
configure_file(cmake/bivista_disptodepth.pc.in ${PROJECT_BINARY_DIR}/bivista_disptodepth.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/bivista_disptodepth.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
