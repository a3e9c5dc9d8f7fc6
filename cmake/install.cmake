# What is installed, in six components: runtime, development, tools, trace, simulator and,
# from python/, python.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vexo_cmi)
# No folder that the loader searches by itself: a device's own libraries have the same names.
set(simulator_dir ${CMAKE_INSTALL_LIBDIR}/libkv-simulator)
set(program_dir ${CMAKE_INSTALL_LIBEXECDIR}/vexo_cmi)
file(RELATIVE_PATH prefix_from_pc
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

function(install_pkgconfig name component)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()

install(TARGETS vexo_cmi LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)

install(DIRECTORY include/ TYPE INCLUDE COMPONENT development)
install(DIRECTORY examples TYPE DOC COMPONENT development PATTERN __pycache__ EXCLUDE)
configure_package_config_file(cmake/vexo_cmi-config.cmake.in vexo_cmi-config.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR simulator_dir)
write_basic_package_version_file(vexo_cmi-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/vexo_cmi-config.cmake
  ${PROJECT_BINARY_DIR}/vexo_cmi-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)
install_pkgconfig(vexo_cmi development)
install(FILES packaging/man/vexo_cmi.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

if(VEXO_CMI_TOOLS)
  foreach(target program_dir simulator_dir)
    file(RELATIVE_PATH ${target}_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${${target}})
  endforeach()
  configure_file(tools/vexoctl/start.in start @ONLY)
  install(PROGRAMS ${PROJECT_BINARY_DIR}/start TYPE BIN RENAME vexoctl COMPONENT tools)
  install(TARGETS vexoctl RUNTIME DESTINATION ${program_dir} COMPONENT tools)
  # The loader finds by itself what is in /usr.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH lib_from_program
      ${CMAKE_INSTALL_PREFIX}/${program_dir} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(vexoctl PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_program}")
  endif()
  install(FILES packaging/man/vexoctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES packaging/bash-completion/vexoctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)

  install(TARGETS vexo_replay vexo_trace LIBRARY COMPONENT trace)
  install(TARGETS vexotrace RUNTIME COMPONENT trace)
  install(FILES packaging/man/vexotrace.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT trace)
  install(FILES packaging/bash-completion/vexotrace
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT trace)
endif()

if(VEXO_CMI_SIMULATED)
  install(TARGETS kv_sim ${platform_libraries}
    LIBRARY DESTINATION ${simulator_dir} COMPONENT simulator)
  set_target_properties(${platform_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(FILES sim/kv_sim.h TYPE INCLUDE COMPONENT simulator)
  install_pkgconfig(vexo_cmi-simulator simulator)
  # It is of no use without the simulated device, and has to be of the same version.
  if(VEXO_CMI_TOOLS)
    install(TARGETS vexotrace-sweep RUNTIME DESTINATION ${simulator_dir} COMPONENT simulator)
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
      set_target_properties(vexotrace-sweep PROPERTIES INSTALL_RPATH "$ORIGIN/..")
    endif()
  endif()
endif()
