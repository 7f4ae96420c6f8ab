# What `cmake --install` puts under the prefix for the launcher: the program, and what a desktop
# needs to show it.
set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(shared ${CMAKE_BINARY_DIR}/share)

# The day of the commit when SOURCE_DATE_EPOCH says so, today otherwise.
string(TIMESTAMP release_date "%Y-%m-%d" UTC)
foreach(name IN ITEMS LICENSE HOMEPAGE PICTURES DEVELOPER)
    set(${name}_XML "${TESSELLAN_${name}}")
    string(REPLACE "&" "&amp;" ${name}_XML "${${name}_XML}")
    string(REPLACE "<" "&lt;" ${name}_XML "${${name}_XML}")
endforeach()
set(SCREENSHOTS_XML)
if(TESSELLAN_PICTURES)
    configure_file(${packaging}/screenshots.xml.in ${shared}/screenshots.xml @ONLY)
    file(READ ${shared}/screenshots.xml SCREENSHOTS_XML)
endif()
configure_file(${packaging}/launcher.desktop.in ${shared}/${TESSELLAN_APP_ID}.desktop @ONLY)
configure_file(${packaging}/launcher.metainfo.xml.in
    ${shared}/${TESSELLAN_APP_ID}.metainfo.xml @ONLY)
configure_file(${packaging}/tessellan-launcher.1.in ${shared}/tessellan-launcher.1 @ONLY)

# install_shared(<data directory> <component> [<more install arguments>])
function(install_shared data component)
    install(FILES ${shared}/${TESSELLAN_APP_ID}.desktop
        DESTINATION ${data}/applications COMPONENT ${component} ${ARGN})
    install(FILES ${shared}/${TESSELLAN_APP_ID}.metainfo.xml
        DESTINATION ${data}/metainfo COMPONENT ${component} ${ARGN})
    install(FILES ${shared}/tessellan-launcher.1
        DESTINATION ${data}/man/man1 COMPONENT ${component} ${ARGN})
    set(icons ${data}/icons/hicolor)
    install(FILES ${CMAKE_SOURCE_DIR}/resources/icon.svg
        DESTINATION ${icons}/scalable/apps RENAME ${TESSELLAN_APP_ID}.svg
        COMPONENT ${component} ${ARGN})
    install(FILES ${CMAKE_SOURCE_DIR}/resources/icon.png
        DESTINATION ${icons}/256x256/apps RENAME ${TESSELLAN_APP_ID}.png
        COMPONENT ${component} ${ARGN})
    foreach(size IN ITEMS 16 22 24 32 48 64 128 512)
        install(FILES ${CMAKE_SOURCE_DIR}/resources/icons/${size}.png
            DESTINATION ${icons}/${size}x${size}/apps RENAME ${TESSELLAN_APP_ID}.png
            COMPONENT ${component} ${ARGN})
    endforeach()
endfunction()

install(TARGETS tessellan-launcher
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT launcher)
install_shared(${CMAKE_INSTALL_DATADIR} launcher)
