# Where `cmake --install` puts each part, relative to the prefix unless set absolute. Included
# early from the root CMakeLists, so that the tests of the installed tree know the layout;
# the rules that use it are in cmake/Install.cmake.
include(GNUInstallDirs)

if(APPLE)
    set(kel_default_appdir "Applications")
    set(kel_default_agentdir "Library/LaunchAgents")
else()
    # A program that users do not start by hand lives in a private directory of lib/, as
    # Debian keeps such programs; bin/TabletDriver points at it.
    set(kel_default_appdir "lib/kelto")
    set(kel_default_agentdir "${CMAKE_INSTALL_DATADIR}/kelto/launchd")
endif()
set(KEL_INSTALL_APPDIR "${kel_default_appdir}" CACHE STRING
    "Where TabletDriver.app is installed (relative to the prefix, or absolute)")
set(KEL_INSTALL_SYSTEMDUSERUNITDIR "lib/systemd/user" CACHE STRING
    "Where the systemd user unit is installed (relative to the prefix, or absolute)")
set(KEL_INSTALL_LAUNCHAGENTSDIR "${kel_default_agentdir}" CACHE STRING
    "Where the launchd agent property list is installed (relative to the prefix, or absolute)")
set(KEL_INSTALL_EXAMPLESDIR "${CMAKE_INSTALL_DATADIR}/kelto/examples/simdriver" CACHE STRING
    "Where the simulated driver's example configurations are installed")
set(KEL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/kelto")
set(KEL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/KeltoClient")
set(KEL_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
