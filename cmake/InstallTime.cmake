# Runs inside `cmake --install` (install(CODE) lines of cmake/Install.cmake), never at
# configure time. CMAKE_INSTALL_PREFIX here is the prefix of this install run, so the files
# written name the program where this run puts it. file(INSTALL) adds DESTDIR, records the
# file in install_manifest.txt and prints the usual "-- Installing:" line.
#
# KEL_INSTALL_TIME_STAGING: a directory of the build tree where files are made before they
# are installed.

# file(INSTALL) lists what it installed in CMAKE_INSTALL_MANIFEST_FILES of the scope it runs
# in; called from a function, the list must be handed on to the install script's scope, or
# install_manifest.txt misses the file.
macro(kel_install_keep_manifest)
    set(CMAKE_INSTALL_MANIFEST_FILES "${CMAKE_INSTALL_MANIFEST_FILES}" PARENT_SCOPE)
endmacro()

# A location given relative to the prefix, or absolute, as an absolute normalized path.
function(kel_install_full_path path_I out_O)
    cmake_path(ABSOLUTE_PATH path_I BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE
               OUTPUT_VARIABLE full)
    set(${out_O} "${full}" PARENT_SCOPE)
endfunction()

# `path_I` as it must be written into a file of the given syntax.
#   systemd: the executable of ExecStart=, in double quotes. '%' starts a specifier and is
#            doubled; systemd refuses quotes and backslashes in an executable's name, so such
#            a prefix is an error here rather than a unit that cannot start.
#   xml:     character data of a property list.
function(kel_install_escape path_I syntax_I out_O)
    set(text "${path_I}")
    if(syntax_I STREQUAL "systemd")
        if(text MATCHES "[\"'\\\\]")
            message(FATAL_ERROR "systemd cannot start a program whose path holds quotes or "
                                "backslashes: ${text}")
        endif()
        string(REPLACE "%" "%%" text "${text}")
        set(text "\"${text}\"")
    elseif(syntax_I STREQUAL "xml")
        string(REPLACE "&" "&amp;" text "${text}")
        string(REPLACE "<" "&lt;" text "${text}")
        string(REPLACE ">" "&gt;" text "${text}")
    else()
        message(FATAL_ERROR "kel_install_escape: unknown syntax ${syntax_I}")
    endif()
    set(${out_O} "${text}" PARENT_SCOPE)
endfunction()

# Writes `template_I` with @KEL_COORDINATOR_PROGRAM@ replaced by the installed path of
# `program_I` (escaped for `syntax_I`) and installs it as `directory_I`/`name_I`.
function(kel_install_configured template_I directory_I name_I syntax_I program_I)
    kel_install_full_path("${program_I}" program)
    kel_install_full_path("${directory_I}" directory)
    kel_install_escape("${program}" ${syntax_I} KEL_COORDINATOR_PROGRAM)
    set(staged "${KEL_INSTALL_TIME_STAGING}/${name_I}")
    configure_file("${template_I}" "${staged}" @ONLY)
    file(INSTALL DESTINATION "${directory}" TYPE FILE FILES "${staged}")
    kel_install_keep_manifest()
endfunction()

# Installs `directory_I`/`name_I` as a symbolic link to `target_I`, by a relative path, so
# that the link holds under any prefix and after DESTDIR staging.
function(kel_install_link target_I directory_I name_I)
    kel_install_full_path("${target_I}" target)
    kel_install_full_path("${directory_I}" directory)
    cmake_path(RELATIVE_PATH target BASE_DIRECTORY "${directory}" OUTPUT_VARIABLE relative)
    set(staged "${KEL_INSTALL_TIME_STAGING}/${name_I}")
    file(MAKE_DIRECTORY "${KEL_INSTALL_TIME_STAGING}")
    file(REMOVE "${staged}")
    file(CREATE_LINK "${relative}" "${staged}" SYMBOLIC)
    file(INSTALL DESTINATION "${directory}" TYPE FILE FILES "${staged}")
    kel_install_keep_manifest()
endfunction()
