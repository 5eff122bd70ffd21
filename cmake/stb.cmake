# The image decoder. Its version 2.27 takes any number of codes from a JPEG file and writes them past
# the end of its tables of 256; later versions refuse such a file. quillon_stb(OUT) makes a folder with
# the system's header and that check.
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
endfunction()
