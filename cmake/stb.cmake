# The image decoder. Its version 2.27 takes any number of codes from a JPEG file and writes them past
# the end of its tables of 256; later versions refuse such a file. quillon_stb(OUT FILE...) makes a
# folder with the system's header and that check. Its sums of what a file says overflow, and are looked
# at only afterwards: in FILE..., which hold the decoder, they wrap. It copies nothing from and to null.
function(quillon_stb out)
  set(folder ${CMAKE_BINARY_DIR}/decoder)
  set(made ${folder}/stb/stb_image.h)
  file(READ /usr/include/stb/stb_image.h text)
  if(NOT text MATCHES "n > 256")
    set(counted "            L -= 17;\n            if (tc == 0) {")
    string(FIND "${text}" "${counted}" found)
    if(found EQUAL -1)
      message(FATAL_ERROR "stb_image.h: nothing refuses JPEG files of too many codes")
    endif()
    string(REPLACE "${counted}"
      "            if (n > 256) return stbi__err(\"bad DHT header\",\"Corrupt JPEG\");\n${counted}"
      text "${text}")
  endif()
  set(present "")
  if(EXISTS ${made})
    file(READ ${made} present)
  endif()
  if(NOT present STREQUAL text)
    file(WRITE ${made} "${text}")
  endif()
  set(${out} ${folder} PARENT_SCOPE)
  set(options -fwrapv)
  if(QUILLON_SANITIZE)
    list(APPEND options -fno-sanitize=nonnull-attribute)
  endif()
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
