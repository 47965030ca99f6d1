# `cpack -G DEB` makes the three install components into Debian packages, as a
# Debian library is packaged: libcorvane0 (the shared object, with a shlibs
# file and ldconfig triggers), libcorvane-dev (what building against it needs)
# and corvane-tools. dpkg-shlibdeps works out what the binaries need.
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Corvane developers <corvane@localhost>")
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where dpkg-shlibdeps finds libcorvane.so.0 while it looks at the tools: it is
# in no installed package yet (the tools depend on libcorvane0 below).
get_target_property(corvane_library_dir corvane BINARY_DIR)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${corvane_library_dir})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Debug information stays in the build tree, as Debian keeps it out of its packages.
set(CPACK_STRIP_FILES ON)

# Each description: the summary line, then the long text (CPack indents it).
set(corvane_about "Corvane decodes H.264 and H.265 packets with FFmpeg into BGR24 pictures,
with an optional median clean-up, draws frames on X11 windows and crops and
scales 24-bit bitmaps, on image primitives built for six levels of x86-64
processors.")
set(corvane_runtime "libcorvane${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${corvane_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "video decode library into BGR24 pictures
${corvane_about}

This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcorvane-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# corvane.pc requires the pkg-config modules of FFmpeg and XCB, which their
# -dev packages hold.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${corvane_runtime} (= ${PROJECT_VERSION}), \
libavcodec-dev, libavutil-dev, libswscale-dev, libxcb1-dev, libxcb-shm0-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "video decode library into BGR24 pictures - development files
${corvane_about}

This package holds the headers, the static library, the pkg-config file and
the CMake package.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME corvane-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${corvane_runtime} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "video decode library into BGR24 pictures - tools
${corvane_about}

This package holds corvane-decode, which decodes a stream file and writes its
pictures, and corvane-play, which shows it on an X window.")

include(CPack)
