# Examples in the documentation as programs, taken from there whenever that changes, so that they
# cannot rot.

# Writes the first C++ block of a text, or of a header's comments, to a file of the build directory.
function(extract_example source file)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(READ ${source} text)
    if(source MATCHES "\\.h$")
        string(REGEX REPLACE "(^|\n)// ?" "\\1" text "${text}")
    endif()
    string(FIND "${text}" "```cpp\n" begin)
    if(begin EQUAL -1)
        message(FATAL_ERROR "${source} has no C++ example.")
    endif()
    math(EXPR begin "${begin} + 7")
    string(SUBSTRING "${text}" ${begin} -1 text)
    string(FIND "${text}" "\n```" end)
    string(SUBSTRING "${text}" 0 ${end} text)
    file(CONFIGURE OUTPUT ${file} CONTENT "${text}\n" @ONLY)
endfunction()

set(project_dir ${CMAKE_CURRENT_LIST_DIR}/../..)
extract_example(${project_dir}/Platform/Alert.h PresenterExample.h)

function(add_readme_example target)
    extract_example(${project_dir}/README.md ${target}.cpp)
    add_executable(${target} ${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp)
    target_link_libraries(${target} PRIVATE SSHSession::SSHSession SSHSession::Terminal)
endfunction()
