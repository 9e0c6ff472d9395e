# Support for callers built with Microsoft's compiler. clang takes its place.
find_program(KELVONCLIP_CLANG NAMES clang++ REQUIRED DOC "clang, which decorates names as Microsoft's compiler does")
find_program(KELVONCLIP_CXXFILT NAMES c++filt REQUIRED)

# The headers of the C++ library and of the system, without those of GCC itself (intrinsics), which clang cannot use.
set(system_folders ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES})
list(FILTER system_folders EXCLUDE REGEX "/lib/gcc/.*/include(-fixed)?$")
list(JOIN system_folders ":" system_folders)
set(microsoft_side_script ${PROJECT_SOURCE_DIR}/scripts/microsoft-side)
set(microsoft_side ${microsoft_side_script} ${KELVONCLIP_CLANG} ${system_folders} ${PROJECT_SOURCE_DIR}/include)
file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/kelvonclip/*.h)

# Exports every free function of the DLL under both decorated names, and makes NAME.lib, the import library for
# Microsoft's linker.
function(export_microsoft_names target)
  set(aliases ${CMAKE_CURRENT_BINARY_DIR}/${target}.def)
  set(import_library ${CMAKE_CURRENT_BINARY_DIR}/${target}.lib)
  add_custom_command(OUTPUT ${aliases}
                     COMMAND ${microsoft_side} export-aliases ${KELVONCLIP_CXXFILT} > ${aliases}.new
                     COMMAND ${CMAKE_COMMAND} -E rename ${aliases}.new ${aliases}
                     DEPENDS ${microsoft_side_script} ${public_headers} VERBATIM
                     COMMENT "Decorating the exported names as Microsoft's compiler does")
  target_sources(${target} PRIVATE ${aliases})

  add_custom_command(OUTPUT ${import_library}
                     # Objects call a C function by its name with an underscore in front, which the DLL's name lacks.
                     COMMAND sed -nE "/EXPORTS/p; s/ = .*//p; s/^ +(kclip_[a-z0-9_]+)$/    _\\1 == \\1/p" ${aliases}
                             > ${import_library}.def
                     COMMAND ${CMAKE_DLLTOOL} --no-leading-underscore -D $<TARGET_FILE_NAME:${target}>
                             -d ${import_library}.def -l ${import_library}
                     DEPENDS ${aliases} VERBATIM)
  add_custom_target(${target}_microsoft_library ALL DEPENDS ${import_library})
  set_target_properties(${target} PROPERTIES microsoft_library ${import_library})
  install(FILES ${import_library} DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# Adds a source that is compiled as Microsoft's compiler would, to a MinGW program that calls the DLL.
function(target_microsoft_source target source)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${source}.obj)
  cmake_path(GET object PARENT_PATH folder)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${object}
                     COMMAND ${microsoft_side} compile ${CMAKE_CURRENT_SOURCE_DIR}/${source} ${object}
                     DEPENDS ${microsoft_side_script} ${public_headers} ${source} VERBATIM)
  target_sources(${target} PRIVATE ${object})
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
  get_target_property(import_library kelvonclip microsoft_library)
  target_link_libraries(${target} PRIVATE ${import_library})
  add_dependencies(${target} kelvonclip_microsoft_library)
endfunction()
