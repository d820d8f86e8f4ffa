# Installs headers, the library, a CMake package (find_package(vorn)) and vorn.pc.
include(CMakePackageConfigHelpers)

install(TARGETS vorn EXPORT vornTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(VORN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)
install(EXPORT vornTargets NAMESPACE vorn:: DESTINATION ${VORN_CMAKE_DIR})
configure_package_config_file(cmake/vornConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/vornConfig.cmake
    INSTALL_DESTINATION ${VORN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vornConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/vornConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/vornConfigVersion.cmake
    cmake/FindGMP.cmake
    DESTINATION ${VORN_CMAKE_DIR})

# Relocatable: the prefix is found from the .pc file's own place.
file(RELATIVE_PATH VORN_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/vorn.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vorn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vorn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
