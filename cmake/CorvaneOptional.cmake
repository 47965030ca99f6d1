# Adds a subdirectory only once it has a CMakeLists.txt. Only tests/CMakeLists.txt
# still uses it; it goes when the test folders are listed plainly, as the
# subsystems are, so that a missing one fails the configure.
macro(corvane_optional_subdirectory dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()
