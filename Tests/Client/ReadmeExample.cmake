# The client library example of README.md, compiled from the README itself (the cpp block
# between the markers <!-- client-example --> and <!-- /client-example -->), so that the
# README cannot show code that does not build; the tabletctl system transcript runs it.
set(readme "${PROJECT_SOURCE_DIR}/README.md")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${readme}")
file(READ "${readme}" readme_text)
string(REGEX MATCH
       "<!-- client-example -->[ \t\r\n]*```cpp\n([^`]*)```[ \t\r\n]*<!-- /client-example -->"
       readme_example "${readme_text}")
if(NOT readme_example)
    message(FATAL_ERROR "README.md has no cpp block between <!-- client-example --> and "
                        "<!-- /client-example -->")
endif()
# Written only when it changed, so that a configure run does not rebuild it.
file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/ReadmeClientExample.cpp"
     CONTENT "${CMAKE_MATCH_1}" @ONLY)
kel_add_executable(readme_client_example
    SOURCES "${CMAKE_CURRENT_BINARY_DIR}/ReadmeClientExample.cpp"
    LINKS kelto_client)
