# Runs while installing: copies Qt, its plugins and the libraries they need beside the executable.
# In: executable, trial, plugins (Qt's plugin directory), destination.
cmake_policy(VERSION 3.25)

# What the launcher must have to draw on X11 and Wayland, to type, to speak TLS, and to read
# pictures.
set(wanted
    platforms/libqxcb.so
    platforms/libqwayland-egl.so
    platforms/libqwayland-generic.so
    xcbglintegrations/libqxcb-egl-integration.so
    xcbglintegrations/libqxcb-glx-integration.so
    wayland-decoration-client/libbradient.so
    wayland-graphics-integration-client/libqt-plugin-wayland-egl.so
    wayland-shell-integration/libxdg-shell.so
    platforminputcontexts/libcomposeplatforminputcontextplugin.so
    platforminputcontexts/libibusplatforminputcontextplugin.so
    tls/libqcertonlybackend.so
    tls/libqopensslbackend.so
    imageformats/libqgif.so
    imageformats/libqico.so
    imageformats/libqjpeg.so)

# What stands between a program and its OpenGL drivers (libOpenGL, libGLX, libEGL and libGLdispatch,
# which the three share) comes along, all of it: a desktop need not have libOpenGL, which Qt asks for,
# and one of another version than its libGLdispatch is nobody's promise. Drivers are the system's;
# they are found by name, and keep to an interface that states its version. Without any, everything
# but the preview works.

# What stays the system's, and why. OpenSSL, which the launcher links for its digests and the TLS
# plugin loads by name, gets security updates there, and comes with the system's certificates.
set(system
    # the C and C++ runtimes; drivers need at least those they were built with
    ld-linux-x86-64 libc libm libdl libpthread librt libresolv libstdc++ libgcc_s
    # X11 and Wayland as Mesa's drivers load them into the same process
    libgbm libdrm libX11 libX11-xcb libXau libXdmcp libxcb libxcb-dri2 libxcb-dri3 libxcb-glx
    libxcb-present libxcb-randr libxcb-shm libxcb-sync libxcb-xfixes libwayland-client
    # read configuration of the system's own version
    libfontconfig libfreetype libdbus-1 libssl libcrypto
    # needed by those above, which must not be given another version
    libbrotlicommon libbrotlidec libbsd libcap libexpat libffi libgcrypt libgpg-error liblz4
    liblzma libmd libpng16 libsystemd libz libzstd)
list(TRANSFORM system REPLACE "([+.])" "\\\\\\1")
list(JOIN system "|" system)

# The Debian package that brought a file, and what of it is asked for.
function(package_of file package)
    # A package may know a file of /usr/lib by its old place in /lib.
    string(REGEX REPLACE "^/usr" "" short "${file}")
    execute_process(COMMAND dpkg-query --search "/usr${short}" "${short}"
        OUTPUT_VARIABLE owner ERROR_QUIET)
    if(NOT owner MATCHES "^([^:]+):")
        message(FATAL_ERROR "no package owns ${file}: its licence is not known")
    endif()
    set(${package} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

# install_terms(<file> <name in the archive>): the terms under which it is passed on, whole, and what
# it was built from. Debian's own papers refer to texts that each of its systems has.
set(index)
set(common /usr/share/common-licenses)
function(install_terms file name)
    package_of("${file}" package)
    file(REAL_PATH /usr/share/doc/${package}/copyright terms)
    file(INSTALL "${terms}" DESTINATION "${destination}/licenses" RENAME ${package}.txt)
    file(READ "${terms}" text)
    string(REGEX MATCHALL "${common}/[A-Za-z0-9.+-]*[A-Za-z0-9+]" references "${text}")
    foreach(reference IN LISTS references)
        file(REAL_PATH "${reference}" whole)
        cmake_path(GET reference FILENAME reference)
        file(INSTALL "${whole}" DESTINATION "${destination}/licenses/common-licenses"
            RENAME "${reference}")
    endforeach()
    execute_process(COMMAND dpkg-query --show
        --showformat "\${Version}, from the source package \${source:Package} \${source:Version}"
        ${package} OUTPUT_VARIABLE version COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND index "${name}: ${package} ${version}")
    set(index "${index}" PARENT_SCOPE)
endfunction()

set(modules)
foreach(plugin IN LISTS wanted)
    if(NOT EXISTS "${plugins}/${plugin}")
        message(FATAL_ERROR "${plugins}/${plugin} is missing: see scripts/packages")
    endif()
    list(APPEND modules "${plugins}/${plugin}")
    cmake_path(GET plugin PARENT_PATH kind)
    file(INSTALL "${plugins}/${plugin}" DESTINATION "${destination}/plugins/${kind}")
    install_terms("${plugins}/${plugin}" "plugins/${plugin}")
endforeach()

file(GET_RUNTIME_DEPENDENCIES
    RESOLVED_DEPENDENCIES_VAR libraries
    EXECUTABLES "${executable}" "${trial}"
    MODULES ${modules}
    PRE_EXCLUDE_REGEXES "^(${system})\\.so")
foreach(library IN LISTS libraries)
    # Under the name it is loaded by, and without links: a ZIP that an update unpacks has none.
    cmake_path(GET library FILENAME name)
    file(REAL_PATH "${library}" file)
    file(INSTALL "${file}" DESTINATION "${destination}" RENAME "${name}")
    install_terms("${file}" "${name}")
endforeach()

list(SORT index)
list(JOIN index "\n" index)
file(WRITE "${destination}/licenses/README.txt"
"The launcher brings these files of other makers along, as Debian built them. The terms of each are in
PACKAGE.txt here; what that calls ${common}/NAME is common-licenses/NAME here.

Their sources are Debian's: \"apt-get source PACKAGE=VERSION\" fetches them where Debian is, and
https://snapshot.debian.org/package/SOURCE-PACKAGE/VERSION/ keeps every version.

FILE: PACKAGE VERSION, from the source package SOURCE-PACKAGE VERSION

${index}
")

# For whoever lacks one of the system's: the package that has it.
file(GET_RUNTIME_DEPENDENCIES
    RESOLVED_DEPENDENCIES_VAR libraries
    CONFLICTING_DEPENDENCIES_PREFIX several
    EXECUTABLES "${executable}" "${trial}"
    MODULES ${modules})
set(table)
foreach(library IN LISTS libraries)
    cmake_path(GET library FILENAME name)
    if(name MATCHES "^(${system})\\.so")
        file(REAL_PATH "${library}" file)
        package_of("${file}" package)
        list(APPEND table "${name} ${package}\n")
    endif()
endforeach()
list(SORT table)
list(JOIN table "" table)
file(WRITE "${destination}/setup/system-libraries" "${table}")
