# cmake -DKEL_BINARY_DIR=<build tree> -DKEL_STAGE_DIR=<dir> -P StageInstall.cmake
#
# Installs the build three ways, for the tests of the installed tree to look at:
#   <stage>/prefix          everything, to a plain prefix (the tree the other tests run)
#   <stage>/destdir         everything, DESTDIR staged for the prefix /opt/kelto
#   <stage>/odd 100%$& x    the coordinator and the tools, to a prefix that needs escaping in
#                           a systemd unit and in a property list
# and keeps each run's install_manifest.txt beside it as <name>.manifest.
foreach(variable KEL_BINARY_DIR KEL_STAGE_DIR)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "${variable} is not set")
    endif()
endforeach()

file(REMOVE_RECURSE "${KEL_STAGE_DIR}")
file(MAKE_DIRECTORY "${KEL_STAGE_DIR}")

# kel_stage(<name> <prefix> [DESTDIR <dir>] [COMPONENTS <c>...])
function(kel_stage name prefix)
    cmake_parse_arguments(ARG "" "DESTDIR" "COMPONENTS" ${ARGN})
    set(environment "")
    if(ARG_DESTDIR)
        set(environment "DESTDIR=${ARG_DESTDIR}")
    else()
        set(environment "--unset=DESTDIR")
    endif()
    # Without components: one run of everything.
    set(runs ${ARG_COMPONENTS})
    if(NOT runs)
        set(runs "*")
    endif()
    set(manifest "")
    foreach(component IN LISTS runs)
        if(component STREQUAL "*")
            set(only "")
            set(listing "${KEL_BINARY_DIR}/install_manifest.txt")
        else()
            set(only --component ${component})
            set(listing "${KEL_BINARY_DIR}/install_manifest_${component}.txt")
        endif()
        execute_process(
            COMMAND "${CMAKE_COMMAND}" -E env ${environment}
                    "${CMAKE_COMMAND}" --install "${KEL_BINARY_DIR}" --prefix "${prefix}" ${only}
            RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
        if(NOT result EQUAL 0)
            message(FATAL_ERROR "install ${name} ${component} failed (${result}):\n${output}")
        endif()
        file(READ "${listing}" listed)
        string(APPEND manifest "${listed}\n")
    endforeach()
    file(WRITE "${KEL_STAGE_DIR}/${name}.manifest" "${manifest}")
endfunction()

kel_stage(prefix "${KEL_STAGE_DIR}/prefix")
kel_stage(destdir "/opt/kelto" DESTDIR "${KEL_STAGE_DIR}/destdir")
kel_stage(odd "${KEL_STAGE_DIR}/odd 100%$& x" COMPONENTS Coordinator Tools)
