# The module logs through the platform's Android log library and never defines
# __android_log_print itself. On a device (Android NDK) that is the platform's
# liblog; on Debian hosts it is Android's own liblog as Debian packages it, with the
# header under /usr/include/android and the library in the multiarch android/ folder.
if(ANDROID)
  find_library(CALMODULE_LOG_LIBRARY log REQUIRED)
  set(CALMODULE_LOG_INCLUDE_DIR "")
else()
  find_path(CALMODULE_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android REQUIRED)
  find_library(CALMODULE_LOG_LIBRARY NAMES log PATH_SUFFIXES android REQUIRED)
endif()
add_library(calmodule::log UNKNOWN IMPORTED)
set_target_properties(calmodule::log PROPERTIES IMPORTED_LOCATION "${CALMODULE_LOG_LIBRARY}")
if(CALMODULE_LOG_INCLUDE_DIR)
  set_target_properties(calmodule::log PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${CALMODULE_LOG_INCLUDE_DIR}")
endif()
# Debian's liblog lives outside the loader's default folders: record where it is.
get_filename_component(CALMODULE_LOG_DIR "${CALMODULE_LOG_LIBRARY}" DIRECTORY)
if(NOT ANDROID)
  set(CMAKE_BUILD_RPATH "${CALMODULE_LOG_DIR}")
  set(CMAKE_INSTALL_RPATH "${CALMODULE_LOG_DIR}")
endif()
message(STATUS "Android log: ${CALMODULE_LOG_LIBRARY}")
