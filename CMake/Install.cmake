# What `cmake --install` puts where, and the packages that let consumers find it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
target_include_directories(SSHSession INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# What is installed finds its libraries beside itself, so that any prefix will do and can be moved.
if(APPLE)
    set(beside @loader_path)
else()
    set(beside $ORIGIN)
endif()
file(RELATIVE_PATH from_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(SSHSessionTerminal PROPERTIES INSTALL_RPATH ${beside})
if(SSHSESSION_HAS_QT)
    set_target_properties(SSHSessionQt PROPERTIES INSTALL_RPATH ${beside})
endif()
if(SSHSESSION_BUILD_TOOLS)
    set_target_properties(sshsession PROPERTIES INSTALL_RPATH ${beside}/${from_bin_to_lib})
    configure_file(Docs/sshsession.1.in sshsession.1 @ONLY)
endif()

# Each function below lays files out once: for libraries in `libdir`, and as components whose names begin
# with `part`. Further arguments go to every install(). So the same can be laid out for a system's own
# packages, which want it elsewhere.
function(sshsession_install_library target libdir part)
    install(TARGETS ${target} EXPORT ${part}${target}
            LIBRARY DESTINATION ${libdir} COMPONENT ${part}Runtime
                NAMELINK_COMPONENT ${part}Development ${ARGN}
            ARCHIVE DESTINATION ${libdir} COMPONENT ${part}Development ${ARGN})
    if(target STREQUAL SSHSession)
        set(file SSHSessionTargets.cmake)
    else()
        set(file ${target}Targets.cmake)
    endif()
    install(EXPORT ${part}${target} NAMESPACE SSHSession:: FILE ${file}
            DESTINATION ${libdir}/cmake/SSHSession COMPONENT ${part}Development ${ARGN})
endfunction()

function(sshsession_install_headers part)
    cmake_parse_arguments(PARSE_ARGV 1 arg "EXCLUDE_FROM_ALL" "" "HEADERS")
    if(arg_EXCLUDE_FROM_ALL)
        set(exclude EXCLUDE_FROM_ALL)
    endif()
    install(FILES ${arg_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/SSHSession
            COMPONENT ${part}Development ${exclude})
endfunction()

# What pkg-config tells of a library; the lists are in its own syntax.
function(sshsession_install_pc name description libdir part requires requires_private libs_private)
    cmake_path(ABSOLUTE_PATH libdir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE full_libdir)
    file(RELATIVE_PATH to_prefix ${full_libdir}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    file(RELATIVE_PATH from_prefix_to_lib ${CMAKE_INSTALL_PREFIX} ${full_libdir})
    file(RELATIVE_PATH from_prefix_to_include ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
    string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
    set(file ${CMAKE_CURRENT_BINARY_DIR}/Installed${part}/${name}.pc)
    configure_file(CMake/SSHSession.pc.in ${file} @ONLY)
    install(FILES ${file} DESTINATION ${libdir}/pkgconfig COMPONENT ${part}Development ${ARGN})
endfunction()

function(sshsession_install_core libdir part)
    foreach(target SSHSession SSHSessionTerminal)
        sshsession_install_library(${target} ${libdir} "${part}" ${ARGN})
    endforeach()
    sshsession_install_headers("${part}" ${ARGN}
        HEADERS ${SSHSESSION_PUBLIC_HEADERS} Platform/Terminal/TerminalPrompts.h)

    set(package_dir ${libdir}/cmake/SSHSession)
    set(files ${CMAKE_CURRENT_BINARY_DIR}/Installed${part})
    configure_package_config_file(CMake/SSHSessionConfig.cmake.in ${files}/SSHSessionConfig.cmake
                                  INSTALL_DESTINATION ${package_dir})
    write_basic_package_version_file(${files}/SSHSessionConfigVersion.cmake
                                     COMPATIBILITY SameMajorVersion)
    install(FILES ${files}/SSHSessionConfig.cmake ${files}/SSHSessionConfigVersion.cmake
            DESTINATION ${package_dir} COMPONENT ${part}Development ${ARGN})

    set(requires_private "")
    set(libs_private "")
    if(SSHSESSION_LIBRARY_TYPE STREQUAL STATIC AND SSHSESSION_LIBSSH2_IS_STATIC)
        install(FILES ${SSHSESSION_LIBSSH2_ARCHIVE} RENAME libSSHSessionLibSSH2.a
                DESTINATION ${libdir}/SSHSession COMPONENT ${part}Development ${ARGN})
        set(requires_private "fmt libcrypto zlib")
        set(libs_private "-L\${libdir}/SSHSession -lSSHSessionLibSSH2 -pthread")
    elseif(SSHSESSION_LIBRARY_TYPE STREQUAL STATIC)
        set(requires_private "libssh2 fmt")
        set(libs_private -pthread)
    endif()
    sshsession_install_pc(SSHSession "${PROJECT_DESCRIPTION}" ${libdir} "${part}"
                          "" "${requires_private}" "${libs_private}" ${ARGN})
    sshsession_install_pc(SSHSessionTerminal "Prompts of SSHSession on a terminal" ${libdir} "${part}"
                          "SSHSession = ${PROJECT_VERSION}" "" "" ${ARGN})
endfunction()

function(sshsession_install_qt libdir part)
    sshsession_install_library(SSHSessionQt ${libdir} "${part}Qt" ${ARGN})
    sshsession_install_headers("${part}Qt" ${ARGN} HEADERS Platform/Qt/QtPlatform.h)
    set(requires_private "")
    if(SSHSESSION_LIBRARY_TYPE STREQUAL STATIC)
        set(requires_private "Qt6Widgets Qt6UiTools")
    endif()
    sshsession_install_pc(SSHSessionQt "Prompts of SSHSession for Qt applications" ${libdir} "${part}Qt"
                          "SSHSession = ${PROJECT_VERSION}" "${requires_private}" "" ${ARGN})
endfunction()

function(sshsession_install_program part zsh_dir)
    install(TARGETS sshsession RUNTIME COMPONENT ${part}Program ${ARGN})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sshsession.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${part}Program ${ARGN})
    if(NOT TARGET sshsession-completions)
        return()
    endif()
    foreach(place bash-completion/completions/sshsession fish/vendor_completions.d/sshsession.fish
                  zsh/${zsh_dir}/_sshsession)
        cmake_path(GET place PARENT_PATH directory)
        cmake_path(GET place FILENAME file)
        install(FILES ${PROJECT_BINARY_DIR}/Completions/${file}
                DESTINATION ${CMAKE_INSTALL_DATADIR}/${directory} COMPONENT ${part}Program ${ARGN})
    endforeach()
endfunction()

function(sshsession_install_documents directory component)
    file(GLOB documents CONFIGURE_DEPENDS Docs/*.md Docs/*.png Docs/*.svg Docs/*.schema.json)
    install(FILES README.md LICENSE CHANGELOG.md THIRD-PARTY-NOTICES.md ${documents}
            DESTINATION ${directory} COMPONENT ${component} ${ARGN})
endfunction()

sshsession_install_core(${CMAKE_INSTALL_LIBDIR} "")
if(SSHSESSION_HAS_QT)
    sshsession_install_qt(${CMAKE_INSTALL_LIBDIR} "")
endif()
if(SSHSESSION_BUILD_TOOLS)
    sshsession_install_program("" site-functions)
endif()
set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/SSHSession) # not among a surrounding project's own
if(PROJECT_IS_TOP_LEVEL)
    set(documents ${CMAKE_INSTALL_DOCDIR})
endif()
sshsession_install_documents(${documents} Documentation)
