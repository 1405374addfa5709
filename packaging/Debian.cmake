# Two Debian packages, one for each component: cpack -G DEB in the build directory.
set(HX_PACKAGE_CONTACT "Corvane Setup Maintainers <setup@corvane.example>" CACHE STRING
    "Maintainer of the packages")
set(runtime corvane26-setup)
set(development libhxinstallbase-dev)

# Files that each Debian package contains.
set(debian ${CMAKE_CURRENT_SOURCE_DIR}/debian)
find_program(HX_GZIP gzip REQUIRED)
set(changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
add_custom_command(OUTPUT ${changelog}
  COMMAND ${HX_GZIP} --best --no-name --stdout ${debian}/changelog > ${changelog}
  DEPENDS ${debian}/changelog
  COMMENT "Packing the changelog"
  VERBATIM)
add_custom_target(hx_changelog ALL DEPENDS ${changelog})
foreach(component IN ITEMS runtime development)
  install(FILES ${changelog} ${debian}/copyright
    DESTINATION share/doc/${${component}} COMPONENT ${component})
endforeach()
install(FILES
    ${PROJECT_SOURCE_DIR}/docs/administrator.md
    ${PROJECT_SOURCE_DIR}/docs/cluster.md
    ${PROJECT_SOURCE_DIR}/docs/installing.md
  DESTINATION share/doc/${runtime} COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/docs/examples/answers.toml
  DESTINATION share/doc/${runtime}/examples COMPONENT runtime)
install(FILES
    ${PROJECT_SOURCE_DIR}/docs/download.md
    ${PROJECT_SOURCE_DIR}/docs/probes.md
    ${PROJECT_SOURCE_DIR}/docs/services.md
  DESTINATION share/doc/${development} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/examples
  DESTINATION share/doc/${development} COMPONENT development
  FILES_MATCHING
    PATTERN *.c PATTERN *.cpp PATTERN CMakeLists.txt PATTERN Makefile
    PATTERN build EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane26)
set(CPACK_PACKAGE_VENDOR "Corvane")
# Would appear above the packages' own descriptions.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT ${HX_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/DebianFiles.cmake)
set(CPACK_HX_LOGROTATE_FILE ${PROJECT_BINARY_DIR}/docs/logrotate)
set(CPACK_COMPONENTS_ALL runtime development)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION science)
# The postinst replaces a generated one that would run ldconfig, which does not see this library.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${debian}/conffiles ${PROJECT_BINARY_DIR}/docs/postinst ${PROJECT_BINARY_DIR}/docs/prerm
  ${PROJECT_BINARY_DIR}/docs/postrm)
# Libraries are found from the binaries; the commit script creates accounts.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS passwd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS systemd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS slurm-client)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "post-install setup of Corvane
Corvane is a computational chemistry application for workstations and
clusters. This package contains its console setup, which an administrator runs
once per machine: it asks for limits and a queue, and creates the service
account, the settings, the commands, and the compute service.
.
Run it with: cv_install --setup")

set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS qt6-base-dev)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "post-install setup of Corvane - development files
Corvane is a computational chemistry application for workstations and
clusters. This package contains the development files of its setup library: the
setup itself, probes of the machine, service controllers, downloads, and
integers of any size, for C++ and partly for C.")

include(CPack)
