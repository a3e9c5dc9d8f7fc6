# What is installed, in four components: runtime, development, tools, simulator.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vexo_cmi)
file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH prefix_from_pc
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

function(install_pkgconfig name component)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()

install(TARGETS vexo_cmi LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)

install(DIRECTORY include/ TYPE INCLUDE COMPONENT development)
install(DIRECTORY examples TYPE DOC COMPONENT development)
configure_package_config_file(cmake/vexo_cmi-config.cmake.in vexo_cmi-config.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(vexo_cmi-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/vexo_cmi-config.cmake
  ${PROJECT_BINARY_DIR}/vexo_cmi-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)
install_pkgconfig(vexo_cmi development)
install(FILES packaging/man/vexo_cmi.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

if(VEXO_CMI_TOOLS)
  install(TARGETS vexoctl RUNTIME COMPONENT tools)
  set_target_properties(vexoctl PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  install(FILES packaging/man/vexoctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES packaging/bash-completion/vexoctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

if(VEXO_CMI_SIMULATED)
  install(TARGETS kv_sim ${platform_libraries} LIBRARY COMPONENT simulator)
  install(FILES sim/kv_sim.h TYPE INCLUDE COMPONENT simulator)
  install_pkgconfig(vexo_cmi-simulator simulator)
  # They find each other. LD_LIBRARY_PATH still puts other platform libraries in front.
  set_target_properties(vexo_cmi ${platform_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
