# No writable global data in the shared library: fails on any symbol in .data, .bss, .tdata or .tbss
# but the toolchain's own (C runtime start files; libgcc's x86-64 CPU description behind the FFT's
# dispatch and aarch64 outline-atomics flag), and outside the sanitizer build (whose own data is
# skipped) on writable sections larger than SIZE_LIMIT bytes. Usage:
#   cmake -DREADELF=<readelf> -DLIBRARY=<lib.so> [-DSANITIZED=ON] -P check_writable_data.cmake
cmake_policy(SET CMP0057 NEW)
if(NOT READELF OR NOT LIBRARY)
  message(FATAL_ERROR "check_writable_data: READELF and LIBRARY must be given")
endif()
set(SIZE_LIMIT 64)
set(toolchain_names __dso_handle __TMC_END__ completed.0 __cpu_model __cpu_features2
    __aarch64_have_lse_atomics)

execute_process(COMMAND ${READELF} -SW ${LIBRARY} OUTPUT_VARIABLE sections RESULT_VARIABLE rc1)
execute_process(COMMAND ${READELF} -sW ${LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc2)
if(NOT rc1 EQUAL 0 OR NOT rc2 EQUAL 0)
  message(FATAL_ERROR "check_writable_data: ${READELF} failed on ${LIBRARY}")
endif()

# Section index -> name for the writable data sections; their total size.
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
string(REPLACE "\n" ";" symbol_lines "${symbols}")
foreach(line IN LISTS symbol_lines)
  if(line MATCHES "^ *[0-9]+: [0-9a-f]+ +([0-9]+) ([A-Z_]+) +[A-Z_]+ +[A-Z_]+ +([0-9]+) ([^ @]+)")
    set(size "${CMAKE_MATCH_1}")
    set(type "${CMAKE_MATCH_2}")
    set(ndx "${CMAKE_MATCH_3}")
    set(name "${CMAKE_MATCH_4}")
    # Section symbols and the Arm mapping symbols ($d, $x) mark places, not data.
    if(NOT type STREQUAL "SECTION" AND ndx IN_LIST writable_indices AND NOT name IN_LIST toolchain_names
       AND NOT name MATCHES "^\\$[adtx](\\.|$)"
       AND NOT (SANITIZED AND name MATCHES "^(__asan|__odr_asan|__ubsan|\\.L)"))
      list(APPEND offenders "${section_${ndx}}: ${name} (${size} bytes)")
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES offenders)

if(offenders)
  list(JOIN offenders "\n  " text)
  message(FATAL_ERROR "${LIBRARY} holds writable global data:\n  ${text}")
endif()
if(NOT SANITIZED AND total GREATER SIZE_LIMIT)
  message(FATAL_ERROR "${LIBRARY}: writable sections hold ${total} bytes, over the toolchain's ${SIZE_LIMIT}")
endif()
message(STATUS "${LIBRARY}: no writable global data (${total} bytes of toolchain data)")
