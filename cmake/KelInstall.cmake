# cmake --install: the libraries, their headers, kel.pc for pkg-config and find_package(kel).
# The platform's headers have short names (<atomic.h>), so they get a folder of their own.
include(CMakePackageConfigHelpers)

set(kel_installed kel)
set(KEL_PC_LIBRARIES -lkel)
install(FILES ${PROJECT_SOURCE_DIR}/include/kel.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Video filters, and what their chains need.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/kel DESTINATION ${CMAKE_INSTALL_DATADIR})
if(KEL_BUILD_PLATFORM)
  list(APPEND kel_installed kelplatform)
  string(APPEND KEL_PC_LIBRARIES " -lkelplatform")
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelplatform)
endif()
set_target_properties(${kel_installed} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${kel_installed} EXPORT kelTargets)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/kel DESTINATION ${CMAKE_INSTALL_DATADIR}) # shader texts, filters

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kel)
install(EXPORT kelTargets NAMESPACE kel:: DESTINATION ${package_folder})
file(WRITE ${CMAKE_BINARY_DIR}/kelConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/kelTargets.cmake)\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kelConfig.cmake ${CMAKE_BINARY_DIR}/kelConfigVersion.cmake
  DESTINATION ${package_folder})
file(RELATIVE_PATH KEL_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /) # so that the prefix can be moved
configure_file(${CMAKE_CURRENT_LIST_DIR}/kel.pc.in ${CMAKE_BINARY_DIR}/kel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
