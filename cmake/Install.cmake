# What `cmake --install` puts where. Included once, last, from the root CMakeLists, so that
# every target it names exists already. Paths (cmake/InstallLayout.cmake, included first) are
# relative to the install prefix unless set absolute; `--prefix` and DESTDIR are honoured by
# every rule, including the files written at install time (cmake/InstallTime.cmake).
#
#   Component    What                                       Where (defaults, Linux)
#   Coordinator  TabletDriver.app (program + Info.plist)    lib/kelto/TabletDriver.app
#                bin/TabletDriver (relative symbolic link)  bin
#                systemd user unit kelto-coordinator        lib/systemd/user
#                launchd agent com.kelto.TabletDriver       share/kelto/launchd
#   Tools        tabletctl, simdriver                       bin
#                the simulated driver's example files       share/kelto/examples/simdriver
#                manual pages                               share/man/man1
#   Development  headers                                    include/kelto
#                libkelto-client.a (one archive)            lib
#                CMake package KeltoClient                  lib/cmake/KeltoClient
#                pkg-config module kelto-client             lib/pkgconfig
#
# On macOS the bundle goes to Applications/ and the agent to Library/LaunchAgents/ under the
# prefix, and there is no systemd unit.
include(CMakePackageConfigHelpers)

set(kel_bundle_dir "${KEL_INSTALL_APPDIR}/TabletDriver.app")
set(kel_packaging_dir "${PROJECT_SOURCE_DIR}/packaging")

# --- Coordinator -------------------------------------------------------------------------------
if(TARGET TabletDriver) # until the coordinator program is in the build
# The bundle layout is what the program needs at run time: it finds its Info.plist from its
# own resolved path (Contents/MacOS/TabletDriver -> Contents/Info.plist).
install(TARGETS TabletDriver
    RUNTIME DESTINATION "${kel_bundle_dir}/Contents/MacOS" COMPONENT Coordinator)
install(FILES "$<TARGET_FILE_DIR:TabletDriver>/../Info.plist"
    DESTINATION "${kel_bundle_dir}/Contents" COMPONENT Coordinator)

# Files that name the installed program by its absolute path are written at install time,
# when the final prefix is known (`cmake --install --prefix` may differ from the one
# configured). Each line hands cmake/InstallTime.cmake the paths as configured here.
set(kel_install_time_script "${CMAKE_CURRENT_LIST_DIR}/InstallTime.cmake")
function(kel_install_time component call)
    install(CODE "include(\"${kel_install_time_script}\")
        set(KEL_INSTALL_TIME_STAGING \"${PROJECT_BINARY_DIR}/install-time\")
        ${call}" COMPONENT ${component})
endfunction()

# bin/TabletDriver: a relative link, so that it works under any prefix and after DESTDIR
# staging. Its name stays the program's: the link's name is the process name, by which a
# starting coordinator finds a stale one.
kel_install_time(Coordinator
    "kel_install_link(\"${kel_bundle_dir}/Contents/MacOS/TabletDriver\"
                      \"${CMAKE_INSTALL_BINDIR}\" TabletDriver)")

# The launchd agent, named after the bundle identifier as launchd expects.
kel_install_time(Coordinator
    "kel_install_configured(\"${kel_packaging_dir}/launchd/com.kelto.TabletDriver.plist.in\"
        \"${KEL_INSTALL_LAUNCHAGENTSDIR}\" com.kelto.TabletDriver.plist xml
        \"${kel_bundle_dir}/Contents/MacOS/TabletDriver\")")
if(NOT APPLE)
    kel_install_time(Coordinator
        "kel_install_configured(\"${kel_packaging_dir}/systemd/kelto-coordinator.service.in\"
            \"${KEL_INSTALL_SYSTEMDUSERUNITDIR}\" kelto-coordinator.service systemd
            \"${kel_bundle_dir}/Contents/MacOS/TabletDriver\")")
endif()
endif()

# --- Tools -------------------------------------------------------------------------------------
install(TARGETS tabletctl simdriver RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Tools)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Tools/SimulatedDriver/examples/"
    DESTINATION "${KEL_INSTALL_EXAMPLESDIR}" COMPONENT Tools
    FILES_MATCHING PATTERN "*.json")
install(FILES "${PROJECT_SOURCE_DIR}/packaging/completion/tabletctl.bash"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME tabletctl
    COMPONENT Tools)
install(FILES "${PROJECT_SOURCE_DIR}/packaging/completion/_tabletctl"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT Tools)
install(FILES "${PROJECT_SOURCE_DIR}/docs/man/TabletDriver.1"
              "${PROJECT_SOURCE_DIR}/docs/man/tabletctl.1"
              "${PROJECT_SOURCE_DIR}/docs/man/simdriver.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT Tools)

# --- Development -------------------------------------------------------------------------------
if(TARGET kelto_client) # until the client library is in the build
    include(${CMAKE_CURRENT_LIST_DIR}/InstallClientPackage.cmake)
endif()
