# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts where. Component `runtime`: what programs need to run; component `development`:
# what building against the libraries needs on top.
include(CMakePackageConfigHelpers)

set(libraries CommonLib ApiGenLib ZamClientLib ZamServiceLib)
set(programs tarvoinstaller)
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/zamclientlib")

# Relative run paths: an installed tree works from wherever it stands. A distribution's package, whose
# libraries stand on the system's path, configures with -DCMAKE_SKIP_INSTALL_RPATH=ON.
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${libraries} EXPORT zamclientlibTargets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS ${programs} RUNTIME COMPONENT runtime)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" TYPE INCLUDE COMPONENT development
        FILES_MATCHING PATTERN "*.h")

install(EXPORT zamclientlibTargets NAMESPACE zamclientlib:: DESTINATION "${package_dir}"
        COMPONENT development)
set(testagent_dir "${CMAKE_INSTALL_LIBEXECDIR}/zamclientlib/testagent")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/zamclientlibConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/zamclientlibConfig.cmake" INSTALL_DESTINATION "${package_dir}"
    PATH_VARS CMAKE_INSTALL_BINDIR testagent_dir)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zamclientlibConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/zamclientlibConfig.cmake"
              "${PROJECT_BINARY_DIR}/zamclientlibConfigVersion.cmake"
        DESTINATION "${package_dir}" COMPONENT development)

file(RELATIVE_PATH pkgconfig_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" pkgconfig_to_prefix "${pkgconfig_to_prefix}")
foreach(package IN ITEMS zamclientlib zamservicelib)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in" "${PROJECT_BINARY_DIR}/${package}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${package}.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endforeach()
