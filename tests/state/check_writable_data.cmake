# The shared library keeps no writable global data: every instance lives in the caller's block and
# every table is const. Lists the symbols readelf places in the writable data sections (.data,
# .bss, and the thread-local .tdata / .tbss) and fails on any that is not the toolchain's own:
#   __dso_handle, __TMC_END__        C runtime start files (crtbeginS.o / crtendS.o)
#   completed.0                      crtbeginS.o: the flag of __do_global_dtors_aux
#   __cpu_model, __cpu_features2     libgcc (x86-64): the CPU description behind the FFT's
#                                    instruction-set dispatch, filled once at load time
#   __aarch64_have_lse_atomics       libgcc (aarch64): flag of the outline atomics
# The sanitizer build adds its own instrumentation data (names starting with __asan, __odr_asan,
# __ubsan or .L); those are skipped there. Outside it, the writable sections may together hold no
# more than SIZE_LIMIT bytes (the toolchain's own symbols plus alignment).
#   cmake -DREADELF=<readelf> -DLIBRARY=<lib.so> [-DSANITIZED=ON] -P check_writable_data.cmake
cmake_policy(SET CMP0057 NEW)
foreach(var READELF LIBRARY)
  if(NOT ${var})
    message(FATAL_ERROR "check_writable_data: ${var} not given")
  endif()
endforeach()
set(SIZE_LIMIT 64)
set(toolchain_names __dso_handle __TMC_END__ completed.0 __cpu_model __cpu_features2
    __aarch64_have_lse_atomics)

execute_process(COMMAND ${READELF} -SW ${LIBRARY} OUTPUT_VARIABLE sections RESULT_VARIABLE rc1)
execute_process(COMMAND ${READELF} -sW ${LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc2)
if(NOT rc1 EQUAL 0 OR NOT rc2 EQUAL 0)
  message(FATAL_ERROR "check_writable_data: ${READELF} failed on ${LIBRARY}")
endif()

# Section index -> name for the writable data sections; their total size.
set(writable_indices "")
set(total 0)
string(REPLACE "\n" ";" section_lines "${sections}")
foreach(line IN LISTS section_lines)
  if(line MATCHES "^ *\\[ *([0-9]+)\\] (\\.data|\\.bss|\\.tdata|\\.tbss) +[A-Z]+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)")
    list(APPEND writable_indices "${CMAKE_MATCH_1}")
    set(section_${CMAKE_MATCH_1} "${CMAKE_MATCH_2}")
    math(EXPR total "${total} + 0x${CMAKE_MATCH_3}")
  endif()
endforeach()

# "Num: Value Size Type Bind Vis Ndx Name" per symbol.
set(offenders "")
string(REPLACE "\n" ";" symbol_lines "${symbols}")
foreach(line IN LISTS symbol_lines)
  if(line MATCHES "^ *[0-9]+: [0-9a-f]+ +([0-9]+) ([A-Z_]+) +[A-Z_]+ +[A-Z_]+ +([0-9]+) ([^ ]+)")
    set(size "${CMAKE_MATCH_1}")
    set(type "${CMAKE_MATCH_2}")
    set(ndx "${CMAKE_MATCH_3}")
    set(name "${CMAKE_MATCH_4}")
    string(REGEX REPLACE "@.*" "" name "${name}")
    # Section symbols and the Arm mapping symbols ($d, $x) mark places, not data.
    if(type STREQUAL "SECTION" OR name MATCHES "^\\$[adtx](\\.|$)")
      continue()
    endif()
    if(ndx IN_LIST writable_indices AND NOT name IN_LIST toolchain_names)
      if(NOT (SANITIZED AND name MATCHES "^(__asan|__odr_asan|__ubsan|\\.L)"))
        list(APPEND offenders "${section_${ndx}}: ${name} (${size} bytes)")
      endif()
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES offenders)

if(offenders)
  list(JOIN offenders "\n  " text)
  message(FATAL_ERROR "${LIBRARY} holds writable global data:\n  ${text}")
endif()
if(NOT SANITIZED AND total GREATER SIZE_LIMIT)
  message(FATAL_ERROR "${LIBRARY}: writable data sections hold ${total} bytes, more than the "
    "${SIZE_LIMIT} the toolchain adds")
endif()
message(STATUS "${LIBRARY}: no writable global data (${total} bytes of toolchain data)")
