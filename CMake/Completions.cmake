# Completion of the program's command line in shells, made of its own --help, so that there is no second
# list of options. The program has to run for that.
set(SSHSESSION_COMPLETIONS_DIR ${PROJECT_BINARY_DIR}/Completions)
if(CMAKE_CROSSCOMPILING OR SSHSESSION_SANITIZE)
    message(STATUS "Left out: completion for shells, as the program may not run here.")
    return()
endif()
set(completions)
foreach(file sshsession _sshsession sshsession.fish)
    list(APPEND completions ${SSHSESSION_COMPLETIONS_DIR}/${file})
endforeach()
file(GLOB templates CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/Tools/Completions/*)
add_custom_command(OUTPUT ${completions}
    COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:sshsession> -DOUTPUT=${SSHSESSION_COMPLETIONS_DIR}
            -P ${PROJECT_SOURCE_DIR}/Tools/Completions/make.cmake
    DEPENDS sshsession ${templates}
    VERBATIM)
add_custom_target(sshsession-completions ALL DEPENDS ${completions})
