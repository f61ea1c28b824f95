# Warnings and sanitizers, the same for every target of this project.
add_library(vxpadcom_settings INTERFACE)
target_compile_options(vxpadcom_settings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                       $<$<BOOL:${VXPADCOM_WERROR}>:-Werror>)
# gcc 12 warns of overlapping memory inside its own std::string wherever a literal is put in front of one.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vxpadcom_settings INTERFACE -Wno-restrict)
endif()
# Compiled headers fill half of what gcc's memory may grow to before it tidies up, again and again: an eighth of the time
# where several sources are compiled at once.
if(VXPADCOM_TOGETHER AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(vxpadcom_settings INTERFACE --param=ggc-min-heapsize=500000)
endif()
target_compile_definitions(vxpadcom_settings INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)

# vxpadcom_harden(TARGET...): for what is installed and what it is made of. A sanitizer watches more closely than these,
# and what counts lines shall not count theirs.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
function(vxpadcom_harden)
  if(VXPADCOM_SANITIZE OR VXPADCOM_COVERAGE)
    return()
  endif()
  foreach(target IN LISTS ARGN)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
      target_compile_options(${target} PRIVATE -fcf-protection)
    endif()
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
  endforeach()
endfunction()

if(VXPADCOM_SANITIZE)
  add_compile_options(-fsanitize=${VXPADCOM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VXPADCOM_SANITIZE})
endif()

if(VXPADCOM_FUZZ AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "VXPADCOM_FUZZ needs clang")
endif()

if(VXPADCOM_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR "VXPADCOM_COVERAGE needs gcc")
  endif()
  add_link_options(--coverage)
endif()

# For a directory of programs, which wait for people and pads: more would cost more to compile than they ever save.
macro(vxpadcom_optimise_little)
  add_compile_options($<$<CONFIG:Release>:-O1>)
endmacro()

# For a directory whose lines scripts/coverage counts. Threads share the counters.
macro(vxpadcom_count_lines)
  if(VXPADCOM_COVERAGE)
    add_compile_options(-O0 --coverage -fprofile-update=atomic)
  endif()
endmacro()
