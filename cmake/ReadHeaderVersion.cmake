include_guard()

# nuveq_read_header_version(VARIABLE HEADER MACRO...): joins the numbers that the macros are defined to.
function(nuveq_read_header_version variable header)
  set(numbers)
  foreach(macro IN LISTS ARGN)
    file(STRINGS ${header} line REGEX "define ${macro}[ (]")
    string(REGEX MATCH "${macro}[ (]+([0-9]+)" found "${line}")
    list(APPEND numbers ${CMAKE_MATCH_1})
  endforeach()
  list(JOIN numbers . numbers)
  set(${variable} ${numbers} PARENT_SCOPE)
endfunction()
