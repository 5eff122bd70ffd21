# quillon_page_parts(OUT): the styles and scripts of the pages, kit/report/*.css and *.js, as a source file
# of string constants; OUT is its name.
function(quillon_page_parts out)
  set(folder ${PROJECT_SOURCE_DIR}/kit/report)
  foreach(part page.css report.css index.css csv.js viewer.js table.js report.js index.js)
    string(MAKE_C_IDENTIFIER ${part} variable)
    file(READ ${folder}/${part} ${variable})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/${part})
  endforeach()
  set(made ${PROJECT_BINARY_DIR}/generated/page_parts.cpp)
  configure_file(${folder}/page_parts.cpp.in ${made} @ONLY)
  set(${out} ${made} PARENT_SCOPE)
endfunction()
