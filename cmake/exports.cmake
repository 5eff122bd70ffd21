# Gives a program or library the second names of one .def file; not for Windows linkers, which read
# the file themselves.
function(quillon_second_names target def)
  file(STRINGS ${def} lines REGEX "^  [A-Za-z0-9_]+ *=")
  foreach(line IN LISTS lines)
    string(REGEX MATCHALL "[A-Za-z0-9_]+" words ${line})
    list(GET words 0 name)
    list(GET words 1 aliased)
    target_link_options(${target} PRIVATE "LINKER:--defsym=${name}=${aliased}")
  endforeach()
endfunction()

# Gives a shared library the names of one .def file, and no others.
#
# A line of the list is NAME, or NAME = TARGET for a second name of one entry point. Windows linkers
# read the file as it is; elsewhere it becomes a version script and one --defsym per second name.
function(quillon_export_names target def)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${def})
  if(WIN32)
    target_sources(${target} PRIVATE ${def})
    return()
  endif()
  if(EMSCRIPTEN)  # a library that is linked into its host shows it every name
    return()
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${def})
  file(STRINGS ${def} lines REGEX "^  [A-Za-z]")
  set(names "")
  foreach(line IN LISTS lines)
    string(REGEX MATCHALL "[A-Za-z0-9_]+" words ${line})
    list(GET words 0 name)
    string(APPEND names "    ${name};\n")
  endforeach()
  quillon_second_names(${target} ${def})
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  file(WRITE ${script} "{\n  global:\n${names}  local: *;\n};\n")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  if(NOT QUILLON_SANITIZE)  # clang's sanitizers are in the host
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
endfunction()

# Makes quillon.lib, by which Microsoft's linker and lld find the names of the DLL; MinGW's linker has
# libquillon.dll.a, or takes the DLL itself.
function(quillon_import_library target def)
  find_program(LLVM_DLLTOOL llvm-dlltool REQUIRED)
  set(machine i386)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(machine i386:x86-64)
  endif()
  set(library ${CMAKE_CURRENT_BINARY_DIR}/${target}.lib)
  add_custom_command(
    OUTPUT ${library} DEPENDS ${def}
    COMMAND ${LLVM_DLLTOOL} -m ${machine} -D ${target}.dll -d ${def} -l ${library})
  add_custom_target(${target}_import_library ALL DEPENDS ${library})
  install(FILES ${library} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endfunction()
