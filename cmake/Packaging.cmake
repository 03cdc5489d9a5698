# Debian packages (cpack in the build directory; scripts/package also runs lintian on them):
#   libqiv-access-mgmt       the component library
#   qiv-access-mgmt-offnode  what runs it off a node: amhost, the stand-ins, the demo's fixtures
include(${CMAKE_CURRENT_LIST_DIR}/InstallLayout.cmake)

set(QIV_PACKAGE_VERSION 1.0.0)
set(QIV_PACKAGE_MAINTAINER "QIV access management maintainers <qiv-access-mgmt@example.com>"
    CACHE STRING "Maintainer of the Debian packages")

set(QIV_LIBRARY_PACKAGE libqiv-access-mgmt)
set(QIV_OFFNODE_PACKAGE qiv-access-mgmt-offnode)

# Debian wants 0644 libraries and 0755 directories whatever the umask.
set(QIV_LIBRARY_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS qiv_access_mgmt
  LIBRARY DESTINATION ${QIV_COMPONENT_INSTALL_DIR} PERMISSIONS ${QIV_LIBRARY_PERMISSIONS} COMPONENT library)

install(TARGETS amhost_installed slapd-instance_installed RUNTIME DESTINATION ${QIV_OFFNODE_BIN_DIR} COMPONENT offnode)
install(TARGETS qiv_common qiv_ext_cm_router_service
  LIBRARY DESTINATION ${QIV_OFFNODE_PLATFORM_DIR} PERMISSIONS ${QIV_LIBRARY_PERMISSIONS} COMPONENT offnode)
install(TARGETS qivea RUNTIME DESTINATION ${QIV_OFFNODE_NODE_DIR}/bin COMPONENT offnode)
install(TARGETS acs_config_update RUNTIME DESTINATION ${QIV_OFFNODE_NODE_DIR}/sbin COMPONENT offnode)
install(TARGETS sec_acs_api sec_credu_api
  LIBRARY DESTINATION ${QIV_OFFNODE_NODE_DIR}/lib PERMISSIONS ${QIV_LIBRARY_PERMISSIONS} COMPONENT offnode)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/test/fixtures/models ${PROJECT_SOURCE_DIR}/test/fixtures/ldap
  DESTINATION ${QIV_OFFNODE_FIXTURES_DIR} COMPONENT offnode
  FILES_MATCHING PATTERN *.xml PATTERN *.ldif PATTERN *.schema)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/${QIV_OFFNODE_PACKAGE}.lintian-overrides
  DESTINATION share/lintian/overrides RENAME ${QIV_OFFNODE_PACKAGE}
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ COMPONENT offnode)

# Every package carries the copyright and a changelog compressed as Debian wants (-9, no timestamp).
set(QIV_DEBIAN_DIR ${CMAKE_BINARY_DIR}/debian)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${QIV_DEBIAN_DIR}/changelog @ONLY)
execute_process(COMMAND gzip -9nc ${QIV_DEBIAN_DIR}/changelog OUTPUT_FILE ${QIV_DEBIAN_DIR}/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN ITEMS library offnode)
  string(TOUPPER ${component} upper)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${QIV_DEBIAN_DIR}/changelog.gz
    DESTINATION share/doc/${QIV_${upper}_PACKAGE} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qiv-access-mgmt)
set(CPACK_PACKAGE_VERSION ${QIV_PACKAGE_VERSION})
set(CPACK_PACKAGE_CONTACT ${QIV_PACKAGE_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library offnode)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE qiv-access-mgmt)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# dpkg-shlibdeps (with --ignore-missing-info) leaves the platform libraries the component links
# out of its Depends: a node has them outside any package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${QIV_LIBRARY_PACKAGE})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
"access-management component of the node's O&M system
The library that the node's management framework loads into its process
(pymLCMinit, pymLCMterminate). It answers which roles an authenticated user
holds, from an LDAP directory, and owns the LDAP configuration objects of the
node's information model: it validates what operators write and applies every
valid configuration to the node.
.
It is opened by its framework, which the node provides together with the
platform libraries it links; qiv-access-mgmt-offnode provides stand-ins.")

set(CPACK_DEBIAN_OFFNODE_PACKAGE_NAME ${QIV_OFFNODE_PACKAGE})
set(CPACK_DEBIAN_OFFNODE_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_OFFNODE_DEPENDS library)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# slapd-instance starts a throw-away slapd and makes its CA with openssl.
set(CPACK_DEBIAN_OFFNODE_PACKAGE_RECOMMENDS "openssl, slapd")
set(CPACK_DEBIAN_OFFNODE_DESCRIPTION
"access-management component run off a node
Everything needed to load the access-management component and try it on any
Debian machine, under /usr/lib/qiv-access-mgmt: amhost, which loads it into a
stand-in of the management framework and drives it from the command line; the
stand-ins of the platform libraries, of qivea, acs-config-update and of the
security framework's libraries; slapd-instance, which runs a command next to
a throw-away OpenLDAP directory; and the demo's models and directory fixtures.")

include(CPack)
