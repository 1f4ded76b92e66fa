# Fails when the device build (Android.bp) and this build compile different sources for the
# library. Run as: cmake -DBLUEPRINT=<Android.bp> -DSOURCES=<file listing the sources> -P <this>
file(READ "${BLUEPRINT}" blueprint)
string(FIND "${blueprint}" "name: \"libwakewordservice\"" module)
if(module EQUAL -1)
  message(FATAL_ERROR "${BLUEPRINT} has no libwakewordservice module")
endif()
string(SUBSTRING "${blueprint}" ${module} -1 blueprint)
string(REGEX MATCH "srcs: \\[[^]]*\\]" srcs "${blueprint}")
string(REGEX MATCHALL "\"[^\"]+\"" quoted "${srcs}")
set(device "")
foreach(item IN LISTS quoted)
  string(REPLACE "\"" "" item "${item}")
  list(APPEND device "${item}")
endforeach()
list(SORT device)

file(STRINGS "${SOURCES}" host)
list(SORT host)

if(NOT device STREQUAL host)
  set(only_device "${device}")
  list(REMOVE_ITEM only_device ${host})
  set(only_host "${host}")
  list(REMOVE_ITEM only_host ${device})
  message(FATAL_ERROR "Android.bp and CMakeLists.txt build different library sources.\n"
                      "  only in Android.bp: ${only_device}\n  only in CMakeLists.txt: ${only_host}")
endif()
message(STATUS "Android.bp and CMakeLists.txt build the same library sources")
