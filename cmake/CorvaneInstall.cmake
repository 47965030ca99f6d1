# What `cmake --install` puts where, under GNUInstallDirs, in three components
# that CorvanePackage.cmake also makes into Debian packages:
#   runtime      libcorvane.so.0 and the file it names
#   development  the headers of include/, libcorvane.so, libcorvane.a,
#                corvane.pc and the CMake package (find_package(corvane CONFIG))
#   tools        corvane-decode, corvane-play and their manual pages
# and, beside them, python: the Python package corvane in the Python's site
# directory (python/CMakeLists.txt), which no Debian package holds.
include(CMakePackageConfigHelpers)

install(TARGETS corvane corvane_static EXPORT corvaneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# A stripped install (cmake --install --strip, and the packages) strips the
# archive's debug information too, as it does the shared object's.
install(CODE "if(CMAKE_INSTALL_DO_STRIP)
  execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:corvane_static>\")
endif()" COMPONENT development)
# Every public header, those added later included.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")

# The pkg-config modules that a client of the static archive links too.
string(JOIN " " CORVANE_PRIVATE_MODULES ${CORVANE_FFMPEG_MODULES} ${CORVANE_XCB_MODULES})

set(corvane_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/corvane)
install(EXPORT corvaneTargets NAMESPACE corvane:: DESTINATION ${corvane_cmake_dir}
  COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/corvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/corvaneConfig.cmake INSTALL_DESTINATION ${corvane_cmake_dir})
# The major version is the soname's: a new one breaks clients.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/corvaneConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/corvaneConfig.cmake ${PROJECT_BINARY_DIR}/corvaneConfigVersion.cmake
  DESTINATION ${corvane_cmake_dir} COMPONENT development)

# corvane.pc names its prefix, which `cmake --install --prefix` or cpack choose
# only at install time; the rest is filled in now and the prefix left for then.
list(TRANSFORM CORVANE_RUNTIME_LIBRARIES PREPEND -l OUTPUT_VARIABLE corvane_pc_libs)
string(JOIN " " CORVANE_PC_LIBS_PRIVATE ${corvane_pc_libs})
set(CORVANE_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/corvane.pc.in ${PROJECT_BINARY_DIR}/corvane.pc.in @ONLY)
install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/corvane.pc.in\" \"${PROJECT_BINARY_DIR}/corvane.pc\" @ONLY)"
  COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/corvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The tools find the library beside them, wherever the prefix is.
set_target_properties(corvane-decode corvane-play PROPERTIES
  INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS corvane-decode corvane-play RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  COMPONENT tools)
# Manual pages, compressed as Debian keeps them.
set(corvane_man_pages)
foreach(page corvane-decode.1 corvane-play.1)
  set(source ${PROJECT_SOURCE_DIR}/tools/man/${page})
  set(packed ${PROJECT_BINARY_DIR}/man/${page}.gz)
  add_custom_command(OUTPUT ${packed}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND gzip -9n -c ${source} > ${packed}
    DEPENDS ${source} VERBATIM)
  list(APPEND corvane_man_pages ${packed})
endforeach()
add_custom_target(corvane_man_pages ALL DEPENDS ${corvane_man_pages})
install(FILES ${corvane_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
