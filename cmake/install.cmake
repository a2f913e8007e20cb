# What `cmake --install` puts in place: header, library, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

set(zulstats_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zulstats)

install(FILES include/zulstats.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zulstats EXPORT zulstatsTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT zulstatsTargets NAMESPACE zulstats:: DESTINATION ${zulstats_package_dir})

configure_package_config_file(cmake/zulstatsConfig.cmake.in ${PROJECT_BINARY_DIR}/zulstatsConfig.cmake
    INSTALL_DESTINATION ${zulstats_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zulstatsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zulstatsConfig.cmake ${PROJECT_BINARY_DIR}/zulstatsConfigVersion.cmake
    DESTINATION ${zulstats_package_dir})

# Directories below the prefix move with the package; absolute ones stay as they are.
cmake_path(APPEND pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(cmake/zulstats.pc.in ${PROJECT_BINARY_DIR}/zulstats.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zulstats.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
