# Read by cpack before each generator runs.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_COMPONENTS_ALL portable)
    set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
    set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
elseif(CPACK_GENERATOR STREQUAL "ZIP")
    set(CPACK_COMPONENTS_ALL update)
    set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
    # Entries are named from the directory of the executable.
    set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY OFF)
endif()
