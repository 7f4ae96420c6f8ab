# What a package of the backend holds beside the program: its service, and the papers of a package.
set(deb ${CMAKE_SOURCE_DIR}/packaging/deb)
set(papers ${CMAKE_BINARY_DIR}/deb)
string(TIMESTAMP release_time "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP release_year "%Y" UTC)

configure_file(${deb}/copyright.in ${papers}/copyright @ONLY)
configure_file(${deb}/changelog.in ${papers}/changelog.Debian @ONLY)
configure_file(${deb}/tessellan-backend.1.in ${papers}/tessellan-backend.1 @ONLY)
find_program(GZIP gzip REQUIRED)
foreach(paper IN ITEMS changelog.Debian tessellan-backend.1)
    execute_process(COMMAND ${GZIP} -9fn ${papers}/${paper} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

install(FILES ${CMAKE_SOURCE_DIR}/packaging/backend/tessellan-backend.service
    DESTINATION lib/systemd/system COMPONENT backend)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/backend/tessellan-backend.logrotate
    DESTINATION /etc/logrotate.d RENAME tessellan-backend COMPONENT backend)
install(FILES ${papers}/copyright ${papers}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tessellan-backend COMPONENT backend)
install(FILES ${papers}/tessellan-backend.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT backend)
