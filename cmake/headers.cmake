# Header-only libraries of the system, reached through links so that a cross build sees them without
# the system's other headers. quillon_headers(TARGET NAME...) lets a target include <NAME/...>.
function(quillon_headers target)
  set(folder ${CMAKE_BINARY_DIR}/headers)
  file(MAKE_DIRECTORY ${folder})
  foreach(name IN LISTS ARGN)
    if(NOT EXISTS /usr/include/${name})
      message(FATAL_ERROR "/usr/include/${name} is missing: scripts/setup installs it")
    endif()
    file(CREATE_LINK /usr/include/${name} ${folder}/${name} SYMBOLIC)
  endforeach()
  target_include_directories(${target} SYSTEM PUBLIC ${folder})
endfunction()
