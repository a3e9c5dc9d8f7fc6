# What is declared in platform/ must be in the device's own platform libraries.
if(NOT IS_DIRECTORY "${VEXO_CMI_PLATFORM_DIR}")
  message(FATAL_ERROR "VEXO_CMI_PLATFORM_DIR: there is no folder ${VEXO_CMI_PLATFORM_DIR}")
endif()
foreach(library IN LISTS platform_libraries)
  if(NOT EXISTS "${VEXO_CMI_PLATFORM_DIR}/lib${library}.so")
    message(FATAL_ERROR
      "VEXO_CMI_PLATFORM_DIR: ${VEXO_CMI_PLATFORM_DIR} has no lib${library}.so")
  endif()
endforeach()

# All of them, as what one lacks can be in another that it needs.
file(GLOB libraries "${VEXO_CMI_PLATFORM_DIR}/libkv_*.so")
execute_process(COMMAND ${CMAKE_NM} -D --defined-only --format=posix ${libraries}
  OUTPUT_VARIABLE defined ERROR_VARIABLE error RESULT_VARIABLE result)
if(result)
  message(FATAL_ERROR
    "VEXO_CMI_PLATFORM_DIR: not all libraries in ${VEXO_CMI_PLATFORM_DIR} can be read: ${error}")
endif()
# A name that has a version is followed by it: NAME@@VERSION.
string(REGEX REPLACE "@[^ \n]*" "" defined "\n${defined}")

file(GLOB headers CONFIGURE_DEPENDS platform/kv_*.h)
set(missing)
foreach(header IN LISTS headers)
  file(READ ${header} text)
  string(REGEX REPLACE "//[^\n]*|__attribute__\\(\\([^\n]*\\)\\)" "" text "${text}")
  string(REGEX MATCHALL "[A-Za-z_0-9]+\\(" functions "${text}")
  foreach(function IN LISTS functions)
    string(REPLACE "(" "" function ${function})
    if(NOT defined MATCHES "\n${function} ")
      list(APPEND missing ${function})
    endif()
  endforeach()
endforeach()
if(missing)
  list(JOIN missing ", " missing)
  message(FATAL_ERROR
    "VEXO_CMI_PLATFORM_DIR: the libraries in ${VEXO_CMI_PLATFORM_DIR} lack ${missing}")
endif()
