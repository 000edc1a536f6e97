# Lays the public headers out as they are installed, so that consumers, tests and the library itself
# write the same #include <SSHSession/...>.
set(SSHSESSION_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
function(sshsession_publish)
    foreach(header IN LISTS ARGN)
        cmake_path(GET header FILENAME name)
        file(MAKE_DIRECTORY ${SSHSESSION_INCLUDE_DIR}/SSHSession)
        cmake_path(ABSOLUTE_PATH header) # one that is made stands in the build directory
        file(CREATE_LINK ${header}
             ${SSHSESSION_INCLUDE_DIR}/SSHSession/${name} SYMBOLIC)
    endforeach()
endfunction()
sshsession_publish(${SSHSESSION_PUBLIC_HEADERS})
