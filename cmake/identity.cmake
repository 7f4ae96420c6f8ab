# Who publishes this build, as desktops and software centres show it. Neutral until a deployment
# says otherwise.
set(TESSELLAN_APP_ID "example.tessellan.launcher" CACHE STRING
    "Reverse DNS id of the launcher, lower case: desktop entry, icons, metainfo, Wayland app id")
set(TESSELLAN_LICENSE "LicenseRef-proprietary" CACHE STRING
    "SPDX expression of the launcher's licence")
set(TESSELLAN_HOMEPAGE "https://tessellan.example" CACHE STRING "Address of the project's page")
set(TESSELLAN_PICTURES "" CACHE STRING
    "Address below which docs/pictures is published; software centres show them. Empty: they do not")
set(TESSELLAN_DEVELOPER "Tessellan" CACHE STRING "Name of the developer to show")
set(TESSELLAN_CONTACT "packages@tessellan.example" CACHE STRING
    "Mail address of whoever maintains the package of the backend")

if(NOT TESSELLAN_APP_ID MATCHES "^[a-z][a-z0-9_]*(\\.[a-z][a-z0-9_]*)+$")
    message(FATAL_ERROR "TESSELLAN_APP_ID must be lower case names joined by dots")
endif()

# Which Debian this is built on, and the package of the backend therefore for: its libraries have
# other names and versions in another. "~": the same version built for a later one is newer.
set(debian_system "Debian")
set(debian_name "unstable")
set(debian_number "sid")
if(EXISTS /etc/os-release)
    file(STRINGS /etc/os-release release)
    foreach(line IN LISTS release)
        if(line MATCHES "^VERSION_ID=\"?([^\"]+)")
            set(debian_number ${CMAKE_MATCH_1})
        elseif(line MATCHES "^VERSION_CODENAME=\"?([^\"]+)")
            set(debian_name ${CMAKE_MATCH_1})
        elseif(line MATCHES "^PRETTY_NAME=\"?([^\"]+)")
            set(debian_system ${CMAKE_MATCH_1})
        endif()
    endforeach()
endif()
set(debian_release "1~deb${debian_number}")
