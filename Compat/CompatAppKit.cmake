# Apple Events, the application object, the console user and the process list: the part of
# kel_compat that sits on the message ports and the run loop.
target_sources(kel_compat PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/AEDataModel.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AEEventPort.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AEEventHandlers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AEFlatten.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AESend.cpp
    ${CMAKE_CURRENT_LIST_DIR}/NSApplication.cpp
    ${CMAKE_CURRENT_LIST_DIR}/NSEvent.cpp
    ${CMAKE_CURRENT_LIST_DIR}/NSUserDefaults.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Processes.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SCDynamicStore.cpp
)

# The console user comes from the login manager.
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
target_link_libraries(kel_compat PRIVATE PkgConfig::SYSTEMD)
