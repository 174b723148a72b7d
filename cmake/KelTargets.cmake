# Settings shared by every target of the project.

# Warnings, the sanitizers and the source-relative __FILE__ that the assertion reports print
# ("Common/param", not the absolute path of the checkout).
function(kel_target_defaults target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic
        # Four-character codes ('KEPK') are part of the wire protocol.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-multichar>
        $<$<CXX_COMPILER_ID:Clang>:-Wno-four-char-constants -Wno-multichar>
        # g++ 12 at -O3 reports an overlapping memcpy inside libstdc++'s own
        # "literal" + std::string (GCC bug 105651, fixed in g++ 13); nothing of ours.
        $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
        -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
    if(KEL_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    # libFuzzer's coverage in every target of a fuzz build, so that the fuzzers see into
    # the libraries they drive and not only into their own file.
    if(KEL_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    if(KEL_SANITIZE)
        list(JOIN KEL_SANITIZE "," sanitizers)
        target_compile_options(${target} PRIVATE -fsanitize=${sanitizers} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
        target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
    endif()
endfunction()

# A library of one layer. Sources are listed explicitly by the caller; headers are found from
# the source root ("Common/KelStatus.h").
function(kel_add_library target)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    if(ARG_LINKS)
        target_link_libraries(${target} PUBLIC ${ARG_LINKS})
    endif()
    kel_target_defaults(${target})
endfunction()

function(kel_add_executable target)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${target} ${ARG_SOURCES})
    target_link_libraries(${target} PRIVATE ${ARG_LINKS})
    kel_target_defaults(${target})
endfunction()
