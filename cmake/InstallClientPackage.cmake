# The client library as an installed package: headers, one static archive, a CMake package
# (find_package(KeltoClient), target KeltoClient::KeltoClient) and a pkg-config module
# (kelto-client). Included from cmake/Install.cmake, which sets the KEL_INSTALL_* paths.
#
# The library is built as several layer libraries (kelto_client on top of kel_param,
# kel_settings, kel_compat, ...). An application should not have to know them, so the
# package holds one archive made of the objects of all of them, and names only what lies
# outside the project: the system libraries, found through pkg-config.

# kel_link_closure(<target> <libraries_O> <imported_O>): the project's static libraries that
# <target> needs, itself included, and the imported targets (system libraries) they link.
# Link items may be generator expressions ($<$<NOT:$<PLATFORM_ID:Darwin>>:kel_compat>): every
# word in them that names a target counts, which is right as long as such conditions only
# select targets that exist on the platform at hand. Imported targets are the namespaced
# names (PkgConfig::PLIST); the project's own targets are all plain names.
function(kel_link_closure target libraries_O imported_O)
    set(pending ${target})
    set(libraries "")
    set(imported "")
    while(pending)
        list(POP_FRONT pending current)
        if(current IN_LIST libraries)
            continue()
        endif()
        get_target_property(type ${current} TYPE)
        get_target_property(is_imported ${current} IMPORTED)
        if(is_imported OR NOT type STREQUAL "STATIC_LIBRARY")
            message(FATAL_ERROR "${target} links ${current}, which is not one of the project's "
                                "static libraries: the client package cannot take it in")
        endif()
        list(APPEND libraries ${current})
        get_target_property(links ${current} LINK_LIBRARIES)
        foreach(item IN LISTS links)
            # "::@(...)" and "::@" are CMake's markers of a call from another directory.
            if(item MATCHES "^::@")
                continue()
            endif()
            # Words are split at single colons (generator expressions) but not at "::".
            string(REPLACE "::" "@@" item "${item}")
            string(REGEX MATCHALL "[A-Za-z0-9_.+@-]+" words "${item}")
            foreach(word IN LISTS words)
                string(REPLACE "@@" "::" word "${word}")
                # A namespaced name is an imported target even where it is not visible
                # (imported targets are local to the directory that found them).
                if(word MATCHES "^-")
                    message(FATAL_ERROR "${current} links the flag ${word}: tell "
                                        "cmake/InstallClientPackage.cmake how to pass it on")
                elseif(word MATCHES "::")
                    list(APPEND imported ${word})
                elseif(TARGET ${word})
                    list(APPEND pending ${word})
                endif()
            endforeach()
        endforeach()
    endwhile()
    list(REMOVE_DUPLICATES imported)
    set(${libraries_O} ${libraries} PARENT_SCOPE)
    set(${imported_O} ${imported} PARENT_SCOPE)
endfunction()

# How an application finds each system library the client library links: its pkg-config
# module. A new system library in the closure must be added here (the configure step stops
# until it is, rather than install a package that does not link).
set(kel_pkg_config_module_PkgConfig::PLIST "libplist-2.0")
set(kel_pkg_config_module_PkgConfig::SYSTEMD "libsystemd")

kel_link_closure(kelto_client kel_client_libraries kel_client_imported)
set(kel_client_pkg_config_modules "")
foreach(imported IN LISTS kel_client_imported)
    if(NOT DEFINED kel_pkg_config_module_${imported})
        message(FATAL_ERROR "kelto_client links ${imported}: tell cmake/InstallClientPackage.cmake "
                            "which pkg-config module an application finds it by")
    endif()
    list(APPEND kel_client_pkg_config_modules ${kel_pkg_config_module_${imported}})
endforeach()

# An application may put the archive into a shared library of its own (a plug-in, a control
# panel module), so its objects are position-independent.
set_target_properties(${kel_client_libraries} PROPERTIES POSITION_INDEPENDENT_CODE ON)

set(kel_client_objects "")
foreach(library IN LISTS kel_client_libraries)
    list(APPEND kel_client_objects $<TARGET_OBJECTS:${library}>)
endforeach()
add_library(kelto_client_package STATIC ${kel_client_objects})
set_target_properties(kelto_client_package PROPERTIES
    OUTPUT_NAME kelto-client
    EXPORT_NAME KeltoClient
    LINKER_LANGUAGE CXX
    ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/package")
target_include_directories(kelto_client_package
    INTERFACE $<INSTALL_INTERFACE:${KEL_INSTALL_INCLUDEDIR}>)
target_compile_features(kelto_client_package INTERFACE cxx_std_20)

install(TARGETS kelto_client_package EXPORT KeltoClientTargets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Development)
install(EXPORT KeltoClientTargets NAMESPACE KeltoClient::
    DESTINATION "${KEL_INSTALL_CMAKEDIR}" COMPONENT Development)

# Headers, by their path from the source root as the project includes them
# ("Client/CKeltoClient.h", "Common/Settings/CSettingsMap.h"). The client header needs the
# foundation, settings and packet headers of Common/ (nothing of Common/Coordinator/).
install(FILES "${PROJECT_SOURCE_DIR}/Client/CKeltoClient.h"
    DESTINATION "${KEL_INSTALL_INCLUDEDIR}/Client" COMPONENT Development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Common/"
    DESTINATION "${KEL_INSTALL_INCLUDEDIR}/Common" COMPONENT Development
    FILES_MATCHING PATTERN "*.h"
    PATTERN "Coordinator" EXCLUDE)

# The CMake package.
configure_package_config_file("${kel_packaging_dir}/cmake/KeltoClientConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/package/KeltoClientConfig.cmake"
    INSTALL_DESTINATION "${KEL_INSTALL_CMAKEDIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/KeltoClientConfigVersion.cmake"
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/package/KeltoClientConfig.cmake"
              "${PROJECT_BINARY_DIR}/package/KeltoClientConfigVersion.cmake"
    DESTINATION "${KEL_INSTALL_CMAKEDIR}" COMPONENT Development)

# The pkg-config module finds the prefix from its own place (${pcfiledir}), so it holds under
# any prefix and in a DESTDIR staging tree; an absolute directory setting is written as is.
function(kel_pc_path directory_I out_O)
    if(IS_ABSOLUTE "${directory_I}")
        set(${out_O} "${directory_I}" PARENT_SCOPE)
    else()
        set(${out_O} "\${prefix}/${directory_I}" PARENT_SCOPE)
    endif()
endfunction()
if(IS_ABSOLUTE "${KEL_INSTALL_PKGCONFIGDIR}")
    set(KEL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY
               "${CMAKE_INSTALL_PREFIX}/${KEL_INSTALL_PKGCONFIGDIR}" OUTPUT_VARIABLE up)
    string(REGEX REPLACE "/$" "" up "${up}")
    set(KEL_PC_PREFIX "\${pcfiledir}/${up}")
endif()
kel_pc_path("${CMAKE_INSTALL_LIBDIR}" KEL_PC_LIBDIR)
kel_pc_path("${KEL_INSTALL_INCLUDEDIR}" KEL_PC_INCLUDEDIR)
list(JOIN kel_client_pkg_config_modules " " KEL_PC_REQUIRES)
configure_file("${kel_packaging_dir}/pkgconfig/kelto-client.pc.in"
    "${PROJECT_BINARY_DIR}/package/kelto-client.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/kelto-client.pc"
    DESTINATION "${KEL_INSTALL_PKGCONFIGDIR}" COMPONENT Development)
