# How the project's libraries are built: shared, unless BUILD_SHARED_LIBS, which is a surrounding
# project's as well, says otherwise.
if(PROJECT_IS_TOP_LEVEL)
    option(BUILD_SHARED_LIBS "Build shared libraries, not static ones" ON)
endif()
set(SSHSESSION_LIBRARY_TYPE SHARED)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
    set(SSHSESSION_LIBRARY_TYPE STATIC)
endif()

# A library whose consumers know it as SSHSession::<alias>.
function(sshsession_add_library target alias)
    add_library(${target} ${SSHSESSION_LIBRARY_TYPE} ${ARGN})
    add_library(SSHSession::${alias} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${alias} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(SSHSESSION_LIBRARY_TYPE STREQUAL SHARED)
        sshsession_export_only(${target} ${PROJECT_SOURCE_DIR}/CMake/Exports.map)
    endif()
endfunction()
