# cmake -DNM=... | -DOBJDUMP=... -DLIBRARY=... [-DPATTERN=...] -P check_exports.cmake
#
# Fails if the library exports nothing, or a symbol that does not match the pattern: its kind and name as nm prints them.
# The default pattern is the camera handler's only function. OBJDUMP is for DLLs, whose exports nm does not list; they
# count as functions.
if(OBJDUMP)
  execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table.*" output "${output}")
  string(REGEX REPLACE "\n\n.*" "" output "${output}")
  string(REGEX REPLACE "\n\t\\[[^\n]* ([^ \n]+)" "\n T \\1" table "${output}")
  string(REGEX MATCHALL " T [^\n]+" symbols "${table}")
else()
  execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL " [A-Za-z] [^\n]+" symbols "${output}")
endif()
if(NOT PATTERN)
  set(PATTERN "^ T NUVEQGetCameraHandler$")
endif()
set(others ${symbols})
list(FILTER others EXCLUDE REGEX "${PATTERN}")
if(NOT symbols OR others)
  message(FATAL_ERROR "${LIBRARY} exports:\n${output}")
endif()
