# Compares the dynamic symbols a shared library defines with a list of expected names.
#   cmake -DNM=<nm> -DLIBRARY=<lib.so> -DEXPECTED=<list file> -P check_exports.cmake
# The list holds one name per line; blank lines and lines starting with '#' are skipped. Names the
# toolchain itself adds are ignored: AddressSanitizer's ODR indicators (__odr_asan.<variable>), one
# per exported variable in the sanitizer build.
foreach(var NM LIBRARY EXPECTED)
  if(NOT ${var})
    message(FATAL_ERROR "check_exports: ${var} not given")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE nm_out ERROR_VARIABLE nm_err RESULT_VARIABLE nm_rc)
if(NOT nm_rc EQUAL 0)
  message(FATAL_ERROR "check_exports: ${NM} failed on ${LIBRARY}: ${nm_err}")
endif()

# "<address> <type> <name>" per line; keep the name.
set(actual "")
string(REPLACE "\n" ";" nm_lines "${nm_out}")
foreach(line IN LISTS nm_lines)
  if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] ([^ ]+)$")
    set(name "${CMAKE_MATCH_1}")
    if(NOT name MATCHES "^__odr_asan\\.")
      list(APPEND actual "${name}")
    endif()
  endif()
endforeach()

file(STRINGS ${EXPECTED} expected_lines)
set(expected "")
foreach(line IN LISTS expected_lines)
  string(STRIP "${line}" line)
  if(line AND NOT line MATCHES "^#")
    list(APPEND expected "${line}")
  endif()
endforeach()

set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(unexpected ${actual})
list(REMOVE_ITEM unexpected ${expected})
list(LENGTH expected n_expected)
list(LENGTH actual n_actual)

if(missing OR unexpected)
  set(missing_text "(none)")
  set(unexpected_text "(none)")
  if(missing)
    list(JOIN missing "\n  " missing_text)
  endif()
  if(unexpected)
    list(JOIN unexpected "\n  " unexpected_text)
  endif()
  message(FATAL_ERROR "${LIBRARY}: ${n_actual} exported symbols, ${n_expected} expected\n"
    "missing:\n  ${missing_text}\nunexpected:\n  ${unexpected_text}")
endif()
message(STATUS "${LIBRARY}: exactly the ${n_expected} expected symbols are exported")
