# Objects built for an instruction set (NAME_sse41, NAME_avx2, NAME_avx512,
# NAME_neon) must share no symbol with the library's other objects: of two
# weak (inline or template) definitions the linker keeps one, and an AVX2 one
# kept for a portable caller dies on a processor without AVX. Fails on every global or
# weak symbol such an object defines that another object defines too.
# Arguments: NM, OBJECTS (the library's object files).
include(${CMAKE_CURRENT_LIST_DIR}/run_checked.cmake)

run(${NM} --defined-only --print-file-name --portability ${OBJECTS})
string(REGEX MATCHALL "[^\n]+" lines "${RUN_OUTPUT}")
set(isa_symbols)
foreach(line IN LISTS lines)
  # "object: symbol type value size"; upper case, u, v and w are not local.
  if(NOT line MATCHES "^(.+): ([^ ]+) ([A-Zuvw]) ")
    continue()
  endif()
  set(object ${CMAKE_MATCH_1})
  set(symbol ${CMAKE_MATCH_2})
  # The compiler's pointer to the C++ personality routine, the same data in
  # every object with unwinding tables (all of them under ThreadSanitizer).
  if(symbol MATCHES "^DW\\.ref\\.")
    continue()
  endif()
  list(APPEND defined_by_${symbol} ${object})
  if(object MATCHES "_(sse41|avx2|avx512|neon)\\.[^/]*$")
    list(APPEND isa_symbols ${symbol})
  endif()
endforeach()

set(shared)
list(REMOVE_DUPLICATES isa_symbols)
foreach(symbol IN LISTS isa_symbols)
  list(LENGTH defined_by_${symbol} count)
  if(count GREATER 1)
    list(JOIN defined_by_${symbol} ", " objects)
    list(APPEND shared "${symbol} in ${objects}")
  endif()
endforeach()
if(shared)
  list(JOIN shared "\n" shared)
  message(FATAL_ERROR "symbols of instruction-set objects defined elsewhere too:\n${shared}")
endif()
list(LENGTH isa_symbols count)
message(STATUS "the instruction-set objects' ${count} global and weak symbols are theirs alone")
