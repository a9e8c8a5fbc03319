# cmake --install and find_package(MiscSnmp).
include(CMakePackageConfigHelpers)

set(MISCSNMP_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/miscsnmp")
set(MISCSNMP_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/MiscSnmp")

install(TARGETS qelplatform EXPORT MiscSnmpTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${MISCSNMP_INCLUDE_DIR}")
# In a folder of its own: nobody links with the plug-in, the agent loads it from there by default.
set(MISCSNMP_PLUGIN_DIR "${CMAKE_INSTALL_LIBDIR}/norvek-snmpd")
install(TARGETS MiscSnmpPlugin EXPORT MiscSnmpPluginTargets
        LIBRARY DESTINATION "${MISCSNMP_PLUGIN_DIR}")
install(TARGETS kavra RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
foreach(room IN ITEMS Qel System Redundancy Cell Kavra Snmp)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform/${room}"
          DESTINATION "${MISCSNMP_INCLUDE_DIR}" FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/mibs/NorvekGeneralMIB.txt"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/snmp/mibs")
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/LICENSE"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}")

foreach(targets IN ITEMS MiscSnmpTargets MiscSnmpPluginTargets)
  install(EXPORT ${targets} NAMESPACE MiscSnmp:: DESTINATION "${MISCSNMP_CMAKE_DIR}")
endforeach()
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/MiscSnmpConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/MiscSnmpConfig.cmake"
                              INSTALL_DESTINATION "${MISCSNMP_CMAKE_DIR}"
                              PATH_VARS MISCSNMP_PLUGIN_DIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/MiscSnmpConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/MiscSnmpConfig.cmake"
              "${PROJECT_BINARY_DIR}/MiscSnmpConfigVersion.cmake"
        DESTINATION "${MISCSNMP_CMAKE_DIR}")
