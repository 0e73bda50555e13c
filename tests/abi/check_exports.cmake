# Fails unless every defined dynamic symbol of LIBRARY is a public C name.
#   NM, READELF         binutils programs
#   LIBRARY             the shared object to read
#   ALLOWED_PREFIXES    list: a public name starts with one of these
#   ALLOWED_NAMES       list: or is one of these exactly
#   EXPECTED_SONAME     optional: the soname the object must carry
#   HEADER_DIR          optional: every function a header there declares with
#                       ZQ_API must be exported
cmake_minimum_required(VERSION 3.22)

set(problems "")
macro(report text)
  string(APPEND problems "  ${text}\n")
endmacro()

# Symbol table order in both listings, so line i of one is line i of the other.
function(read_symbols out)
  execute_process(COMMAND ${NM} -D --defined-only --no-sort ${ARGN} ${LIBRARY}
    OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}: ${errors}")
  endif()
  string(REGEX REPLACE "\n$" "" listing "${listing}")
  string(REPLACE "\n" ";" listing "${listing}")
  set(${out} "${listing}" PARENT_SCOPE)
endfunction()
read_symbols(raw_lines)
read_symbols(demangled_lines --demangle)

set(exported_names "")
list(LENGTH raw_lines count)
if(count EQUAL 0)
  message(FATAL_ERROR "${LIBRARY} exports nothing")
endif()
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  list(GET raw_lines ${i} line)
  list(GET demangled_lines ${i} readable)
  if(NOT line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) ([^@]+)")
    message(FATAL_ERROR "unexpected ${NM} line: ${line}")
  endif()
  set(kind "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] " "" readable "${readable}")
  # Absolute symbols name version nodes of a version script, not code or data.
  if(kind STREQUAL "A")
    continue()
  endif()
  list(APPEND exported_names "${name}")
  if(name MATCHES "^_Z" OR readable MATCHES "std::")
    report("C++ symbol: ${readable} [${name}]")
    continue()
  endif()
  set(allowed FALSE)
  if(name IN_LIST ALLOWED_NAMES)
    set(allowed TRUE)
  endif()
  foreach(prefix IN LISTS ALLOWED_PREFIXES)
    string(FIND "${name}" "${prefix}" at)
    if(at EQUAL 0)
      set(allowed TRUE)
      break()
    endif()
  endforeach()
  if(NOT allowed)
    report("foreign name: ${name} (type ${kind})")
  endif()
endforeach()

set(declared_count 0)
if(DEFINED HEADER_DIR AND NOT HEADER_DIR STREQUAL "")
  file(GLOB headers ${HEADER_DIR}/*.h)
  foreach(header IN LISTS headers)
    file(READ ${header} text)
    # Declarations start a line with ZQ_API; the name is the last word
    # before the opening parenthesis.
    string(REGEX MATCHALL "\nZQ_API[^;{}()#]*\\(" declarations "\n${text}")
    foreach(declaration IN LISTS declarations)
      math(EXPR declared_count "${declared_count} + 1")
      string(REGEX REPLACE ".*[ \t\n*]([A-Za-z_][A-Za-z0-9_]*)[ \t\n]*\\($" "\\1" function
        "${declaration}")
      if(NOT function IN_LIST exported_names)
        get_filename_component(header_name ${header} NAME)
        report("not exported: ${function}, declared in ${header_name}")
      endif()
    endforeach()
  endforeach()
endif()

if(DEFINED EXPECTED_SONAME AND NOT EXPECTED_SONAME STREQUAL "")
  execute_process(COMMAND ${READELF} -d ${LIBRARY}
    OUTPUT_VARIABLE dynamic ERROR_VARIABLE errors RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${READELF} failed on ${LIBRARY}: ${errors}")
  endif()
  if(dynamic MATCHES "\\(SONAME\\)[^\n]*\\[([^\n]*)\\]")
    set(soname "${CMAKE_MATCH_1}")
  else()
    set(soname "(none)")
  endif()
  if(NOT soname STREQUAL EXPECTED_SONAME)
    report("soname is ${soname}, expected ${EXPECTED_SONAME}")
  endif()
endif()

if(NOT problems STREQUAL "")
  message(FATAL_ERROR "${LIBRARY} breaks the C interface:\n${problems}")
endif()
list(LENGTH exported_names exported_count)
message(STATUS "${LIBRARY}: ${exported_count} exported names, all public; "
  "${declared_count} functions declared in the headers, all exported")
