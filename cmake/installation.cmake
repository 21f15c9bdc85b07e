# What is installed, and by which component:
#   runtime      what a host boots with; whatever names no component, too
#   analyze      bootforge-analyze, for hosts and for desks
#   development  for authors of native plugins
#   documents    the documents and examples, laid out as here, so that their links lead somewhere
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
# Not what the umask of whoever installs makes of them.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The programs look where they were told to when they were configured.
install(CODE "
  if(NOT \"\${CMAKE_INSTALL_PREFIX}\" STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(WARNING \"Installing below '\${CMAKE_INSTALL_PREFIX}' what was configured for \"
      \"'${CMAKE_INSTALL_PREFIX}': bootforge will look for nativeExecutor in ${helper_dir}. \"
      \"Configure with -DCMAKE_INSTALL_PREFIX, or install with DESTDIR.\")
  endif()" ALL_COMPONENTS)

install(TARGETS bootforge bootforge-adopt RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS hypcli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS nativeExecutor launch chkconfig RUNTIME DESTINATION ${helper_destination})
foreach(folder ${plugin_destination} ${command_destination} ${command_destination}/int
        ${command_destination}/int/ext ${command_destination}/ext)
  install(DIRECTORY DESTINATION ${folder})
endforeach()

install(TARGETS bootforge-analyze RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT analyze)

install(FILES include/bootforge/plugin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bootforge
        COMPONENT development)
# Nothing in these depends on the machine: they stand below share.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_DATADIR}/cmake/bootforge)
configure_package_config_file(cmake/bootforgeConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/bootforgeConfig.cmake INSTALL_DESTINATION ${package_folder}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/bootforgeConfigVersion.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
configure_file(cmake/bootforge.pc.in ${CMAKE_BINARY_DIR}/package/bootforge.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/bootforgeConfig.cmake
        ${CMAKE_BINARY_DIR}/package/bootforgeConfigVersion.cmake
        DESTINATION ${package_folder} COMPONENT development)
install(FILES ${CMAKE_BINARY_DIR}/package/bootforge.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig
        COMPONENT development)

# For those who write plugins: docs/editors.md.
file(GLOB schemas CONFIGURE_DEPENDS share/schemas/*.schema.json)
install(FILES ${schemas} DESTINATION ${CMAKE_INSTALL_DATADIR}/bootforge/schemas COMPONENT development)

# A shell looks for a file with the name of the program.
foreach(name bootforge bootforge-adopt hypcli bootforge-analyze)
  set(component runtime)
  if(name STREQUAL "bootforge-analyze")
    set(component analyze)
  endif()
  install(FILES share/completions/bash/bootforge RENAME ${name} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES share/completions/fish/${name}.fish COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  install(FILES share/completions/zsh/_bootforge RENAME _${name} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endforeach()

# A manual page goes with what it is about.
file(GLOB manual_pages CONFIGURE_DEPENDS docs/*.[1-8])
foreach(page ${manual_pages})
  string(REGEX MATCH "[1-8]$" section ${page})
  set(component runtime)
  if(page MATCHES "/bootforge-analyze\\.[1-8]$")
    set(component analyze)
  elseif(section EQUAL 3)
    set(component development)
  endif()
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()

install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT documents)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents
        USE_SOURCE_PERMISSIONS REGEX "/examples/native/.*\\.so$" EXCLUDE)
# Everybody may read and run what its owner may, whatever the umask of a checkout was.
install(CODE "execute_process(COMMAND chmod -R go=u-w
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\" COMMAND_ERROR_IS_FATAL ANY)"
  COMPONENT documents)
