# What the Qt of this Linux looks for, and its users on a Mac do not.
foreach(library WrapOpenGL WrapVulkanHeaders)
  if(NOT TARGET ${library}::${library})
    add_library(${library}::${library} INTERFACE IMPORTED GLOBAL)
  endif()
endforeach()
# CMake cannot ask the compiler, which has no library to link with.
get_property(features GLOBAL PROPERTY CMAKE_CXX_KNOWN_FEATURES)
set(CMAKE_CXX_COMPILE_FEATURES ${features})
