# What every target of this project shares: warnings, sanitizers. Flags stand on targets only.

add_library(orrery-options INTERFACE)
target_compile_options(orrery-options INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual -Wformat=2
  -Wimplicit-fallthrough -Wundef $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
  $<$<BOOL:${ORRERY_WARNINGS_AS_ERRORS}>:-Werror>)
if(ORRERY_SANITIZE)
  target_compile_options(orrery-options INTERFACE -fsanitize=${ORRERY_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(orrery-options INTERFACE -fsanitize=${ORRERY_SANITIZE})
endif()

# orrery_shared_library(target OUTPUT_NAME name VERSION_SCRIPT file): the habits of our shared libraries.
function(orrery_shared_library target)
  cmake_parse_arguments(arg "" "OUTPUT_NAME;VERSION_SCRIPT" "" ${ARGN})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${arg_OUTPUT_NAME}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${arg_VERSION_SCRIPT})
  target_link_options(${target} PRIVATE "LINKER:--version-script=${arg_VERSION_SCRIPT}" "LINKER:--as-needed")
  if(NOT ORRERY_SANITIZE)
    target_link_options(${target} PRIVATE "LINKER:--no-undefined")
  endif()
endfunction()

# Reads headers once that take longer to read than most files of the target to compile. Only where a build is made for
# its sanitizers, or to run its tests soon: in optimised builds compilers see overruns in these headers that are none, and
# a missing include shall show on the build that people develop with.
option(ORRERY_PRECOMPILE "Precompile the headers that most files of a target read" OFF)
function(orrery_precompile target)
  if(ORRERY_SANITIZE OR ORRERY_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
