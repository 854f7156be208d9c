# How every target of this project is compiled.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

include(CheckIPOSupported)
check_ipo_supported(RESULT TEV_CAN_OPTIMISE_TOGETHER OUTPUT ignored)

# Hardening of everything that is built. The process ends when the stack is overwritten. Writing
# calls of the C library are checked if the size is known. Resolved symbols are read-only. Programs
# are position independent. The sanitizers include the first two checks. The second one needs
# optimisation.
include(CheckPIESupported)
check_pie_supported()
add_link_options(LINKER:-z,relro,-z,now)
if(NOT TEV_SANITIZE)
  add_compile_options(-fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

# Applies the project's warnings and include root to one target. Files are included by their path
# from the root of the repository ("src/support/guard.h"), public headers as "tev/...".
function(tev_target name)
  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique -fno-semantic-interposition>)
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  # g++ 12 wrongly reports overlaps in the code of std::string.
  target_compile_options(${name} PRIVATE
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
  target_compile_definitions(${name} PRIVATE _GNU_SOURCE TEV_COMMON_LIBRARY)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
endfunction()

# In a release, optimises the files of these targets together, because the pipeline from a sample to
# the serializer uses several of them.
function(tev_optimise_together)
  set_target_properties(${ARGN} PROPERTIES
    INTERPROCEDURAL_OPTIMIZATION_RELEASE ${TEV_CAN_OPTIMISE_TOGETHER})
endfunction()
