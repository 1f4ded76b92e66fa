# Android platform libraries as Debian packages them: headers under /usr/include/android, shared
# libraries under /usr/lib/<multiarch>/android, without pkg-config or CMake package files.

set(ANDROID_HOST_INCLUDE_DIR /usr/include/android)
set(ANDROID_HOST_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

foreach(lib utils log cutils base nativehelper)
  find_library(ANDROID_${lib}_LIBRARY NAMES ${lib} PATHS ${ANDROID_HOST_LIB_DIR} NO_DEFAULT_PATH)
  if(NOT ANDROID_${lib}_LIBRARY)
    message(FATAL_ERROR "lib${lib} not found in ${ANDROID_HOST_LIB_DIR}: run scripts/setup.sh")
  endif()
  add_library(android::${lib} SHARED IMPORTED)
  set_target_properties(android::${lib} PROPERTIES IMPORTED_LOCATION ${ANDROID_${lib}_LIBRARY})
  # -isystem: the headers' own pragmas and warnings must not trip -Werror in our code.
  target_include_directories(android::${lib} SYSTEM INTERFACE ${ANDROID_HOST_INCLUDE_DIR})
endforeach()

# libnativehelper ships its own jni.h, which must be found before any JDK copy.
target_include_directories(android::nativehelper SYSTEM BEFORE INTERFACE
                           ${ANDROID_HOST_INCLUDE_DIR}/nativehelper)

# libutils needs liblog; atrace lives in libcutils.
set_property(TARGET android::utils APPEND PROPERTY INTERFACE_LINK_LIBRARIES android::log android::cutils)

list(APPEND CMAKE_BUILD_RPATH ${ANDROID_HOST_LIB_DIR})
list(APPEND CMAKE_INSTALL_RPATH ${ANDROID_HOST_LIB_DIR})
