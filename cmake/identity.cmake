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
