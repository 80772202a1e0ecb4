# What `cmake --install` puts where. Every version number is the project's.
include(CMakePackageConfigHelpers)

set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/zord410)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zord410)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(generated ${PROJECT_BINARY_DIR}/install)

# Installed, the headers stand side by side in one folder.
set(header ${PROJECT_SOURCE_DIR}/zordchcl/zordchcl.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
file(READ ${header} content)
string(REPLACE "\"zora/zora.h\"" "\"zora.h\"" content "${content}")
file(CONFIGURE OUTPUT ${generated}/zordchcl.h CONTENT "${content}" @ONLY)
install(FILES ${generated}/zordchcl.h ${PROJECT_SOURCE_DIR}/zora/zora.h
  DESTINATION ${header_folder})

set(programs zordchd)
if(ZORD410_TOOLS)
  list(APPEND programs zordp zordc)
endif()
install(TARGETS ${programs})

install(TARGETS zord410 zord410_static EXPORT zord410Targets
  INCLUDES DESTINATION ${header_folder})
install(EXPORT zord410Targets NAMESPACE zord410:: DESTINATION ${package_folder})
configure_package_config_file(packaging/zord410Config.cmake.in ${generated}/zord410Config.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${generated}/zord410ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/zord410Config.cmake ${generated}/zord410ConfigVersion.cmake
  DESTINATION ${package_folder})

# The way from the .pc file up to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_folder} /prefix)
configure_file(packaging/zord410.pc.in ${generated}/zord410.pc @ONLY)
install(FILES ${generated}/zord410.pc DESTINATION ${pkgconfig_folder})

# The service. Its unit names the program where it is installed.
if(ZORD410_SYSTEMD)
  install(CODE "
    set(bin_folder \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/zordchd.service.in\"
      \"${generated}/zordchd.service\" @ONLY)")
  install(FILES ${generated}/zordchd.service packaging/systemd/zordchd.socket
    DESTINATION lib/systemd/system)
  install(FILES packaging/systemd/zord410.sysusers DESTINATION lib/sysusers.d RENAME zord410.conf)
endif()
