# simdjson for the arm64 cross build: the architecture-independent header (in /usr/include, which the cross
# compiler searches) with the arm64 runtime library.
find_library(VLMSDK_SIMDJSON_ARM64 NAMES libsimdjson.so.14 simdjson
  PATHS /usr/lib/aarch64-linux-gnu NO_DEFAULT_PATH REQUIRED)
if(NOT TARGET simdjson::simdjson)
  add_library(simdjson::simdjson SHARED IMPORTED)
  set_target_properties(simdjson::simdjson PROPERTIES
    IMPORTED_LOCATION "${VLMSDK_SIMDJSON_ARM64}"
    INTERFACE_COMPILE_DEFINITIONS SIMDJSON_THREADS_ENABLED=1
    INTERFACE_LINK_LIBRARIES Threads::Threads)
endif()
set(simdjson_FOUND TRUE)
