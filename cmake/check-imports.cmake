# Fails if a Windows binary needs DLLs other than those of Windows.
# usage: cmake -DOBJDUMP=... -DBINARY=... -P check-imports.cmake
cmake_minimum_required(VERSION 3.25)
set(allowed kernel32.dll msvcrt.dll rpcrt4.dll)

execute_process(COMMAND ${OBJDUMP} -p ${BINARY} OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${headers}")
if(NOT imports)
  message(FATAL_ERROR "${BINARY}: no imports found")
endif()
foreach(import IN LISTS imports)
  string(REGEX REPLACE "DLL Name: *" "" import "${import}")
  string(STRIP "${import}" import)
  string(TOLOWER "${import}" import)
  if(NOT import IN_LIST allowed)
    message(FATAL_ERROR "${BINARY} imports ${import}")
  endif()
endforeach()
