# Chooses the libssh2 to link: the one that CMake/build-libssh2 built below .deps, or the system's.
set(SSHSESSION_LIBSSH2 "auto" CACHE STRING "Which libssh2: own (built below .deps), system, or auto")
set_property(CACHE SSHSESSION_LIBSSH2 PROPERTY STRINGS auto own system)

set(own_libssh2 ${PROJECT_SOURCE_DIR}/.deps/libssh2)
if(SSHSESSION_LIBSSH2 STREQUAL "auto")
    if(EXISTS ${own_libssh2}/lib/libssh2.a)
        set(chosen own)
    else()
        set(chosen system)
    endif()
else()
    set(chosen ${SSHSESSION_LIBSSH2})
endif()

find_package(PkgConfig REQUIRED)
add_library(SSHSessionLibSSH2 INTERFACE)
set(SSHSESSION_LIBSSH2_IS_STATIC OFF)
if(chosen STREQUAL "own")
    set(SSHSESSION_LIBSSH2_IS_STATIC ON)
    # Linked statically, so that what is installed needs nothing from the checkout.
    find_package(OpenSSL REQUIRED COMPONENTS Crypto)
    find_package(ZLIB REQUIRED)
    file(STRINGS ${own_libssh2}/include/libssh2.h version_line REGEX "define LIBSSH2_VERSION +\"")
    string(REGEX MATCH "[0-9]+[.][0-9.]+" libssh2_version "${version_line}")
    target_include_directories(SSHSessionLibSSH2 SYSTEM INTERFACE ${own_libssh2}/include)
    target_link_libraries(SSHSessionLibSSH2 INTERFACE
        ${own_libssh2}/lib/libssh2.a OpenSSL::Crypto ZLIB::ZLIB)
else()
    pkg_check_modules(SYSTEM_LIBSSH2 REQUIRED IMPORTED_TARGET libssh2>=1.9)
    set(libssh2_version ${SYSTEM_LIBSSH2_VERSION})
    target_link_libraries(SSHSessionLibSSH2 INTERFACE PkgConfig::SYSTEM_LIBSSH2)
endif()

message(STATUS "libssh2: ${chosen}, ${libssh2_version}")
if(libssh2_version VERSION_LESS 1.11)
    message(STATUS "libssh2 before 1.11 signs RSA keys only with SHA-1, which OpenSSH refuses since "
                   "8.8: RSA client keys will not work there.")
endif()
