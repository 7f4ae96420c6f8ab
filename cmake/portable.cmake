# The launcher with its own copy of Qt, in the two shapes a player gets it:
#   portable  the archive to download: program/, share/ and the scripts that install it at home
#   update    the contents of program/ alone, as a full update unpacks them beside the executable
# Neither is part of a plain `cmake --install`.
set(portable ${CMAKE_SOURCE_DIR}/packaging/portable)
set(plugins ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_PLUGINS})

# What the installer cannot do in a shell.
add_executable(exchange ${portable}/exchange.cpp)
target_link_libraries(exchange PRIVATE gate)
# Looks for libraries and plugins where the launcher does.
add_executable(tessellan-launcher-trial ${portable}/trial.cpp)
target_link_libraries(tessellan-launcher-trial
    PRIVATE gate Qt6::Network Qt6::Widgets)
set_target_properties(tessellan-launcher-trial PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
target_link_options(tessellan-launcher-trial PRIVATE -Wl,--disable-new-dtags)
set_target_properties(exchange tessellan-launcher-trial PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# install_program(<directory> <component>)
function(install_program directory component)
    install(PROGRAMS ${portable}/uninstall DESTINATION ${directory}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(PROGRAMS $<TARGET_FILE:tessellan-launcher-trial> DESTINATION ${directory}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${portable}/qt.conf DESTINATION ${directory}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(PROGRAMS $<TARGET_FILE:exchange> DESTINATION ${directory}/setup
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    foreach(part IN ITEMS places notes trial)
        install(FILES ${portable}/setup/${part}.sh DESTINATION ${directory}/setup
            COMPONENT ${component} EXCLUDE_FROM_ALL)
    endforeach()
    install(CODE "
        set(executable \"$<TARGET_FILE:tessellan-launcher>\")
        set(trial \"$<TARGET_FILE:tessellan-launcher-trial>\")
        set(plugins \"${plugins}\")
        set(destination \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${directory}\")
        include(\"${CMAKE_SOURCE_DIR}/cmake/bundle.cmake\")"
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

install_program(program portable)
install(PROGRAMS $<TARGET_FILE:tessellan-launcher> DESTINATION program
    COMPONENT portable EXCLUDE_FROM_ALL)
install(PROGRAMS ${portable}/install ${portable}/uninstall DESTINATION .
    COMPONENT portable EXCLUDE_FROM_ALL)
install(FILES ${portable}/README DESTINATION . COMPONENT portable EXCLUDE_FROM_ALL)
install_shared(share portable EXCLUDE_FROM_ALL)

install_program(. update)
# Updates look for the executable under this name on every platform.
install(PROGRAMS $<TARGET_FILE:tessellan-launcher> DESTINATION . RENAME TessellanLauncher.exe
    COMPONENT update EXCLUDE_FROM_ALL)
