# cpack: Debian packages libkel1 (what programs load), libkel-dev and kel (the program with its filters and pages).
# The preset "package" puts the libraries where Debian has them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libkel's developers <libkel@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development program)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkel1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Core of a media processing service: the libraries")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libegl-mesa0, libgl1-mesa-dri") # the rasteriser, loaded by name
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Core of a media processing service: headers")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libegl-dev, libgles-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME kel)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION video)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION "Mixes, filters, annotates and converts media files")
set(CPACK_COMPONENT_PROGRAM_DEPENDS runtime)

# The other needed packages are read from the programs and libraries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/src/base ${CMAKE_BINARY_DIR}/platform)
include(CPack)
