# Installs the libraries, their headers, a CMake package (find_package(VLMSDKPMSKit) giving VLMSDK::*
# imported targets that bring their dependencies) and a pkg-config file; and the Testing component
# (find_package(VLMSDKPMSKit COMPONENTS Testing): VLMSDK::VLMSDKPMSKitTesting, vlmsdk-pmskit-testing.pc).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VLMSDK_INSTALL_TARGETS VLMErrors VLMMeta VLMSDKCoreKit VLMSDKPaymentKit VLMSDKPMSKit)
# As shared libraries (-DBUILD_SHARED_LIBS=ON): libVLMSDKPMSKit.so.1 -> .so.1.0.0, the SONAME from the major
# version, which changes only with the ABI.
set_target_properties(${VLMSDK_INSTALL_TARGETS} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
install(TARGETS ${VLMSDK_INSTALL_TARGETS} EXPORT VLMSDKPMSKitTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Headers: the core interface, the host-only core headers, and the kit's public headers (plus the
# exported key tables, which live beside the private units).
install(DIRECTORY core-interface/ core/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY kit/VLMSDKPMSKit/Public DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VLMSDKPMSKit FILES_MATCHING PATTERN "*.h")
install(FILES kit/VLMSDKPMSKit/VLMSDKPMSKit.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VLMSDKPMSKit)
install(FILES kit/VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VLMSDKPMSKit/Private/API)

set(VLMSDK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VLMSDKPMSKit)
install(EXPORT VLMSDKPMSKitTargets NAMESPACE VLMSDK:: DESTINATION ${VLMSDK_CMAKE_DIR})
configure_package_config_file(cmake/VLMSDKPMSKitConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VLMSDKPMSKitConfig.cmake INSTALL_DESTINATION ${VLMSDK_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VLMSDKPMSKitConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VLMSDKPMSKitConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/VLMSDKPMSKitConfigVersion.cmake DESTINATION ${VLMSDK_CMAKE_DIR})

# The .pc file finds its prefix from where it is installed, so any --prefix works.
file(RELATIVE_PATH VLMSDK_PC_RELATIVE_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" VLMSDK_PC_RELATIVE_PREFIX "${VLMSDK_PC_RELATIVE_PREFIX}")
configure_file(cmake/vlmsdk-pmskit.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vlmsdk-pmskit.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vlmsdk-pmskit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Testing component: the testing library in an export set of its own, so that the package finds it only
# when it is asked for (and installed).
if(TARGET VLMSDKPMSKitTesting)
  set_target_properties(VLMSDKPMSKitTesting PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS VLMSDKPMSKitTesting EXPORT VLMSDKPMSKitTestingTargets COMPONENT Testing
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY testing/VLMSDKPMSKitTesting DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Testing
    FILES_MATCHING PATTERN "*.h" PATTERN Private EXCLUDE)
  install(EXPORT VLMSDKPMSKitTestingTargets NAMESPACE VLMSDK:: DESTINATION ${VLMSDK_CMAKE_DIR} COMPONENT Testing)
  configure_file(cmake/vlmsdk-pmskit-testing.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vlmsdk-pmskit-testing.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vlmsdk-pmskit-testing.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT Testing)
endif()
