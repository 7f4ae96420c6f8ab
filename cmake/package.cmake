# CPack: `cpack -G TGZ` makes the portable archive, `cpack -G ZIP` the one that a full launcher
# update carries. scripts/package calls both.
set(CPACK_PACKAGE_NAME tessellan-launcher)
set(CPACK_PACKAGE_VENDOR "${TESSELLAN_DEVELOPER}")
set(CPACK_PACKAGE_FILE_NAME tessellan-launcher-${PROJECT_VERSION}-linux-x86_64)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package_options.cmake)
include(CPack)
