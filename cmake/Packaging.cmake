# cmake --install, find_package(MiscSnmp) and pkg-config.
include(CMakePackageConfigHelpers)

set(MISCSNMP_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/miscsnmp")
set(MISCSNMP_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/MiscSnmp")

# Model and table for those who link them: what the plug-in has of them, under their full names.
add_library(miscsnmptable STATIC $<TARGET_OBJECTS:MiscSnmp> $<TARGET_OBJECTS:NorvekGeneralMIB>)
set_target_properties(miscsnmptable PROPERTIES LINKER_LANGUAGE CXX EXPORT_NAME tableArchive)
set_target_properties(qelplatform PROPERTIES EXPORT_NAME platform)
set_target_properties(MiscSnmpPlugin PROPERTIES EXPORT_NAME plugin)
# What the headers are written in, for those who build against them.
target_compile_features(qelplatform INTERFACE cxx_std_20)

install(TARGETS qelplatform EXPORT MiscSnmpPlatform
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${MISCSNMP_INCLUDE_DIR}")
# In a folder of its own: nobody links with the plug-in, the agent loads it from there by default.
set(MISCSNMP_PLUGIN_DIR "${CMAKE_INSTALL_LIBDIR}/norvek-snmpd")
install(TARGETS MiscSnmpPlugin EXPORT MiscSnmpPlugin
        LIBRARY DESTINATION "${MISCSNMP_PLUGIN_DIR}")
install(TARGETS miscsnmptable EXPORT MiscSnmpTable
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(TARGETS kavra RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(TARGET norvek-reset-cause)
  install(TARGETS norvek-reset-cause RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()
foreach(room IN ITEMS platform/Qel platform/System platform/Redundancy platform/Cell platform/Kavra
                      platform/Snmp MiscSnmp)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${room}"
          DESTINATION "${MISCSNMP_INCLUDE_DIR}" FILES_MATCHING PATTERN "*.h"
          # What a library of others shows through, and what only the rooms themselves include.
          PATTERN "NetSnmp.h" EXCLUDE PATTERN "Reader.h" EXCLUDE)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/NorvekGeneralMIB/NorvekGeneralMIB.h"
        DESTINATION "${MISCSNMP_INCLUDE_DIR}/NorvekGeneralMIB")
install(FILES "${PROJECT_SOURCE_DIR}/mibs/NorvekGeneralMIB.txt"
              "${PROJECT_SOURCE_DIR}/mibs/NorvekNotificationMIB.txt"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/snmp/mibs")
# What the documents link to lies beside them as in the sources.
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/LICENSE"
              "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES "${PROJECT_SOURCE_DIR}/mibs/NorvekGeneralMIB.txt"
              "${PROJECT_SOURCE_DIR}/mibs/NorvekNotificationMIB.txt"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}/mibs")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" DESTINATION "${CMAKE_INSTALL_DOCDIR}"
        FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png" PATTERN "*.json"
        PATTERN "man" EXCLUDE)

foreach(section IN ITEMS 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.${section}")
  install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()
# One file under the names of all programs, as bash looks for it.
install(FILES "${PROJECT_SOURCE_DIR}/packaging/bash-completion/kavra"
              "${PROJECT_SOURCE_DIR}/packaging/bash-completion/norvek-snmpd"
              "${PROJECT_SOURCE_DIR}/packaging/bash-completion/norvek-reset-cause"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")

foreach(set IN ITEMS MiscSnmpPlatform MiscSnmpPlugin MiscSnmpTable)
  install(EXPORT ${set} NAMESPACE MiscSnmp:: DESTINATION "${MISCSNMP_CMAKE_DIR}")
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

# Relative to where the files are, so that an installed tree may be moved.
file(RELATIVE_PATH MISCSNMP_PREFIX_FROM_LIBDIR "/${CMAKE_INSTALL_LIBDIR}" "/")
foreach(name IN ITEMS qelplatform miscsnmp miscsnmptable)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc"
                 @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endforeach()
