# What `cmake --install` puts where, and the package that lets consumers find it.
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

install(TARGETS SSHSession SSHSessionTerminal EXPORT SSHSessionTargets)
install(FILES ${SSHSESSION_PUBLIC_HEADERS} Platform/Terminal/TerminalPrompts.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/SSHSession)
if(SSHSESSION_HAS_QT)
    set_target_properties(SSHSessionQt PROPERTIES INSTALL_RPATH ${beside})
    install(TARGETS SSHSessionQt EXPORT SSHSessionTargets)
    install(FILES Platform/Qt/QtPlatform.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/SSHSession)
endif()
if(SSHSESSION_BUILD_TOOLS)
    set_target_properties(sshsession PROPERTIES INSTALL_RPATH ${beside}/${from_bin_to_lib})
    install(TARGETS sshsession)
    configure_file(Docs/sshsession.1.in sshsession.1 @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sshsession.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/SSHSession)
install(EXPORT SSHSessionTargets NAMESPACE SSHSession:: DESTINATION ${package_dir})
configure_package_config_file(CMake/SSHSessionConfig.cmake.in SSHSessionConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(SSHSessionConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/SSHSessionConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/SSHSessionConfigVersion.cmake
        DESTINATION ${package_dir})
