# `cpack -G DEB` in the build directory makes Debian packages of what was built: everything is laid out a
# second time as it stands below /usr, and finish.cmake does the rest. Packaging/check tries them.
set(libdir lib/${CMAKE_LIBRARY_ARCHITECTURE})
file(STRINGS Packaging/changelog debian_version LIMIT_COUNT 1)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS Packaging/changelog)
string(REGEX REPLACE ".*[(](.*)[)].*" "\\1" debian_version "${debian_version}")
string(REGEX REPLACE "-[^-]*$" "" CPACK_PACKAGE_VERSION ${debian_version})
string(REGEX REPLACE ".*-" "" CPACK_DEBIAN_PACKAGE_RELEASE ${debian_version})

sshsession_install_core(${libdir} Debian EXCLUDE_FROM_ALL)
sshsession_install_documents(share/doc/libsshsession-dev DebianDevelopment EXCLUDE_FROM_ALL)

set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "the SSHSession authors <authors@sshsession.invalid>")
macro(debian_package part package section summary)
    string(TOUPPER ${part} PART)
    list(APPEND CPACK_COMPONENTS_ALL ${part})
    set(CPACK_DEBIAN_${PART}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${PART}_PACKAGE_SECTION ${section})
    set(CPACK_COMPONENT_${PART}_DESCRIPTION "${summary}\n${ARGN}")
    set(overrides ${CMAKE_CURRENT_SOURCE_DIR}/Packaging/lintian/${package})
    if(EXISTS ${overrides})
        install(FILES ${overrides} DESTINATION share/lintian/overrides COMPONENT ${part} EXCLUDE_FROM_ALL)
    endif()
endmacro()
macro(debian_libraries part package summary)
    debian_package(${part} ${package} libs "${summary}" ${ARGN})
    set(CPACK_DEBIAN_${PART}_PACKAGE_SHLIBDEPS ON)
    set(control ${CMAKE_CURRENT_BINARY_DIR}/Packaging/${package})
    configure_file(Packaging/${package}.symbols ${control}/symbols COPYONLY)
    file(STRINGS Packaging/${package}.symbols sonames REGEX "^lib")
    list(TRANSFORM sonames REPLACE "^(lib.*)[.]so[.]([0-9]+) .*" "\\1 \\2 ${package} (>= ${CPACK_PACKAGE_VERSION})")
    list(JOIN sonames "\n" sonames)
    file(WRITE ${control}/shlibs "${sonames}\n")
    file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_${PART}_PACKAGE_CONTROL_EXTRA ${control}/symbols ${control}/shlibs ${control}/triggers)
endmacro()

set(what "SSHSession connects to servers over SSH, checks their host keys, logs in
with keys, agents and passwords, and runs commands there, also as root
through sudo, for applications with a user who can be asked.")
debian_libraries(DebianRuntime libsshsession1 "SSH sessions for desktop applications" "${what}")
debian_package(DebianDevelopment libsshsession-dev libdevel
    "SSH sessions for desktop applications - development" "${what}\n\nThese are its headers and documents.")
set(CPACK_DEBIAN_DEBIANDEVELOPMENT_PACKAGE_DEPENDS "libsshsession1 (= ${debian_version})")
if(SSHSESSION_HAS_QT)
    sshsession_install_qt(${libdir} Debian EXCLUDE_FROM_ALL)
    debian_libraries(DebianQtRuntime libsshsession-qt1 "SSH sessions for desktop applications - Qt"
        "${what}\n\nThis is what asks the user in applications with Qt Widgets.")
    set(CPACK_DEBIAN_DEBIANQTRUNTIME_PACKAGE_DEPENDS "libsshsession1 (= ${debian_version})")
    set(CPACK_DEBIAN_DEBIANQTRUNTIME_PACKAGE_RECOMMENDS qt6-image-formats-plugins) # the prompts' icon
    debian_package(DebianQtDevelopment libsshsession-qt-dev libdevel
        "SSH sessions for desktop applications - development with Qt"
        "${what}\n\nThese are the headers for applications with Qt Widgets.")
    set(CPACK_DEBIAN_DEBIANQTDEVELOPMENT_PACKAGE_DEPENDS
        "libsshsession-qt1 (= ${debian_version}), libsshsession-dev (= ${debian_version}), qt6-base-dev, qt6-tools-dev")
endif()
if(SSHSESSION_BUILD_TOOLS)
    sshsession_install_program(Debian vendor-completions EXCLUDE_FROM_ALL)
    debian_package(DebianProgram sshsession net "run commands on other computers over SSH"
        "${what}\n\nThis is a program that does so on a terminal and in scripts, and that\nexamines what keeps a connection from working.")
    set(CPACK_DEBIAN_DEBIANPROGRAM_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_DEBIANPROGRAM_PACKAGE_DEPENDS "libsshsession1 (= ${debian_version})")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sshsession)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/Packaging/finish.cmake)
include(CPack)
