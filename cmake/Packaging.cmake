# cmake --install and find_package(MiscSnmp).
include(CMakePackageConfigHelpers)

set(MISCSNMP_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/miscsnmp")
set(MISCSNMP_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/MiscSnmp")

# The plug-in lies beside the program that loads it by default, as in the build tree's lib/.
install(TARGETS qelplatform MiscSnmpPlugin EXPORT MiscSnmpTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${MISCSNMP_INCLUDE_DIR}")
install(TARGETS kavra RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
foreach(room IN ITEMS Qel System Redundancy Cell Kavra Snmp)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform/${room}"
          DESTINATION "${MISCSNMP_INCLUDE_DIR}" FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/mibs/NorvekGeneralMIB.txt"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/snmp/mibs")
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/LICENSE"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}")

foreach(section IN ITEMS 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.${section}")
  install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()
# One file under the names of both programs, as bash looks for it.
install(FILES "${PROJECT_SOURCE_DIR}/packaging/bash-completion/kavra"
              "${PROJECT_SOURCE_DIR}/packaging/bash-completion/norvek-snmpd"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")

install(EXPORT MiscSnmpTargets NAMESPACE MiscSnmp:: DESTINATION "${MISCSNMP_CMAKE_DIR}")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/MiscSnmpConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/MiscSnmpConfig.cmake"
                              INSTALL_DESTINATION "${MISCSNMP_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/MiscSnmpConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/MiscSnmpConfig.cmake"
              "${PROJECT_BINARY_DIR}/MiscSnmpConfigVersion.cmake"
        DESTINATION "${MISCSNMP_CMAKE_DIR}")
