# Parts that are built where their libraries are found.

# Sets `out` to the packages, of those named last, that find_package or pkg_check_modules has not found, and says that
# `part` is not built without them: an error unless `choice` is AUTO. `debian` names what to install.
function(zulstats_find_missing out part choice debian)
    set(missing "")
    foreach(package ${ARGN})
        if(NOT ${package}_FOUND)
            list(APPEND missing ${package})
        endif()
    endforeach()
    set(${out} "${missing}" PARENT_SCOPE)
    if(missing)
        set(severity FATAL_ERROR)
        if(choice STREQUAL AUTO)
            set(severity STATUS)
        endif()
        list(JOIN missing ", " missing)
        message(${severity} "${part} is not built: CMake does not find ${missing} (Debian: ${debian})")
    endif()
endfunction()

# Switches these warnings off in the directory, for g++ 12: it takes std::string's operator+ and insert for an overlapping
# copy, or for one out of bounds, where it inlines enough.
function(zulstats_without_warnings)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        foreach(warning ${ARGN})
            add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-${warning}>)
        endforeach()
    endif()
endfunction()

# Installs a unit of the folder systemd, which names the program where it is put.
function(zulstats_install_unit unit program)
    cmake_path(APPEND place "\${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_BINDIR}" ${program})
    install(CODE "
        file(READ \"${CMAKE_CURRENT_SOURCE_DIR}/systemd/${unit}\" text)
        string(REPLACE \"/usr/bin/${program} \" \"${place} \" text \"\${text}\")
        set(unit \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system/${unit}\")
        message(STATUS \"Installing: \$ENV{DESTDIR}\${unit}\")
        file(WRITE \"\$ENV{DESTDIR}\${unit}\" \"\${text}\")
        file(CHMOD \"\$ENV{DESTDIR}\${unit}\" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${unit}\")")
endfunction()
