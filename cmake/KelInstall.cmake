# cmake --install: the libraries, their headers, kel.pc for pkg-config and find_package(kel). Each file belongs to a
# component: "runtime" (what programs load), "development", or the one that top CMakeLists.txt names for all others.
# The platform's headers have short names (<atomic.h>), so they get a folder of their own.
include(CMakePackageConfigHelpers)

set(kel_installed kel)
set(KEL_PC_LIBRARIES -lkel)
install(FILES ${PROJECT_SOURCE_DIR}/include/kel.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(KEL_BUILD_PLATFORM)
  list(APPEND kel_installed kelplatform)
  string(APPEND KEL_PC_LIBRARIES " -lkelplatform")
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelplatform
    COMPONENT development)
endif()
set_target_properties(${kel_installed} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${kel_installed} EXPORT kelTargets LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/kel DESTINATION ${CMAKE_INSTALL_DATADIR}) # video filters, and what their chains need

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kel)
install(EXPORT kelTargets NAMESPACE kel:: DESTINATION ${package_folder} COMPONENT development)
file(WRITE ${CMAKE_BINARY_DIR}/kelConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/kelTargets.cmake)\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kelConfig.cmake ${CMAKE_BINARY_DIR}/kelConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)
file(RELATIVE_PATH KEL_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /) # so that the prefix can be moved
configure_file(${CMAKE_CURRENT_LIST_DIR}/kel.pc.in ${CMAKE_BINARY_DIR}/kel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
