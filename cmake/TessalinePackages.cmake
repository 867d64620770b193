# Debian packages: the components of the install rules, a package each. ./package builds them; the folder has to be
# configured with /usr as its prefix, so that libraries land in the folder of the architecture.
if(WIN32 OR NOT TESSALINE_PROGRAM)
  return()
endif()

set(release 1)  # of the packaging, counted from 1 with each version
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL "")
set(packaged tessaline_pages tessaline_shared)  # targets
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
# A host that mail never reaches: the project reads none.
set(TESSALINE_MAINTAINER "The Tessaline authors <tessaline@example.org>"
  CACHE STRING "Whom the packages name as their maintainer: who builds them for others, names themself")
set(CPACK_PACKAGE_CONTACT "${TESSALINE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_SOURCE tessaline)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# tessaline_package(COMPONENT PACKAGE SECTION DEPENDS SUMMARY DETAILS): what dpkg-shlibdeps finds is added to DEPENDS.
macro(tessaline_package component package section depends summary details)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${details}")
  string(APPEND package_table "${component}=${package};")
endmacro()

# Lines of descriptions end before the 80th column.
set(about "Tessaline finds halftone screens, electrical noise and scan textures in a
picture's spectrum, takes them out, and leaves the rest as it is.")
tessaline_package(program tessaline graphics "" "take repeating patterns out of pictures"
  "${about}\n\nThis package has the program, for pictures, folders of them and raw frames.")
tessaline_package(runtime libtessaline1 libs "" "take repeating patterns out of pictures - library"
  "${about}\n\nThis package has the library that programs run with.")
tessaline_package(development libtessaline-dev libdevel "libtessaline1 (= ${PROJECT_VERSION}-${release})"
  "take repeating patterns out of pictures - development files"
  "${about}\n\nThis package has the headers in C and C++, and what pkg-config and CMake
find the library by.")
if(TESSALINE_HAS_PYTHON)
  list(APPEND packaged tessaline_python)
  math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
  tessaline_package(debian python3-tessaline python
    "python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next_minor}), python3-numpy"
    "take repeating patterns out of pictures - Python package" "${about}\n\nThis package works on NumPy arrays.")
endif()
if(TESSALINE_HAS_GEGL)
  list(APPEND packaged tessaline_gegl_module)
  tessaline_package(gegl gegl-tessaline graphics "" "take repeating patterns out of pictures - operation for GEGL"
    "${about}\n\nThis package adds the operation tessaline:remove-pattern to GIMP and to other
programs that use GEGL.")
endif()
if(TESSALINE_HAS_FREI0R)
  list(APPEND packaged tessaline_frei0r_module)
  tessaline_package(frei0r frei0r-tessaline video "" "take repeating patterns out of pictures - filter for films"
    "${about}\n\nThis package adds the filter tessaline to programs that load frei0r filters,
such as ffmpeg and MLT.")
endif()

# Programs that are linked with the library need this version of it or a later one; the loader learns of it.
set(control "${CMAKE_CURRENT_BINARY_DIR}/control")
file(WRITE "${control}/shlibs" "libtessaline 1 libtessaline1 (>= ${PROJECT_VERSION})\n")
file(WRITE "${control}/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${control}/shlibs" "${control}/triggers")

# What Python writes beside the package when root imports it goes with it.
file(WRITE "${control}/prerm" "#!/bin/sh\nset -e\nrm -rf /usr/lib/python3/dist-packages/tessaline/__pycache__\n")
file(CHMOD "${control}/prerm" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_DEBIAN_PACKAGE_CONTROL_EXTRA "${control}/prerm")

# What every package says of itself below share/doc; TIMESTAMP follows SOURCE_DATE_EPOCH.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${control}/changelog" "tessaline (${PROJECT_VERSION}-${release}) bookworm; urgency=medium

  * Version ${PROJECT_VERSION}; what is new in it is told in changelog.gz.

 -- ${TESSALINE_MAINTAINER}  ${date}
")
file(READ "${PROJECT_SOURCE_DIR}/LICENSE" licence)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]*)" holder "${licence}")
set(holder "${CMAKE_MATCH_1}")
string(REGEX REPLACE "^.*${holder}\n\n" "" licence "${licence}")
string(REGEX REPLACE "\n\n" "\n.\n" licence "${licence}")
string(REGEX REPLACE "\n(.)" "\n \\1" licence "${licence}")
file(WRITE "${control}/copyright" "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: Tessaline

Files: *
Copyright: ${holder}
License: Expat

License: Expat
 ${licence}")
add_custom_target(packaged DEPENDS ${packaged})
configure_file(cmake/stage-packages.cmake.in stage-packages.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_BINARY_DIR}/stage-packages.cmake")
include(CPack)
