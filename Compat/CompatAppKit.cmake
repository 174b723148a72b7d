# Apple Events, the application object, the console user and the process list: the part of
# kel_compat that sits on the message ports and the run loop.
target_sources(kel_compat PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/AEDataModel.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AEEventHandlers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/AEFlatten.cpp
)
