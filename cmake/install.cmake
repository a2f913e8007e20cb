# What `cmake --install` puts in place: header, library, a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

# The pkg-config file and the CMake package lead from where they stand to the prefix, and so hold for any prefix of
# `cmake --install` and move with the tree. They stand beside the library, unless that has a directory outside of the prefix.
set(zulstats_guide_dir ${CMAKE_INSTALL_LIBDIR})
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX "${CMAKE_INSTALL_LIBDIR}" NORMALIZE inside)
    if(inside)
        cmake_path(RELATIVE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}"
            OUTPUT_VARIABLE zulstats_guide_dir)
    else()
        set(zulstats_guide_dir lib)
    endif()
endif()
set(zulstats_package_dir ${zulstats_guide_dir}/cmake/zulstats)

install(FILES include/zulstats.h include/zulstats.hpp include/zulstats_codes.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zulstats zulstats_cxx EXPORT zulstatsTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT zulstatsTargets NAMESPACE zulstats:: DESTINATION ${zulstats_package_dir})

configure_package_config_file(cmake/zulstatsConfig.cmake.in ${PROJECT_BINARY_DIR}/zulstatsConfig.cmake
    INSTALL_DESTINATION ${zulstats_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zulstatsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zulstatsConfig.cmake ${PROJECT_BINARY_DIR}/zulstatsConfigVersion.cmake
    DESTINATION ${zulstats_package_dir})

# Directories below the prefix move with the package; absolute ones stay as they are. What is installed for the system stays
# too, and pkg-config leaves out the directories that compilers look into by themselves.
set(pc_prefix /usr)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL pc_prefix)
    set(pc_prefix /prefix)
    cmake_path(RELATIVE_PATH pc_prefix BASE_DIRECTORY /prefix/${zulstats_guide_dir}/pkgconfig)
    string(PREPEND pc_prefix "\${pcfiledir}/")
endif()
cmake_path(APPEND pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(cmake/zulstats.pc.in ${PROJECT_BINARY_DIR}/zulstats.pc @ONLY)
configure_file(cmake/zulstats-cxx.pc.in ${PROJECT_BINARY_DIR}/zulstats-cxx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zulstats.pc ${PROJECT_BINARY_DIR}/zulstats-cxx.pc DESTINATION ${zulstats_guide_dir}/pkgconfig)
