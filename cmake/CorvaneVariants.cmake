# The six code paths of the image primitives. Each kernel source is compiled once
# per path with that path's instruction-set flags; the source opens
# `namespace corvane::CORVANE_VARIANT` so that nothing it defines can clash with
# another path's copy. Everything else in the library builds for baseline x86-64.
set(CORVANE_VARIANTS m7 n8 y8 e9 l9 k0)
set(CORVANE_FLAGS_m7 -msse3)
set(CORVANE_FLAGS_n8 -mssse3 -msse4.1 -mmovbe)
set(CORVANE_FLAGS_y8 -msse4.2 -mpopcnt)
set(CORVANE_FLAGS_e9 -mavx -mpopcnt)
set(CORVANE_FLAGS_l9 -mavx2 -mfma -mbmi -mbmi2 -mlzcnt -mmovbe)
set(CORVANE_FLAGS_k0 -mavx512f -mavx512cd -mavx512bw -mavx512dq -mavx512vl -mavx2 -mfma -mbmi -mbmi2)

# corvane_add_variant_sources(<target> <sources...>)
# Builds <sources> six times, as OBJECT libraries <target>_<variant>, and adds
# their objects to <target>. Each build sees CORVANE_VARIANT=<variant> and
# CORVANE_VARIANT_INDEX=<0..5>.
function(corvane_add_variant_sources target)
  set(index 0)
  foreach(v IN LISTS CORVANE_VARIANTS)
    set(obj ${target}_${v})
    add_library(${obj} OBJECT ${ARGN})
    target_compile_options(${obj} PRIVATE ${CORVANE_FLAGS_${v}})
    target_compile_definitions(${obj} PRIVATE CORVANE_VARIANT=${v} CORVANE_VARIANT_INDEX=${index})
    target_include_directories(${obj} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
    corvane_warnings(${obj})
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${obj}>)
    set_property(GLOBAL APPEND PROPERTY CORVANE_VARIANT_OBJECT_LIBS ${obj})
    math(EXPR index "${index} + 1")
  endforeach()
endfunction()

# corvane_add_subsystem(<target> <sources...>): a static archive of PIC objects,
# registered for the shared object and the full static archive of src/library.
function(corvane_add_subsystem target)
  add_library(${target} STATIC ${ARGN})
  set_property(GLOBAL APPEND PROPERTY CORVANE_SUBSYSTEMS ${target})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${target} PRIVATE CORVANE_BUILDING_LIBRARY)
  corvane_warnings(${target})
endfunction()
