# What every target of this project is compiled with.
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_LINK_DEPENDS_NO_SHARED ON) # a new library is no reason to link its users anew

# Another project that this one is a part of decides these for itself.
if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
    set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
    set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
    if(NOT CMAKE_BUILD_TYPE)
        set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
    endif()
endif()

set(SSHSESSION_SANITIZE "" CACHE STRING "Sanitizers to build with, as in -fsanitize=")

add_library(SSHSessionSettings INTERFACE)
target_compile_features(SSHSessionSettings INTERFACE cxx_std_20)
target_compile_options(SSHSessionSettings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(SSHSessionSettings INTERFACE -Wthread-safety) # see Platform/Mutex.h
endif()
# In std::stable_partition such a clang sees GCC 12's own library use what that calls deprecated.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 15)
    target_compile_options(SSHSessionSettings INTERFACE -Wno-deprecated-declarations)
endif()
# Optimising, GCC 12 sees an overlap wherever a string is put behind a literal (GCC bug 105329).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(SSHSessionSettings INTERFACE -Wno-restrict)
endif()
# Of files that are compiled as one, none is the main file, whose local types may be anywhere; and what a
# local name hides may be another file's.
if(CMAKE_UNITY_BUILD)
    target_compile_options(SSHSessionSettings INTERFACE
        $<IF:$<CXX_COMPILER_ID:GNU>,-Wno-subobject-linkage,-Wno-shadow>)
endif()
if(SSHSESSION_SANITIZE)
    target_compile_options(SSHSessionSettings INTERFACE
        -fsanitize=${SSHSESSION_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(SSHSessionSettings INTERFACE -fsanitize=${SSHSESSION_SANITIZE})
    if(SSHSESSION_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # Asio's fences are unknown to the sanitizer; its mutexes, which it sees, are what counts.
        target_compile_options(SSHSessionSettings INTERFACE -Wno-tsan)
    endif()
endif()

# Hides from the shared library's symbol table what templates of other libraries would add to it.
function(sshsession_export_only target map)
    if(NOT APPLE)
        target_link_options(${target} PRIVATE -Wl,--version-script=${map} -Wl,--exclude-libs,ALL)
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    endif()
endfunction()
