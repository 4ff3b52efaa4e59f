# cmake -DNM=... -DLIBRARY=... -P check_exports.cmake: fails unless the library exports its one function only.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "(^|\n)[0-9a-f]+ " "\\1" symbols "${symbols}")
string(STRIP "${symbols}" symbols)
if(NOT symbols STREQUAL "T NUVEQGetCameraHandler")
  message(FATAL_ERROR "${LIBRARY} exports:\n${symbols}\ninstead of T NUVEQGetCameraHandler alone")
endif()
