# Debian packages, one for each component; scripts/packages makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "VEXO CMI maintainers <maintainers@localhost>")
# Each package has a summary of its own, its description's first line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# dpkg-shlibdeps is to find here what the packages bring themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)

function(describe_package component package section summary)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION ${summary} PARENT_SCOPE)
endfunction()

set(library libvexo-cmi${PROJECT_VERSION_MAJOR})
describe_package(runtime ${library} libs
  "${PROJECT_DESCRIPTION}
The shared library for management agents. It needs the platform libraries
(libkv_*.so) of the device that it runs on, or those of libkv-simulator.")
# A device has its platform libraries without a package, and must not get others unasked.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS libkv-simulator)

describe_package(development libvexo-cmi-dev libdevel
  "${PROJECT_DESCRIPTION}, development files
The header and what find_package and pkg-config need.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS libkv-simulator)

if(VEXO_CMI_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  describe_package(tools vexoctl net
    "command line of the CMI library
Every operation of the library as a command, alarms and counters as they come.")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library} (>= ${PROJECT_VERSION})")
endif()

if(VEXO_CMI_SIMULATED)
  list(APPEND CPACK_COMPONENTS_ALL simulator)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/sim)
  describe_package(simulator libkv-simulator libdevel
    "simulated device for hosts of the CMI library
Stands in for the platform libraries, under their names. Not for a device.")
endif()

include(CPack)
