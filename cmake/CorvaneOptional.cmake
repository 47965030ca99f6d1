# Adds a subdirectory only once it has a CMakeLists.txt, so that subsystems can
# land one at a time.
macro(corvane_optional_subdirectory dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()
