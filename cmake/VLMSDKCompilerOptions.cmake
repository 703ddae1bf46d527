# Warning flags and sanitizers shared by every target of the project.
#
# Warnings are errors only where the scripts and CI ask for it (-DCMAKE_COMPILE_WARNING_AS_ERROR=ON): a
# packager's plain build, or a newer compiler with new warnings, still builds.

add_library(vlmsdk_warnings INTERFACE)
target_compile_options(vlmsdk_warnings INTERFACE -Wall -Wextra -Wpedantic)
# g++ 12 reports moves of std::optional<std::string> as maybe-uninitialized once optimising or
# instrumenting (false positives in the standard library's own code). Its definite -Wuninitialized stays
# on, and clang's analysis is unaffected.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(vlmsdk_warnings INTERFACE -Wno-maybe-uninitialized)
  # A unity build (-DCMAKE_UNITY_BUILD=ON, as the test scripts configure the sanitizer and arm64 builds) compiles
  # each source as an included file, where g++ takes a type of the file's own anonymous namespace for one in a
  # header: the warning it then gives cannot apply.
  if(CMAKE_UNITY_BUILD)
    target_compile_options(vlmsdk_warnings INTERFACE -Wno-subobject-linkage)
  endif()
endif()

if(VLMSDK_SANITIZE)
  set(_vlmsdk_san_flags -fsanitize=${VLMSDK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${_vlmsdk_san_flags})
  add_link_options(-fsanitize=${VLMSDK_SANITIZE})
endif()

# vlmsdk_apply_warnings(<target>...): private warning flags for the project's own targets.
function(vlmsdk_apply_warnings)
  foreach(t IN LISTS ARGN)
    target_link_libraries(${t} PRIVATE $<BUILD_INTERFACE:vlmsdk_warnings>)
  endforeach()
endfunction()

# vlmsdk_shipped_library(<target>...): a library hosts link. Each function and object in a section of its
# own, so that a host's release link (--gc-sections, -dead_strip) keeps only what it calls; hidden visibility,
# so that a shared build exports the public headers' declarations only (VLMSDKCoreKit/VLMSDKExport.h).
function(vlmsdk_shipped_library)
  foreach(t IN LISTS ARGN)
    target_compile_options(${t} PRIVATE -ffunction-sections -fdata-sections)
    set_target_properties(${t} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    if(VLMSDK_EXPORT_INTERNALS)
      target_compile_definitions(${t} PRIVATE VLMSDK_EXPORT_INTERNALS)
    endif()
  endforeach()
endfunction()
