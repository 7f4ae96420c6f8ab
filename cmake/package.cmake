# CPack: `cpack -G TGZ` makes the portable archive, `cpack -G ZIP` the one that a full launcher
# update carries, `cpack -G DEB` the backend's package. scripts/package calls them.
#
# There is no package of the launcher: a program below /usr cannot replace itself, and would
# download an update at every start in vain.
set(CPACK_PACKAGE_NAME tessellan-launcher)
set(CPACK_PACKAGE_VENDOR "${TESSELLAN_DEVELOPER}")
set(CPACK_PACKAGE_FILE_NAME tessellan-launcher-${PROJECT_VERSION}-linux-x86_64)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package_options.cmake)

set(CPACK_DEBIAN_PACKAGE_NAME tessellan-backend)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${debian_release}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TESSELLAN_DEVELOPER} <${TESSELLAN_CONTACT}>")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${TESSELLAN_HOMEPAGE}")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "server of the Tessellan launcher")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Keeps the accounts, skins and models of the players, and publishes versions of
the game, news, builds of the launcher and the Java runtime.
.
Installed as a service that listens on the loopback interface, for a reverse
proxy to stand in front of.
.
Built for ${debian_system}.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What no library names: who makes the user, and the driver that Qt loads for the database.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, init-system-helpers (>= 1.52), libqt6sql6-sqlite")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libqt6sql6-psql, logrotate, nginx, postgresql-client")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/deb/conffiles
    ${CMAKE_SOURCE_DIR}/packaging/deb/postinst
    ${CMAKE_SOURCE_DIR}/packaging/deb/prerm
    ${CMAKE_SOURCE_DIR}/packaging/deb/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
