# For fully static programs on the C library musl: with the compiler and the libraries that
# CMake/build-musl made, and headers of the packages that it unpacked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(musl ${CMAKE_CURRENT_LIST_DIR}/../.deps/musl)
set(CMAKE_C_COMPILER ${musl}/bin/musl-gcc)
set(CMAKE_CXX_COMPILER ${musl}/bin/musl-g++)
set(CMAKE_FIND_ROOT_PATH ${musl} ${CMAKE_CURRENT_LIST_DIR}/../.deps/root-musl)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
set(CMAKE_LIBRARY_ARCHITECTURE x86_64-linux-gnu) # where those packages keep their CMake files
set(ENV{PKG_CONFIG_LIBDIR} ${musl}/lib/pkgconfig)
