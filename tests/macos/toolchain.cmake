# Configures and compiles as for a Mac where there is none: with clang for Apple's targets, the C, C++
# and Qt headers of this Linux, and declarations of our own of what is used of macOS. Objects come
# out of it, and no programs.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT /)
find_program(clang clang REQUIRED)
find_program(clangxx clang++ REQUIRED)
set(CMAKE_C_COMPILER ${clang})
set(CMAKE_CXX_COMPILER ${clangxx})
set(CMAKE_OBJCXX_COMPILER ${clangxx})
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${CMAKE_OSX_ARCHITECTURES}-apple-macos14.4)
  set(CMAKE_${language}_COMPILER_WORKS TRUE)
endforeach()
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_OSX_ARCHITECTURES)
set(CMAKE_INSTALL_NAME_TOOL /bin/true)
set(CMAKE_HAVE_LIBC_PTHREAD TRUE)

execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE multiarch OUTPUT_STRIP_TRAILING_WHITESPACE)
list(APPEND CMAKE_PREFIX_PATH /usr/lib/${multiarch}/cmake)
set(flags
  -D_GNU_SOURCE
  # For Apple's targets, clang gives this word a meaning that the C library uses for another.
  -U__nonnull
  # Of macOS alone, in headers that both systems have.
  -DSO_NOSIGPIPE=0x1022 -DPOSIX_SPAWN_CLOEXEC_DEFAULT=0x4000
  -Wunguarded-availability
  -nostdinc++)
foreach(folder
    ${CMAKE_CURRENT_LIST_DIR}/c-library
    ${CMAKE_CURRENT_LIST_DIR}/declarations
    ${CMAKE_CURRENT_LIST_DIR}/../coreaudio/standin
    /usr/include/c++/${version}
    /usr/include/${multiarch}/c++/${version}
    /usr/include/${multiarch}
    /usr/include)
  list(APPEND flags -isystem ${folder})
endforeach()
list(JOIN flags " " flags)
set(CMAKE_CXX_FLAGS_INIT ${flags})
set(CMAKE_OBJCXX_FLAGS_INIT ${flags})

# Nothing to link with.
foreach(language CXX OBJCXX)
  set(CMAKE_${language}_LINK_EXECUTABLE "${CMAKE_COMMAND} -E touch <TARGET>")
endforeach()

set(CMAKE_PROJECT_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/after-project.cmake)
