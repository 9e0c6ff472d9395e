# Finds the headers of the libraries that the program `kelvonclip` is built with. None of them needs linking, so a cross
# build uses the build machine's headers too: a copy of them in the build tree, without the other headers beside them.
#
# Sets `tool_possible`, and KELVONCLIP_TOOL_HEADERS to the folder with the headers (empty: the compiler finds them).
set(tool_possible TRUE)
set(KELVONCLIP_TOOL_HEADERS "")
foreach(header CLI/CLI.hpp nlohmann/json.hpp fmt/format.h xxhash.h)
  string(MAKE_C_IDENTIFIER KELVONCLIP_${header} found)
  find_path(${found} ${header} NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${found})
  if(NOT ${found})
    set(tool_possible FALSE)
    message(STATUS "${header} not found")
  elseif(CMAKE_CROSSCOMPILING)
    set(KELVONCLIP_TOOL_HEADERS ${PROJECT_BINARY_DIR}/tool_headers)
    cmake_path(GET header PARENT_PATH folder)
    if(folder)
      file(COPY ${${found}}/${folder} DESTINATION ${KELVONCLIP_TOOL_HEADERS})
    else()
      file(GLOB files ${${found}}/xx*.h)
      file(COPY ${files} DESTINATION ${KELVONCLIP_TOOL_HEADERS})
    endif()
  endif()
endforeach()
